#include "Delivery.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <list>
#include <system_error>
#include <thread>
#include <utility>

#include "evlog.h"

namespace mdclient {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kModule = "mdclient";
constexpr uint8_t kData = 0;
constexpr uint8_t kMessage = 1;
// Record header: kind, three bytes of padding, type, length.
constexpr size_t kHeaderBytes = 12;
// Packets are handed over as pictures complete; this much of an unfinished one
// is handed over anyway.
constexpr size_t kHandOverBytes = 64 * 1024;
// A burst may grow the buffers to the bound; beyond this they are given back
// once the consumer keeps up again, so an idle stream holds little memory.
constexpr size_t kKeptBufferBytes = 256 * 1024;
// Delivery threads are woken once a tick for whatever queued since, not once a
// picture per camera: a wake costs more than delivering a picture, and a tick
// is far below what a viewer notices. Also how long every thread may be busy
// before one more is added.
constexpr auto kTick = std::chrono::milliseconds(10);
constexpr int kBaseThreads = 2;
// Threads added while callbacks blocked leave after this long without work.
constexpr auto kSpareLinger = std::chrono::seconds(10);

// The session whose callback this thread is running.
thread_local const Delivery* t_callbackOwner = nullptr;

class CallbackScope {
 public:
  explicit CallbackScope(const Delivery* owner) : m_previous(t_callbackOwner) { t_callbackOwner = owner; }
  ~CallbackScope() { t_callbackOwner = m_previous; }
  CallbackScope(const CallbackScope&) = delete;
  CallbackScope& operator=(const CallbackScope&) = delete;

 private:
  const Delivery* m_previous;
};

// The delivery threads of the process. Sessions with something to deliver
// wait in line; a thread takes one, runs its callbacks, and takes the next. A
// watcher wakes them each tick, and adds a thread whenever all of them have
// been busy for a tick while sessions wait, which is what a callback that
// blocks looks like; so blocked callbacks hold only their own sessions.
// Threads run only between Start and Stop, each for one generation.
class DeliveryPool {
 public:
  // Never destroyed: the I/O engine stops its threads with the last session.
  static DeliveryPool& Instance() {
    static DeliveryPool* pool = new DeliveryPool;
    return *pool;
  }

  void Start() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_running) return;
    m_running = true;
    const uint64_t generation = ++m_generation;
    for (int i = 0; i < kBaseThreads; ++i) AddThreadLocked();
    if (m_threads < kBaseThreads) {
      // Stop, which the engine calls next, joins what did start.
      throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "delivery threads");
    }
    m_all.emplace_back([this, generation] { Watch(generation); });
  }

  void Stop() {
    std::list<std::thread> threads;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (!m_running) return;
      m_running = false;
      ++m_generation;
      threads.swap(m_all);
      m_ready.clear();
      m_exited.clear();
      m_threads = m_idle = 0;
    }
    m_work.notify_all();
    m_watch.notify_all();
    for (std::thread& thread : threads) {
      // A callback that destroyed the last session runs on one of them: that
      // thread cannot wait for itself, and leaves once the callback returns.
      thread.get_id() == std::this_thread::get_id() ? thread.detach() : thread.join();
    }
  }

  void Schedule(std::shared_ptr<Delivery> session, bool urgent) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_running) return;
    m_ready.push_back({std::move(session), Clock::now()});
    const bool wake = urgent && m_idle > 0;
    lock.unlock();
    if (wake) m_work.notify_one();
  }

  void SessionStarted() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_sessions++ == 0) m_watch.notify_one();
  }

  void SessionEnded() {
    std::lock_guard<std::mutex> lock(m_mutex);
    --m_sessions;
  }

 private:
  struct Waiting {
    std::shared_ptr<Delivery> session;
    Clock::time_point since;
  };

  void AddThreadLocked() {
    // Spare threads that left are joined here, so none is ever detached.
    for (auto it = m_all.begin(); it != m_all.end();) {
      if (std::find(m_exited.begin(), m_exited.end(), it->get_id()) == m_exited.end()) {
        ++it;
        continue;
      }
      it->join();
      it = m_all.erase(it);
    }
    m_exited.clear();
    try {
      m_all.emplace_back([this, generation = m_generation] { Work(generation); });
      ++m_threads;
    } catch (const std::system_error& error) {
      // The sessions waiting stay in line for the threads there are.
      if (!std::exchange(m_addFailed, true)) {
        evlog_write(EVLOG_ERROR, kModule, "cannot add a delivery thread to the %d there are: %s", m_threads,
                    error.what());
      }
    }
  }

  void Work(uint64_t generation) {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (generation == m_generation) {
      if (m_ready.empty()) {
        ++m_idle;
        const bool woken =
            m_work.wait_for(lock, kSpareLinger, [&] { return !m_ready.empty() || generation != m_generation; });
        if (generation != m_generation) return;
        --m_idle;
        if (!woken && m_threads > kBaseThreads) {
          --m_threads;
          m_exited.push_back(std::this_thread::get_id());
          return;
        }
        continue;
      }
      std::shared_ptr<Delivery> session = std::move(m_ready.front().session);
      m_ready.pop_front();
      const bool help = !m_ready.empty() && m_idle > 0;
      lock.unlock();
      if (help) m_work.notify_one();
      session->DeliverQueued();
      session.reset();  // the last reference may go here, outside the lock
      lock.lock();
    }
  }

  void Watch(uint64_t generation) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto stopped = [&] { return generation != m_generation; };
    while (!stopped()) {
      if (m_sessions == 0) m_watch.wait(lock, [&] { return m_sessions > 0 || stopped(); });
      m_watch.wait_for(lock, kTick, stopped);
      if (stopped() || m_ready.empty()) continue;
      if (m_idle > 0) {
        m_work.notify_one();
      } else if (Clock::now() - m_ready.front().since >= kTick && m_threads < kBaseThreads + m_sessions) {
        AddThreadLocked();
        evlog_write(EVLOG_TRACE, kModule, "every delivery thread is busy, %d now", m_threads);
      }
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_work;
  std::condition_variable m_watch;
  std::deque<Waiting> m_ready;
  std::list<std::thread> m_all;           // every thread of this generation, the watcher too
  std::vector<std::thread::id> m_exited;  // spare threads that left, not yet joined
  uint64_t m_generation = 0;
  bool m_running = false;
  int m_threads = 0;
  int m_idle = 0;
  int m_sessions = 0;
  bool m_addFailed = false;  // logged once
};

}  // namespace

