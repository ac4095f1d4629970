#include "IoEngine.h"

#include <openssl/crypto.h>

#include "evlog.h"

namespace mdclient {
namespace {
// Sessions only wait on sockets and timers; two threads keep one slow
// callback from stalling every other camera.
constexpr int kThreadCount = 2;
}  // namespace

IoEngine& IoEngine::Instance() {
  static IoEngine engine;
  return engine;
}

IoEngine::IoEngine() : m_work(asio::make_work_guard(m_context)) {
  // Digest hashing runs on the pool threads. Starting OpenSSL before this
  // object is complete registers its exit handler earlier, so it runs after
  // our destructor has joined the threads and their OpenSSL state is freed.
  OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
  for (int i = 0; i < kThreadCount; ++i) {
    m_threads.emplace_back([this] {
      for (;;) {
        try {
          m_context.run();
          return;
        } catch (const std::exception& error) {
          evlog_write(EVLOG_ERROR, "mdclient", "I/O engine handler threw: %s", error.what());
        }
      }
    });
  }
}

IoEngine::~IoEngine() {
  m_work.reset();
  m_context.stop();
  for (std::thread& thread : m_threads) thread.join();
}

}  // namespace mdclient
