#include "StreamClock.h"

#include <ctime>

namespace muxc {
namespace {

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

int64_t FloorDiv(int64_t value, int64_t divisor) {
  int64_t quotient = value / divisor;
  if ((value % divisor != 0) && ((value < 0) != (divisor < 0))) --quotient;
  return quotient;
}

MUXC_GlobalTime FromTm(const std::tm& tm, int32_t millisecond, int32_t reserved) {
  MUXC_GlobalTime time{};
  time.year = tm.tm_year + 1900;
  time.month = tm.tm_mon + 1;
  time.day = tm.tm_mday;
  time.hour = tm.tm_hour;
  time.minute = tm.tm_min;
  time.second = tm.tm_sec;
  time.millisecond = millisecond;
  time.dwReserved = reserved;
  return time;
}

}  // namespace

bool IsValidCivilTime(const MUXC_GlobalTime& t) {
  return t.year >= 1 && t.year <= 9999 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
         t.day <= DaysInMonth(t.year, t.month) && t.hour >= 0 && t.hour <= 23 && t.minute >= 0 && t.minute <= 59 &&
         t.second >= 0 && t.second <= 60 && t.millisecond >= 0 && t.millisecond <= 999;
}

bool AddMilliseconds(const MUXC_GlobalTime& base, int64_t elapsedMs, MUXC_GlobalTime* out) {
  // The fields are treated as a zone-less calendar time: UTC arithmetic has no DST jumps.
  std::tm tm{};
  tm.tm_year = base.year - 1900;
  tm.tm_mon = base.month - 1;
  tm.tm_mday = base.day;
  tm.tm_hour = base.hour;
  tm.tm_min = base.minute;
  tm.tm_sec = base.second;
  const time_t baseSeconds = timegm(&tm);
  const int64_t totalMs = static_cast<int64_t>(base.millisecond) + elapsedMs;
  const int64_t carrySeconds = FloorDiv(totalMs, 1000);
  const time_t seconds = baseSeconds + static_cast<time_t>(carrySeconds);
  std::tm result{};
  if (gmtime_r(&seconds, &result) == nullptr || result.tm_year + 1900 > 9999 || result.tm_year + 1900 < 1) {
    return false;
  }
  *out = FromTm(result, static_cast<int32_t>(totalMs - carrySeconds * 1000), base.dwReserved);
  return true;
}

MUXC_GlobalTime LocalTimeOf(int64_t unixMs, int32_t reserved) {
  const int64_t seconds = FloorDiv(unixMs, 1000);
  const time_t whole = static_cast<time_t>(seconds);
  std::tm tm{};
  localtime_r(&whole, &tm);
  return FromTm(tm, static_cast<int32_t>(unixMs - seconds * 1000), reserved);
}

int64_t WallClockMs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace muxc
