// TimeUtil.cpp - ISO 8601 and camera timestamp conversions, always in UTC.
#include "TimeUtil.h"

#include <time.h>

#include <cstdio>

namespace Tarn::Base::TimeUtil {
namespace {

// Years outside this range are not written as four digits.
constexpr int kMinYear = 0;
constexpr int kMaxYear = 9999;

// Walks a text without ever reading past its end.
class Cursor {
 public:
  explicit Cursor(const std::string& text) : m_text(text) {}

  bool AtEnd() const { return m_pos >= m_text.size(); }
  char Peek() const { return AtEnd() ? '\0' : m_text[m_pos]; }
  bool Accept(char c) {
    if (AtEnd() || m_text[m_pos] != c) return false;
    ++m_pos;
    return true;
  }
  // Exactly `count` decimal digits.
  bool Digits(int count, int* value) {
    int result = 0;
    for (int i = 0; i < count; ++i) {
      const char c = Peek();
      if (AtEnd() || c < '0' || c > '9') return false;
      result = result * 10 + (c - '0');
      ++m_pos;
    }
    *value = result;
    return true;
  }
  // One or more digits, skipped.
  bool SkipDigits() {
    const size_t start = m_pos;
    while (!AtEnd() && Peek() >= '0' && Peek() <= '9') ++m_pos;
    return m_pos > start;
  }

 private:
  const std::string& m_text;
  size_t m_pos = 0;
};

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
  static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

struct Fields {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

// "YYYY-MM-DD<sep>HH:MM:SS" with an optional fraction; validates every field.
bool ParseDateTime(Cursor& in, bool allowBlankSeparator, Fields* out) {
  Fields f;
  if (!in.Digits(4, &f.year) || !in.Accept('-') || !in.Digits(2, &f.month) || !in.Accept('-') ||
      !in.Digits(2, &f.day)) {
    return false;
  }
  if (!in.Accept('T') && !in.Accept('t') && !(allowBlankSeparator && in.Accept(' '))) return false;
  if (!in.Digits(2, &f.hour) || !in.Accept(':') || !in.Digits(2, &f.minute) || !in.Accept(':') ||
      !in.Digits(2, &f.second)) {
    return false;
  }
  if ((in.Accept('.') || in.Accept(',')) && !in.SkipDigits()) return false;
  // A leap second (60) is accepted and lands on the next minute.
  if (f.month < 1 || f.month > 12 || f.day < 1 || f.day > DaysInMonth(f.year, f.month) || f.hour > 23 ||
      f.minute > 59 || f.second > 60) {
    return false;
  }
  *out = f;
  return true;
}

int64_t ToTimeT(const Fields& f) {
  tm broken{};
  broken.tm_year = f.year - 1900;
  broken.tm_mon = f.month - 1;
  broken.tm_mday = f.day;
  broken.tm_hour = f.hour;
  broken.tm_min = f.minute;
  broken.tm_sec = f.second;
  return static_cast<int64_t>(timegm(&broken));
}

bool ToBrokenDownUtc(int64_t seconds, tm* out) {
  const time_t asTimeT = static_cast<time_t>(seconds);
  if (static_cast<int64_t>(asTimeT) != seconds || gmtime_r(&asTimeT, out) == nullptr) return false;
  const int64_t year = static_cast<int64_t>(out->tm_year) + 1900;
  return year >= kMinYear && year <= kMaxYear;
}

}  // namespace

int64_t ISODatetime2TimeT(const std::string& text) {
  Cursor in(text);
  Fields fields;
  if (!ParseDateTime(in, false, &fields)) return -1;
  int64_t offsetSeconds = 0;
  if (in.Accept('Z') || in.Accept('z')) {
    // UTC.
  } else if (in.Peek() == '+' || in.Peek() == '-') {
    const bool east = in.Accept('+');
    if (!east) in.Accept('-');
    int hours = 0;
    int minutes = 0;
    if (!in.Digits(2, &hours)) return -1;
    // "+08:00", "+0800" and "+08" are all in use.
    if (in.Accept(':')) {
      if (!in.Digits(2, &minutes)) return -1;
    } else if (!in.AtEnd() && !in.Digits(2, &minutes)) {
      return -1;
    }
    if (hours > 23 || minutes > 59) return -1;
    offsetSeconds = (hours * 3600 + minutes * 60) * (east ? 1 : -1);
  }
  if (!in.AtEnd()) return -1;
  // Local time = UTC + offset.
  return ToTimeT(fields) - offsetSeconds;
}

bool TimeT2UTCDVRTime(int64_t seconds, NET_DEV_TIME* out) {
  tm broken{};
  if (out == nullptr || !ToBrokenDownUtc(seconds, &broken)) return false;
  out->year = static_cast<uint32_t>(broken.tm_year + 1900);
  out->month = static_cast<uint32_t>(broken.tm_mon + 1);
  out->day = static_cast<uint32_t>(broken.tm_mday);
  out->hour = static_cast<uint32_t>(broken.tm_hour);
  out->minute = static_cast<uint32_t>(broken.tm_min);
  out->second = static_cast<uint32_t>(broken.tm_sec);
  return true;
}

int64_t StrUTCTimeStamp2TimeT(const std::string& text) {
  Cursor in(text);
  Fields fields;
  if (!ParseDateTime(in, true, &fields)) return -1;
  if (!in.Accept('Z')) in.Accept('z');
  if (!in.AtEnd()) return -1;
  return ToTimeT(fields);
}

std::string TimeT2StrUTCDatetime(int64_t seconds) {
  tm broken{};
  if (!ToBrokenDownUtc(seconds, &broken)) return std::string();
  char text[80];  // wide enough for any int fields
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", broken.tm_year + 1900, broken.tm_mon + 1,
                broken.tm_mday, broken.tm_hour, broken.tm_min, broken.tm_sec);
  return text;
}

}  // namespace Tarn::Base::TimeUtil
