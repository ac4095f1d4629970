// kor.cpp - the portable runtime: what needs no operating system. The
// system's halves are kor_posix.cpp and kor_windows.cpp.
#include "kor.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "kor_os.h"

extern "C" {

int32_t KOR_InitEx(void) { return KOR_OK; }

int32_t KOR_FiniEx(void) { return KOR_OK; }

int64_t KOR_TimeNow(void) {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
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
  if (!kor::detail::LocalFields(seconds, out)) return KOR_ERR_INVALID_ARG;
  out->tm_usec = static_cast<int32_t>(micros);
  return KOR_OK;
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

namespace kor {
namespace {

int64_t FloorDiv(int64_t value, int64_t divisor) {
  const int64_t quotient = value / divisor;
  return (value % divisor != 0 && (value < 0) != (divisor < 0)) ? quotient - 1 : quotient;
}

// Days since 1970-01-01 of a proleptic Gregorian date, and back: the
// calendar arithmetic of H. Hinnant's days_from_civil, which needs no time
// zone and no C library.
int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day) {
  year -= month <= 2 ? 1 : 0;
  const int64_t era = FloorDiv(year, 400);
  const int64_t yearOfEra = year - era * 400;
  const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

}  // namespace

int64_t UnixSecondsFromCivil(const CivilTime& time) {
  // Months outside 1..12 carry into the year, as timegm normalises them.
  const int64_t monthIndex = static_cast<int64_t>(time.month) - 1;
  const int64_t year = time.year + FloorDiv(monthIndex, 12);
  const int64_t month = monthIndex - FloorDiv(monthIndex, 12) * 12 + 1;
  const int64_t days = DaysFromCivil(year, month, 1) + time.day - 1;
  return days * 86400 + static_cast<int64_t>(time.hour) * 3600 + static_cast<int64_t>(time.minute) * 60 + time.second;
}

CivilTime CivilFromUnixSeconds(int64_t seconds) {
  const int64_t days = FloorDiv(seconds, 86400);
  const int64_t secondOfDay = seconds - days * 86400;
  const int64_t shifted = days + 719468;
  const int64_t era = FloorDiv(shifted, 146097);
  const int64_t dayOfEra = shifted - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t monthShifted = (5 * dayOfYear + 2) / 153;
  CivilTime time;
  time.day = static_cast<int>(dayOfYear - (153 * monthShifted + 2) / 5 + 1);
  time.month = static_cast<int>(monthShifted < 10 ? monthShifted + 3 : monthShifted - 9);
  time.year = yearOfEra + era * 400 + (time.month <= 2 ? 1 : 0);
  time.hour = static_cast<int>(secondOfDay / 3600);
  time.minute = static_cast<int>(secondOfDay / 60 % 60);
  time.second = static_cast<int>(secondOfDay % 60);
  time.weekday = static_cast<int>(days + 4 - FloorDiv(days + 4, 7) * 7);  // 1970-01-01 was a Thursday
  time.yearDay = static_cast<int>(days - DaysFromCivil(time.year, 1, 1));
  return time;
}

}  // namespace kor
