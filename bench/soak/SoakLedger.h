// SoakLedger.h - what the soak counts while it runs: how long each entry
// point took against its bound, how each stream ended, where the process
// stands (memory, descriptors, threads), and the gate that parks the workers
// while the process is measured.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// Resident memory, open descriptors and threads of this process.
struct ProcessSample {
  double residentMb = 0;  // after free heap pages went back to the system
  double heapMb = 0;      // what the process holds from the allocator
  int descriptors = 0;
  int threads = 0;
};
ProcessSample SampleProcess();

class SoakLedger {
 public:
  explicit SoakLedger(int workers) : m_inside(static_cast<size_t>(workers)) {}

  // Runs one entry point for worker `worker`, timing it against `bound` seconds.
  template <typename Call>
  int Timed(int worker, const char* entry, double bound, Call call) {
    m_inside[static_cast<size_t>(worker)] = entry;
    const auto start = std::chrono::steady_clock::now();
    const int result = call();
    m_inside[static_cast<size_t>(worker)] = nullptr;
    Record(entry, bound, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), result);
    return result;
  }
  // The entry points workers are inside right now ("StopStream x2").
  std::string Inside() const;

  struct Entry {
    double bound = 0;
    int calls = 0;
    int failed = 0;  // non-zero results
    int over = 0;    // calls past the bound
    double worst = 0;
  };
  std::map<std::string, Entry> Entries() const;

  // Stream outcomes; `kind` is "live" or "playback".
  enum class Outcome { Refused, Delivering, Ended, SeveralEnds, SilentWithoutEnd, SilentUnderSlowLink, ResumeRefused };
  void Count(const std::string& kind, Outcome outcome);
  int Streams(const std::string& kind, Outcome outcome) const;
  // A problem worth a line in the report (the first few are kept).
  void Note(const std::string& line);
  std::vector<std::string> Notes() const;

 private:
  void Record(const char* entry, double bound, double seconds, int result);

  mutable std::mutex m_mutex;
  std::map<std::string, Entry> m_entries;
  std::map<std::pair<std::string, Outcome>, int> m_streams;
  std::vector<std::string> m_notes;
  std::vector<std::atomic<const char*>> m_inside;
};

// Parks the workers at their checkpoints while the main thread measures.
class SoakGate {
 public:
  explicit SoakGate(int workers) : m_workers(workers) {}
  // Workers: waits while held; false once the run is over.
  bool Pass();
  // True while the main thread wants the workers parked: sessions end early.
  bool Wanted() const { return m_holding.load() || m_finished.load(); }
  // Main: parks every worker; false when some did not come within `bound`.
  bool Hold(std::chrono::seconds bound);
  void Release();
  void Finish();
  // Sleeps up to `duration`, less when the workers are wanted.
  void Nap(std::chrono::milliseconds duration);

 private:
  const int m_workers;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::atomic<bool> m_holding{true}, m_finished{false};
  int m_parked = 0;
};
