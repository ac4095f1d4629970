#include "SoakLedger.h"

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "ProcessStats.h"

namespace {

// A call that waited out its own time-out returns a little after it.
constexpr double kTimerSlack = 0.5;

}  // namespace

ProcessSample SampleProcess() {
  ProcessSample sample;
  // Freed memory that the allocator keeps in its per-thread arenas is no
  // leak: it goes back first, so resident memory shows what is held.
  ::malloc_trim(0);
  const struct mallinfo2 heap = ::mallinfo2();
  sample.heapMb = static_cast<double>(heap.uordblks + heap.hblkhd) / (1024.0 * 1024.0);
  sample.residentMb = bench::ResidentMegabytes();
  std::error_code error;
  for (auto it = std::filesystem::directory_iterator("/proc/self/fd", error);
       !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
    ++sample.descriptors;
  }
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("Threads:", 0) == 0) sample.threads = std::stoi(line.substr(8));
  }
  return sample;
}

void SoakLedger::Record(const char* entry, double bound, double seconds, int result) {
  std::lock_guard<std::mutex> lock(m_mutex);
  Entry& stats = m_entries[entry];
  stats.bound = bound;
  ++stats.calls;
  stats.failed += result != 0 ? 1 : 0;
  stats.worst = std::max(stats.worst, seconds);
  if (seconds > bound + kTimerSlack) {
    ++stats.over;
    if (m_notes.size() < 40) {
      char line[160];
      std::snprintf(line, sizeof line, "%s took %.1f s (bound %.0f s)", entry, seconds, bound);
      m_notes.push_back(line);
    }
  }
}

std::string SoakLedger::Inside() const {
  std::map<std::string, int> counts;
  for (const auto& entry : m_inside) {
    if (const char* name = entry.load()) ++counts[name];
  }
  std::string text;
  for (const auto& [name, count] : counts) text += (text.empty() ? "" : ", ") + name + " x" + std::to_string(count);
  return text;
}

std::map<std::string, SoakLedger::Entry> SoakLedger::Entries() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_entries;
}

void SoakLedger::Count(const std::string& kind, Outcome outcome) {
  std::lock_guard<std::mutex> lock(m_mutex);
  ++m_streams[{kind, outcome}];
}

int SoakLedger::Streams(const std::string& kind, Outcome outcome) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  auto found = m_streams.find({kind, outcome});
  return found == m_streams.end() ? 0 : found->second;
}

void SoakLedger::Note(const std::string& line) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_notes.size() < 40) m_notes.push_back(line);
}

std::vector<std::string> SoakLedger::Notes() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_notes;
}

bool SoakGate::Pass() {
  std::unique_lock<std::mutex> lock(m_mutex);
  ++m_parked;
  m_changed.notify_all();
  m_changed.wait(lock, [&] { return !m_holding || m_finished; });
  --m_parked;
  return !m_finished;
}

bool SoakGate::Hold(std::chrono::seconds bound) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_holding = true;
  m_changed.notify_all();
  return m_changed.wait_for(lock, bound, [&] { return m_parked == m_workers; });
}

void SoakGate::Release() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_holding = false;
  m_changed.notify_all();
}

void SoakGate::Finish() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_finished = true;
  m_changed.notify_all();
}

void SoakGate::Nap(std::chrono::milliseconds duration) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait_for(lock, duration, [&] { return m_holding || m_finished; });
}
