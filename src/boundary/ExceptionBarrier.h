// ExceptionBarrier.h - nothing thrown inside the plug-in reaches the platform.
// Every entry point, and every callback the plug-in hands to a platform
// library (media client, repackager, task queues, HTTP server), runs its body
// through Guarded: an exception becomes the caller's failure result and one
// log line naming where it was stopped.
#pragma once

#include <algorithm>
#include <cstddef>
#include <exception>
#include <type_traits>
#include <utility>

namespace netcam {

// Logs the exception being handled, stopped at `where`. Call only from a catch block.
void LogStoppedException(const char* where) noexcept;

// Runs `body`; anything it throws becomes `failure`.
template <typename Result, typename Body>
Result Guarded(const char* where, Result failure, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    LogStoppedException(where);
    return failure;
  }
}

// The same for a body without a result.
template <typename Body>
void Guarded(const char* where, Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    LogStoppedException(where);
  }
}

// A function name usable as a template argument.
template <size_t N>
struct CallbackName {
  constexpr CallbackName(const char (&name)[N]) { std::copy_n(name, N, text); }
  char text[N];
};

template <CallbackName Name, auto Callback>
struct CallbackBarrier;

// A C callback with the same signature as `Callback` that stops its exceptions.
template <CallbackName Name, typename... Args, void (*Callback)(Args...)>
struct CallbackBarrier<Name, Callback> {
  static void Call(Args... args) noexcept {
    Guarded(Name.text, [&] { Callback(args...); });
  }
};

}  // namespace netcam

// The guarded stand-in for a plug-in function given to a platform library as a callback.
#define NETCAM_GUARDED_CALLBACK(function) (&::netcam::CallbackBarrier<#function, &function>::Call)
