// FaultSet.h - the faults switched on in one camera, shared by its HTTP and
// RTSP sides, and the schedule that switches them on and off over time.
#pragma once

#include <atomic>
#include <condition_variable>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "camera_sim/Fault.h"

namespace camsim {

class FaultSet {
 public:
  using Id = int;

  // Switches a fault on for paths starting with `pathPrefix` ("" for all);
  // the latest one switched on wins. The id switches it off again.
  Id Add(std::string pathPrefix, Fault fault);
  void Remove(Id id);
  void Clear();

  // The latest fault of one of `kinds` for `side` and `path` that is still
  // due, counting the event against its `after` and `times`.
  std::optional<Fault> Take(FaultSide side, const std::string& path, std::initializer_list<Fault::Kind> kinds);
  // The latest fault of `kind` for `side` and `path`, without counting (Freeze, Slow).
  std::optional<Fault> Condition(FaultSide side, Fault::Kind kind, const std::string& path) const;
  // Waits while a freeze holds for `side` and `path`. False when interrupted.
  bool WaitWhileFrozen(FaultSide side, const std::string& path);
  // Interrupted, waits return at once (the camera stops); cleared when it starts again.
  void SetInterrupted(bool interrupted);
  // False when certainly nothing is switched on for `side`: the hot paths' quick test.
  bool Any(FaultSide side) const {
    return (m_sides.load(std::memory_order_relaxed) & static_cast<unsigned>(side)) != 0;
  }

  // `listener` runs after every change, on the changing thread; it must not
  // call back into the set. After RemoveListener returns it runs no more.
  Id AddListener(std::function<void()> listener);
  void RemoveListener(Id id);

 private:
  struct Entry {
    Id id;
    std::string prefix;
    Fault fault;
  };
  const Entry* FindLocked(FaultSide side, Fault::Kind kind, const std::string& path) const;
  void Changed(std::unique_lock<std::mutex>& lock);

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Entry> m_entries;
  Id m_nextId = 1;
  bool m_interrupted = false;
  std::atomic<unsigned> m_sides{0};
  std::mutex m_listenerMutex;  // held while listeners run, so removal waits for a running one
  std::map<Id, std::function<void()>> m_listeners;
  Id m_nextListenerId = 1;
};

// Switches faults on and off at chosen times, or at random, on its own thread.
// Whatever it switched on is switched off when it stops.
class FaultSchedule {
 public:
  explicit FaultSchedule(FaultSet& faults) : m_faults(faults) {}
  ~FaultSchedule() { Stop(); }
  FaultSchedule(const FaultSchedule&) = delete;
  FaultSchedule& operator=(const FaultSchedule&) = delete;

  // On after `at`, off again after `length` more (0: stays on).
  void At(std::string pathPrefix, Fault fault, std::chrono::milliseconds at, std::chrono::milliseconds length);
  // Random episodes until Stop; replaces an earlier random plan.
  void Random(RandomFaults plan);
  void Stop();

 private:
  struct Timed {
    std::string prefix;
    Fault fault;
    std::chrono::steady_clock::time_point on, off;  // off == on: stays on
    std::optional<FaultSet::Id> id;
  };
  void Run();
  void EnsureThread();
  FaultEpisode NextEpisode();

  FaultSet& m_faults;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_stopping = false;
  std::vector<Timed> m_timed;
  std::optional<RandomFaults> m_random;
  std::unique_ptr<std::mt19937> m_randomEngine;
  std::thread m_thread;
};

}  // namespace camsim
