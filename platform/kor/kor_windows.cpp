// kor_windows.cpp - the portable runtime's operating-system half on Windows.
#include <time.h>
#include <windows.h>

#include <cstdint>
#include <cstring>

#include "kor.h"
#include "kor_os.h"

namespace kor::detail {

namespace {

// The C runtime's local time: 1970 to 3000 only.
bool RuntimeLocalFields(int64_t seconds, KOR_ExpTime* out) {
  const __time64_t asTime = seconds;
  tm local{};
  // The C runtime follows the system's zone (or TZ when set), daylight saving included.
  if (_localtime64_s(&local, &asTime) != 0) return false;
  CopyCalendarFields(local, out);
  out->tm_isdst = local.tm_isdst > 0 ? 1 : 0;
  // Windows' broken-down time has no offset field: it is the local fields
  // read as UTC, less the instant.
  const CivilTime civil{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                        local.tm_hour,        local.tm_min,     local.tm_sec};
  out->tm_gmtoff = static_cast<int32_t>(UnixSecondsFromCivil(civil) - seconds);
  return true;
}

// The last second the C runtime converts (3000-12-31 23:59:59 UTC).
constexpr int64_t kRuntimeLastSecond = 32535215999;

}  // namespace

bool LocalFields(int64_t seconds, KOR_ExpTime* out) {
  if (RuntimeLocalFields(seconds, out)) return true;
  // Unlike Linux, Windows' C runtime refuses times before 1970 (and after
  // 3000). Such a time takes the zone offset of the nearest one it converts,
  // without daylight saving.
  KOR_ExpTime nearest{};
  if (!RuntimeLocalFields(seconds < 0 ? 0 : kRuntimeLastSecond - 86400, &nearest)) return false;
  const int64_t offset = nearest.tm_gmtoff - (nearest.tm_isdst != 0 ? 3600 : 0);
  const CivilTime local = CivilFromUnixSeconds(seconds + offset);
  if (local.year - 1900 < INT32_MIN || local.year - 1900 > INT32_MAX) return false;
  out->tm_sec = local.second;
  out->tm_min = local.minute;
  out->tm_hour = local.hour;
  out->tm_mday = local.day;
  out->tm_mon = local.month - 1;
  out->tm_year = static_cast<int32_t>(local.year - 1900);
  out->tm_wday = local.weekday;
  out->tm_yday = local.yearDay;
  out->tm_isdst = 0;
  out->tm_gmtoff = static_cast<int32_t>(offset);
  return true;
}

}  // namespace kor::detail

extern "C" {

int32_t KOR_GetSystemLastError(void) { return static_cast<int32_t>(GetLastError()); }

int32_t KOR_GetModuleFileName(const char* moduleName, char* path, size_t size) {
  if (moduleName == nullptr || path == nullptr || size == 0) return KOR_ERR_INVALID_ARG;
  HMODULE module = GetModuleHandleA(moduleName);
  if (module == nullptr) return KOR_ERR_INVALID_ARG;
  const DWORD capacity = size > MAXDWORD ? MAXDWORD : static_cast<DWORD>(size);
  const DWORD length = GetModuleFileNameA(module, path, capacity);
  if (length == 0) return KOR_ERR_INVALID_ARG;
  // A path that filled the buffer was cut (and on older systems not terminated).
  if (length >= capacity) {
    path[0] = '\0';
    return KOR_ERR_RANGE;
  }
  return KOR_OK;
}

uint32_t KOR_GetCurrentThreadId(void) { return static_cast<uint32_t>(GetCurrentThreadId()); }

}  // extern "C"