void StartDeliveryThreads() { DeliveryPool::Instance().Start(); }

void StopDeliveryThreads() { DeliveryPool::Instance().Stop(); }

Delivery::Delivery(int32_t clientId, size_t boundBytes) : m_clientId(clientId), m_boundBytes(boundBytes) {}

Delivery::~Delivery() = default;

bool Delivery::SetMessageCallback(MDC_MsgCallBack callback, void* user) {
  std::lock_guard<std::recursive_mutex> gate(m_gateMutex);
  if (m_closed) return false;
  m_msgCallback = callback;
  m_msgUser = user;
  return true;
}

bool Delivery::SetDataCallback(MDC_DataCallBack callback, void* user) {
  std::lock_guard<std::recursive_mutex> gate(m_gateMutex);
  if (m_closed) return false;
  m_dataCallback = callback;
  m_dataUser = user;
  return true;
}

void Delivery::Start() {
  {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_started || m_stop) return;
    m_started = true;
  }
  DeliveryPool::Instance().SessionStarted();
}

void Delivery::Release() {
  std::unique_lock<std::mutex> lock(m_queueMutex);
  m_held = false;
  ScheduleAfter(lock, !m_incoming.empty(), true);
}

bool Delivery::InOwnCallback() const { return t_callbackOwner == this; }

void Delivery::Close() {
  {
    // Waits for a callback running on a delivery thread; from inside that
    // callback the lock is recursive and does not wait.
    std::lock_guard<std::recursive_mutex> gate(m_gateMutex);
    m_closed = true;
  }
  bool started = false;
  {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    m_stop = true;
    started = std::exchange(m_started, false);
    m_incoming.clear();
    m_incoming.shrink_to_fit();
  }
  if (started) DeliveryPool::Instance().SessionEnded();
}

