// evlog_function.h - the qualified function name that starts every log line,
// spelled as the platform's compiler prints it ("CPlgDeviceObjectImplement::OpenDevice",
// "`anonymous-namespace'::ParseTime"), derived from the compiler's own signature text.
#pragma once

#include <string>
#include <string_view>

namespace evlog {

// "int Ns::Cls::Fn(args) const" -> "Ns::Cls::Fn"; GCC's "{anonymous}" becomes
// "`anonymous-namespace'".
std::string QualifiedFunctionName(std::string_view prettySignature);

}  // namespace evlog

#if defined(_MSC_VER)
#define EVLOG_SIGNATURE __FUNCSIG__
#else
#define EVLOG_SIGNATURE __PRETTY_FUNCTION__
#endif

// One cached name per call site, computed on first use only.
#define EVLOG_FUNCTION_NAME()                                                       \
  ([](const char* evlogSignature) -> const char* {                                             \
    static const std::string evlogCachedName = ::evlog::QualifiedFunctionName(evlogSignature);           \
    return evlogCachedName.c_str();                                                            \
  }(EVLOG_SIGNATURE))
