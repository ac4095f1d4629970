// kor_os.h - what the runtime's operating-system halves (kor_posix.cpp,
// kor_windows.cpp) give its portable part.
#pragma once

#include <stdint.h>
#include <time.h>

#include "kor.h"

namespace kor::detail {

// Every field of `out` but tm_usec for `seconds` since 1970 in local time.
bool LocalFields(int64_t seconds, KOR_ExpTime* out);

// The calendar fields both C runtimes' broken-down times share (all but
// daylight saving and the offset, which each system gives its own way).
inline void CopyCalendarFields(const tm& from, KOR_ExpTime* out) {
  out->tm_sec = from.tm_sec;
  out->tm_min = from.tm_min;
  out->tm_hour = from.tm_hour;
  out->tm_mday = from.tm_mday;
  out->tm_mon = from.tm_mon;
  out->tm_year = from.tm_year;
  out->tm_wday = from.tm_wday;
  out->tm_yday = from.tm_yday;
}

}  // namespace kor::detail
