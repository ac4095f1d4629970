#include "IoEngine.h"

#include <asio/executor_work_guard.hpp>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include "Delivery.h"
#include "evlog.h"
#include "protocol/Md5.h"

namespace mdclient {
namespace {

// Sessions only wait on sockets and timers here; platform callbacks run on
// the delivery threads, so two threads serve every camera.
constexpr int kThreadCount = 2;

struct Engine {
  std::mutex mutex;  // held while threads start or stop, so a new session waits for a stop to finish
  size_t sessions = 0;
  std::unique_ptr<asio::io_context> context;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work;
  std::vector<std::thread> threads;
};

// Never destroyed: a static destructor would have to join the threads, under
// the loader lock on Windows. When sessions are left at exit their threads
// end with the process.
Engine& TheEngine() {
  static Engine* engine = new Engine;
  return *engine;
}

void Run(asio::io_context* context) {
  for (;;) {
    try {
      context->run();
      return;
    } catch (const std::exception& error) {
      evlog_write(EVLOG_ERROR, "mdclient", "I/O engine handler threw: %s", error.what());
    }
  }
}

void StopLocked(Engine& engine) {
  engine.work.reset();
  engine.context->stop();
  for (std::thread& thread : engine.threads) thread.join();
  engine.threads.clear();
  engine.context.reset();
  StopDeliveryThreads();
}

}  // namespace

asio::io_context* IoEngine::Acquire() {
  Engine& engine = TheEngine();
  std::lock_guard<std::mutex> lock(engine.mutex);
  if (engine.sessions == 0) {
    // Digest hashing runs on the pool threads.
    PrepareMd5();
    engine.context = std::make_unique<asio::io_context>();
    engine.work.emplace(asio::make_work_guard(*engine.context));
    try {
      StartDeliveryThreads();
      for (int i = 0; i < kThreadCount; ++i) engine.threads.emplace_back(Run, engine.context.get());
    } catch (const std::system_error& error) {
      evlog_write(EVLOG_ERROR, "mdclient", "cannot start the I/O and delivery threads: %s", error.what());
      StopLocked(engine);
      return nullptr;
    }
  }
  ++engine.sessions;
  return engine.context.get();
}

void IoEngine::Release() {
  Engine& engine = TheEngine();
  std::lock_guard<std::mutex> lock(engine.mutex);
  if (engine.sessions == 0 || --engine.sessions > 0) return;
  StopLocked(engine);
}

}  // namespace mdclient
