#include "StreamClock.h"

#include "kor.h"

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

MUXC_GlobalTime FromFields(int64_t year, int month, int day, int hour, int minute, int second, int32_t millisecond,
                           int32_t reserved) {
  MUXC_GlobalTime time{};
  time.year = static_cast<int32_t>(year);
  time.month = month;
  time.day = day;
  time.hour = hour;
  time.minute = minute;
  time.second = second;
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
  const kor::CivilTime civil{base.year, base.month, base.day, base.hour, base.minute, base.second};
  const int64_t totalMs = static_cast<int64_t>(base.millisecond) + elapsedMs;
  const int64_t carrySeconds = FloorDiv(totalMs, 1000);
  const kor::CivilTime result = kor::CivilFromUnixSeconds(kor::UnixSecondsFromCivil(civil) + carrySeconds);
  if (result.year > 9999 || result.year < 1) return false;
  *out = FromFields(result.year, result.month, result.day, result.hour, result.minute, result.second,
                    static_cast<int32_t>(totalMs - carrySeconds * 1000), base.dwReserved);
  return true;
}

MUXC_GlobalTime LocalTimeOf(int64_t unixMs, int32_t reserved) {
  KOR_ExpTime local{};
  KOR_ExpTimeFromTimeLocal(&local, unixMs * 1000);
  return FromFields(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                    local.tm_usec / 1000, reserved);
}

int64_t WallClockMs() { return FloorDiv(KOR_TimeNow(), 1000); }

}  // namespace muxc
