// IoEngine.h - the one I/O engine every RTSP session of the process shares:
// an io_context run by a small thread pool, created on first use.
#pragma once

// Asio chooses its aligned allocator from libstdc++'s configuration macros;
// a standard header first makes every translation unit see the same choice.
// clang-format off
#include <cstddef>
// clang-format on

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <thread>
#include <vector>

namespace mdclient {

class IoEngine {
 public:
  static IoEngine& Instance();
  asio::io_context& Context() { return m_context; }

  IoEngine(const IoEngine&) = delete;
  IoEngine& operator=(const IoEngine&) = delete;

 private:
  IoEngine();
  ~IoEngine();

  asio::io_context m_context;
  asio::executor_work_guard<asio::io_context::executor_type> m_work;
  std::vector<std::thread> m_threads;
};

}  // namespace mdclient
