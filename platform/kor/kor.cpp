// kor.cpp - the portable runtime on POSIX.
#include "kor.h"

#include <dlfcn.h>
#include <errno.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

extern "C" {

int32_t KOR_InitEx(void) { return KOR_OK; }

int32_t KOR_FiniEx(void) { return KOR_OK; }

int64_t KOR_TimeNow(void) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

int32_t KOR_ExpTimeFromTimeLocal(KOR_ExpTime* out, int64_t timeUs) {
  if (out == nullptr) return KOR_ERR_INVALID_ARG;
  // Floor division so that times before 1970 keep a non-negative microsecond part.
  int64_t seconds = timeUs / 1000000;
  int64_t micros = timeUs % 1000000;
  if (micros < 0) {
    micros += 1000000;
    --seconds;
  }
  const time_t asTimeT = static_cast<time_t>(seconds);
  tm local{};
  if (localtime_r(&asTimeT, &local) == nullptr) return KOR_ERR_INVALID_ARG;
  out->tm_usec = static_cast<int32_t>(micros);
  out->tm_sec = local.tm_sec;
  out->tm_min = local.tm_min;
  out->tm_hour = local.tm_hour;
  out->tm_mday = local.tm_mday;
  out->tm_mon = local.tm_mon;
  out->tm_year = local.tm_year;
  out->tm_wday = local.tm_wday;
  out->tm_yday = local.tm_yday;
  out->tm_isdst = local.tm_isdst;
  out->tm_gmtoff = static_cast<int32_t>(local.tm_gmtoff);
  return KOR_OK;
}

int32_t KOR_GetSystemLastError(void) { return errno; }

int32_t KOR_GetModuleFileName(const char* moduleName, char* path, size_t size) {
  if (moduleName == nullptr || path == nullptr || size == 0) return KOR_ERR_INVALID_ARG;
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&KOR_GetModuleFileName), &info) == 0 || info.dli_fname == nullptr)
    return KOR_ERR_INVALID_ARG;
  std::string file = info.dli_fname;
  const size_t slash = file.rfind('/');
  if (file.compare(slash == std::string::npos ? 0 : slash + 1, std::string::npos, moduleName) != 0)
    return KOR_ERR_INVALID_ARG;
  if (file.front() != '/') {
    char cwd[4096] = {};
    if (getcwd(cwd, sizeof cwd) == nullptr) return KOR_ERR_RANGE;
    file = std::string(cwd) + "/" + file;
  }
  if (file.size() >= size) return KOR_ERR_RANGE;
  std::memcpy(path, file.c_str(), file.size() + 1);
  return KOR_OK;
}

uint32_t KOR_GetCurrentThreadId(void) {
  // Kernel thread ids are unique among live threads and fit in 32 bits.
  static thread_local const uint32_t threadId = static_cast<uint32_t>(syscall(SYS_gettid));
  return threadId;
}

int32_t KOR_Memcpy_s(void* dest, size_t destSize, const void* src, size_t count) {
  if (dest == nullptr || (src == nullptr && count > 0)) return KOR_ERR_INVALID_ARG;
  if (count > destSize) return KOR_ERR_RANGE;
  if (count > 0) std::memmove(dest, src, count);
  return KOR_OK;
}

int32_t KOR_Strncpy_s(char* dest, size_t destSize, const char* src, size_t count) {
  if (dest == nullptr || destSize == 0) return KOR_ERR_INVALID_ARG;
  if (src == nullptr) {
    dest[0] = '\0';
    return KOR_ERR_INVALID_ARG;
  }
  size_t length = 0;
  while (length < count && src[length] != '\0') ++length;
  int32_t result = KOR_OK;
  if (length >= destSize) {
    length = destSize - 1;
    result = KOR_ERR_RANGE;
  }
  std::memmove(dest, src, length);
  dest[length] = '\0';
  return result;
}

int32_t KOR_Sprintf_s(char* dest, size_t destSize, const char* format, ...) {
  if (dest == nullptr || destSize == 0) return -1;
  if (format == nullptr) {
    dest[0] = '\0';
    return -1;
  }
  va_list args;
  va_start(args, format);
  const int written = std::vsnprintf(dest, destSize, format, args);
  va_end(args);
  if (written < 0) {
    dest[0] = '\0';
    return -1;
  }
  if (static_cast<size_t>(written) >= destSize) return -1;
  return written;
}

}  // extern "C"
