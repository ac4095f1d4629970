// ThreadManager.h - TarnBase task manager: named single-thread queues.
// Each reserved key owns one worker thread that runs its tasks in order.
// Queues are bounded: a task posted to a full queue is refused (and logged),
// never buffered without limit.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace Tarn::Base {

// A unit of work for a queue.
class CTMTask {
 public:
  virtual ~CTMTask() = default;
  virtual void Run() = 0;
};

// A task holding a callable.
class CTaskCommon : public CTMTask {
 public:
  explicit CTaskCommon(std::function<void()> work) : m_work(std::move(work)) {}
  void Run() override {
    if (m_work) m_work();
  }

 private:
  std::function<void()> m_work;
};

class CThreadManager {
 public:
  static CThreadManager& Instance();

  // Starts the manager; true on success (also when already started).
  bool Init_V2();
  // Stops every queue: pending tasks are dropped, running ones finish, all
  // worker threads are joined. The manager can be started again.
  void UnInit();

  // Reserves the queue `key` with one worker thread holding at most
  // `maxPending` waiting tasks. False when the manager is not started, the key
  // is already reserved, or the thread cannot be created.
  bool GetAvailableThread_V2(const std::string& key, size_t maxPending);
  // Queues a task; false when the key is unknown or its queue is full.
  bool PostTask(const std::string& key, std::unique_ptr<CTMTask> task);
  // Stops and removes the queue. With `waitPending` the worker runs what is
  // queued first; otherwise pending tasks are dropped. Never called from the
  // queue's own thread. False when the key is unknown.
  bool ReleaseThread(const std::string& key, bool waitPending);

  CThreadManager(const CThreadManager&) = delete;
  CThreadManager& operator=(const CThreadManager&) = delete;

 private:
  CThreadManager();
  ~CThreadManager();
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace Tarn::Base
