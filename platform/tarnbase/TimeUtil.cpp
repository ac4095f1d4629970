// TimeUtil.cpp - ISO 8601 and camera timestamp conversions, always in UTC.
#include "TimeUtil.h"

#include <cstdio>

#include "kor.h"

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
  const kor::CivilTime civil{f.year, f.month, f.day, f.hour, f.minute, f.second};
  return kor::UnixSecondsFromCivil(civil);
}

bool ToBrokenDownUtc(int64_t seconds, kor::CivilTime* out) {
  *out = kor::CivilFromUnixSeconds(seconds);
  return out->year >= kMinYear && out->year <= kMaxYear;
}

}  // namespace

int64_t ISODatetime2TimeT(const std::string& text) {
  Cursor in(text);
  Fields fields;
  if (!ParseDateTime(in, false, &fields)) return kInvalidTimeT;
  int64_t offsetSeconds = 0;
  if (in.Accept('Z') || in.Accept('z')) {
    // UTC.
  } else if (in.Peek() == '+' || in.Peek() == '-') {
    const bool east = in.Accept('+');
    if (!east) in.Accept('-');
    int hours = 0;
    int minutes = 0;
    if (!in.Digits(2, &hours)) return kInvalidTimeT;
    // "+08:00", "+0800" and "+08" are all in use.
    if (in.Accept(':')) {
      if (!in.Digits(2, &minutes)) return kInvalidTimeT;
    } else if (!in.AtEnd() && !in.Digits(2, &minutes)) {
      return kInvalidTimeT;
    }
    if (hours > 23 || minutes > 59) return kInvalidTimeT;
    offsetSeconds = (hours * 3600 + minutes * 60) * (east ? 1 : -1);
  }
  if (!in.AtEnd()) return kInvalidTimeT;
  // Local time = UTC + offset.
  return ToTimeT(fields) - offsetSeconds;
}

bool TimeT2UTCDVRTime(int64_t seconds, NET_DEV_TIME* out) {
  kor::CivilTime broken;
  if (out == nullptr || !ToBrokenDownUtc(seconds, &broken)) return false;
  out->year = static_cast<uint32_t>(broken.year);
  out->month = static_cast<uint32_t>(broken.month);
  out->day = static_cast<uint32_t>(broken.day);
  out->hour = static_cast<uint32_t>(broken.hour);
  out->minute = static_cast<uint32_t>(broken.minute);
  out->second = static_cast<uint32_t>(broken.second);
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
  kor::CivilTime broken;
  if (!ToBrokenDownUtc(seconds, &broken)) return std::string();
  char text[80];  // wide enough for any int fields
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", static_cast<int>(broken.year), broken.month,
                broken.day, broken.hour, broken.minute, broken.second);
  return text;
}

}  // namespace Tarn::Base::TimeUtil