void Delivery::PushData(int32_t type, const uint8_t* data, size_t size, bool resumePoint, bool complete) {
  bool firstDrop = false;
  size_t queued = 0;
  {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_stop) return;
    const bool fits = m_incoming.size() + kHeaderBytes + size <= m_boundBytes;
    if (m_dropping && (!resumePoint || !fits)) {
      ++m_dropped;
      return;
    }
    if (!fits) {
      // The consumer fell behind: what follows up to the next key frame would
      // not decode without what is dropped now.
      m_dropping = true;
      ++m_dropped;
      firstDrop = !m_dropLogged;
      m_dropLogged = true;
      queued = m_incoming.size();
    } else {
      m_dropping = false;
      m_complete = m_complete || complete;
      Append(kData, type, data, size);
    }
  }
  if (firstDrop) {
    evlog_write(EVLOG_WARN, kModule,
                "client %d: the consumer falls behind (%zu bytes waiting), dropping packets up to the next key frame; "
                "later drops are counted, not logged",
                m_clientId, queued);
  }
}

void Delivery::PushDescription(const std::string& sdp) {
  std::lock_guard<std::mutex> lock(m_queueMutex);
  if (!m_stop) Append(kData, MDC_DATA_SDP, reinterpret_cast<const uint8_t*>(sdp.data()), sdp.size());
}

void Delivery::PushMessage(int32_t type, const std::string& text) {
  std::unique_lock<std::mutex> lock(m_queueMutex);
  if (m_stop) return;
  // With its terminating NUL: the platform reads the text as a C string.
  Append(kMessage, type, reinterpret_cast<const uint8_t*>(text.c_str()), text.size() + 1);
  // Whole by itself: a delivery thread busy with this session must come back
  // for it, or the last word of a session would wait for packets that never
  // follow.
  m_complete = true;
  ScheduleAfter(lock, true, true);
}

void Delivery::Flush() {
  std::unique_lock<std::mutex> lock(m_queueMutex);
  ScheduleAfter(lock, m_complete || m_incoming.size() >= kHandOverBytes, false);
}

uint64_t Delivery::Dropped() const {
  std::lock_guard<std::mutex> lock(m_queueMutex);
  return m_dropped;
}

void Delivery::ScheduleAfter(std::unique_lock<std::mutex>& lock, bool wanted, bool urgent) {
  const bool schedule = wanted && !m_scheduled && !m_held && !m_stop;
  if (schedule) m_scheduled = true;
  lock.unlock();
  if (schedule) DeliveryPool::Instance().Schedule(shared_from_this(), urgent);
}

void Delivery::Append(uint8_t kind, int32_t type, const uint8_t* data, size_t size) {
  uint8_t header[kHeaderBytes] = {kind};
  const uint32_t length = static_cast<uint32_t>(size);
  std::memcpy(header + 4, &type, 4);
  std::memcpy(header + 8, &length, 4);
  m_incoming.insert(m_incoming.end(), header, header + kHeaderBytes);
  m_incoming.insert(m_incoming.end(), data, data + size);
}

void Delivery::DeliverQueued() {
  {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_stop) {
      m_scheduled = false;
      return;
    }
    // Only the one thread serving this session touches m_draining.
    m_draining.swap(m_incoming);
    m_complete = false;
  }
  DeliverBatch();
  if (m_draining.capacity() > kKeptBufferBytes && m_draining.size() < m_draining.capacity() / 4) {
    std::vector<uint8_t>().swap(m_draining);
  } else {
    m_draining.clear();
  }
  std::unique_lock<std::mutex> lock(m_queueMutex);
  m_scheduled = false;
  // What came in meanwhile goes to the back of the line, behind the others.
  ScheduleAfter(lock, m_complete || m_incoming.size() >= kHandOverBytes, false);
}

void Delivery::DeliverBatch() {
  const std::vector<uint8_t>& batch = m_draining;
  for (size_t at = 0; at + kHeaderBytes <= batch.size();) {
    int32_t type = 0;
    uint32_t length = 0;
    std::memcpy(&type, batch.data() + at + 4, 4);
    std::memcpy(&length, batch.data() + at + 8, 4);
    const uint8_t kind = batch[at];
    const uint8_t* bytes = batch.data() + at + kHeaderBytes;
    at += kHeaderBytes + length;

    std::lock_guard<std::recursive_mutex> gate(m_gateMutex);
    if (m_closed) return;
    CallbackScope scope(this);
    if (kind == kData && m_dataCallback != nullptr) {
      m_dataCallback(m_clientId, type, bytes, static_cast<int32_t>(length), m_dataUser);
    } else if (kind == kMessage && m_msgCallback != nullptr) {
      m_msgCallback(m_clientId, type, reinterpret_cast<const char*>(bytes), static_cast<int32_t>(length - 1),
                    m_msgUser);
    }
  }
}

}  // namespace mdclient
