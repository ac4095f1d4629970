// IoEngine.h - the one I/O engine every RTSP session of the process shares:
// an io_context run by a small thread pool, with the delivery threads beside
// it. Both live only while sessions exist: the first session made starts
// them, and destroying the last one stops them and joins them on the
// caller's thread. Nothing is left for a static destructor to join: on
// Windows those run under the loader lock (FreeLibrary, process exit), where
// joining a thread deadlocks.
#pragma once

// Asio chooses its aligned allocator from libstdc++'s configuration macros;
// a standard header first makes every translation unit see the same choice.
// clang-format off
#include <cstddef>
// clang-format on

#include <asio/io_context.hpp>

namespace mdclient {

class IoEngine {
 public:
  // The context for one more session, threads started for the first one;
  // nullptr (logged) when the threads cannot be started.
  static asio::io_context* Acquire();
  // One session fewer. The last stops the threads and joins them here; the
  // context goes with them, and so do the handlers still queued on it and
  // the closed sessions they hold.
  static void Release();
};

}  // namespace mdclient
