// ThreadManager.cpp - named single-thread task queues with a bounded backlog.
#include "ThreadManager.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "evlog.h"

namespace Tarn::Base {
namespace {

constexpr const char* kLogModule = "tarnbase";

// One key's worker and its backlog. Shared between the manager's map and the
// worker, so a queue outlives its removal from the map until the worker ends.
class TaskQueue {
 public:
  TaskQueue(std::string key, size_t maxPending) : m_key(std::move(key)), m_maxPending(maxPending) {}

  const std::string& Key() const { return m_key; }

  // Whether the task was queued; a refusal is logged here, once per task.
  bool Push(std::unique_ptr<CTMTask> task) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stopping) {
      evlog_write(EVLOG_ERROR, kLogModule, "PostTask: queue '%s' is being released, task refused", m_key.c_str());
      return false;
    }
    if (m_pending.size() >= m_maxPending) {
      evlog_write(EVLOG_ERROR, kLogModule, "PostTask: queue '%s' is full (%zu pending), task refused", m_key.c_str(),
                  m_pending.size());
      return false;
    }
    m_pending.push_back(std::move(task));
    m_wake.notify_one();
    return true;
  }

  // Asks the worker to end; without `runPending` the backlog is dropped here,
  // on the caller's thread. Returns the dropped tasks so they are destroyed
  // outside the lock (a task's destructor may post elsewhere).
  std::deque<std::unique_ptr<CTMTask>> Stop(bool runPending) {
    std::deque<std::unique_ptr<CTMTask>> dropped;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopping = true;
    if (!runPending) dropped.swap(m_pending);
    m_wake.notify_one();
    return dropped;
  }

  void RunWorker() {
    for (;;) {
      std::unique_ptr<CTMTask> task;
      {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_wake.wait(lock, [this] { return m_stopping || !m_pending.empty(); });
        if (m_pending.empty()) return;  // stopping and drained
        task = std::move(m_pending.front());
        m_pending.pop_front();
      }
      RunGuarded(*task);
    }
  }

 private:
  void RunGuarded(CTMTask& task) {
    try {
      task.Run();
    } catch (const std::exception& error) {
      evlog_write(EVLOG_ERROR, kLogModule, "task on queue '%s' threw: %s", m_key.c_str(), error.what());
    } catch (...) {
      evlog_write(EVLOG_ERROR, kLogModule, "task on queue '%s' threw a non-standard exception", m_key.c_str());
    }
  }

  const std::string m_key;
  const size_t m_maxPending;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::deque<std::unique_ptr<CTMTask>> m_pending;
  bool m_stopping = false;
};

struct Worker {
  std::shared_ptr<TaskQueue> queue;
  std::thread thread;
};

// Stops a worker and waits for it. A worker cannot join itself: when asked to
// from its own task it is detached and ends after that task returns.
void StopAndJoin(Worker& worker, bool runPending) {
  auto dropped = worker.queue->Stop(runPending);
  dropped.clear();
  if (worker.thread.get_id() == std::this_thread::get_id()) {
    evlog_write(EVLOG_ERROR, kLogModule, "queue '%s' released from its own thread; not waiting for it",
                worker.queue->Key().c_str());
    worker.thread.detach();
  } else if (worker.thread.joinable()) {
    worker.thread.join();
  }
}

}  // namespace

struct CThreadManager::Impl {
  std::mutex mutex;
  bool started = false;
  std::map<std::string, Worker> workers;
};

CThreadManager& CThreadManager::Instance() {
  static CThreadManager instance;
  return instance;
}

CThreadManager::CThreadManager() : m_impl(std::make_unique<Impl>()) {}

CThreadManager::~CThreadManager() { UnInit(); }

bool CThreadManager::Init_V2() {
  std::lock_guard<std::mutex> lock(m_impl->mutex);
  m_impl->started = true;
  return true;
}

void CThreadManager::UnInit() {
  std::map<std::string, Worker> workers;
  {
    std::lock_guard<std::mutex> lock(m_impl->mutex);
    m_impl->started = false;
    workers.swap(m_impl->workers);
  }
  // Joined outside the lock: running tasks may still call PostTask.
  for (auto& entry : workers) StopAndJoin(entry.second, false);
}

bool CThreadManager::GetAvailableThread_V2(const std::string& key, size_t maxPending) {
  std::lock_guard<std::mutex> lock(m_impl->mutex);
  if (!m_impl->started) {
    evlog_write(EVLOG_ERROR, kLogModule, "GetAvailableThread_V2('%s'): manager not started", key.c_str());
    return false;
  }
  if (maxPending == 0) {
    evlog_write(EVLOG_ERROR, kLogModule, "GetAvailableThread_V2('%s'): a queue must hold at least one task",
                key.c_str());
    return false;
  }
  if (m_impl->workers.count(key) != 0) {
    evlog_write(EVLOG_WARN, kLogModule, "GetAvailableThread_V2('%s'): key already reserved", key.c_str());
    return false;
  }
  Worker worker;
  worker.queue = std::make_shared<TaskQueue>(key, maxPending);
  try {
    worker.thread = std::thread([queue = worker.queue] { queue->RunWorker(); });
  } catch (const std::system_error& error) {
    evlog_write(EVLOG_ERROR, kLogModule, "GetAvailableThread_V2('%s'): cannot start thread: %s", key.c_str(),
                error.what());
    return false;
  }
  m_impl->workers.emplace(key, std::move(worker));
  return true;
}

bool CThreadManager::PostTask(const std::string& key, std::unique_ptr<CTMTask> task) {
  if (!task) {
    evlog_write(EVLOG_ERROR, kLogModule, "PostTask('%s'): no task given", key.c_str());
    return false;
  }
  std::shared_ptr<TaskQueue> queue;
  {
    std::lock_guard<std::mutex> lock(m_impl->mutex);
    auto found = m_impl->workers.find(key);
    if (found == m_impl->workers.end()) {
      evlog_write(EVLOG_ERROR, kLogModule, "PostTask: unknown queue '%s', task refused", key.c_str());
      return false;
    }
    queue = found->second.queue;
  }
  return queue->Push(std::move(task));
}

bool CThreadManager::ReleaseThread(const std::string& key, bool waitPending) {
  Worker worker;
  {
    std::lock_guard<std::mutex> lock(m_impl->mutex);
    auto found = m_impl->workers.find(key);
    if (found == m_impl->workers.end()) {
      evlog_write(EVLOG_WARN, kLogModule, "ReleaseThread: unknown queue '%s'", key.c_str());
      return false;
    }
    worker = std::move(found->second);
    m_impl->workers.erase(found);
  }
  StopAndJoin(worker, waitPending);
  return true;
}

}  // namespace Tarn::Base
