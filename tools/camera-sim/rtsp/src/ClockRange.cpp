#include "ClockRange.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace camsim {
namespace {

// Days since 1970-01-01 of a proleptic Gregorian date (Howard Hinnant's algorithm).
int64_t DaysFromCivil(int64_t year, unsigned month, unsigned day) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const unsigned yearOfEra = static_cast<unsigned>(year - era * 400);
  const unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + static_cast<int64_t>(dayOfEra) - 719468;
}

void CivilFromDays(int64_t days, int* year, unsigned* month, unsigned* day) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const unsigned dayOfEra = static_cast<unsigned>(days - era * 146097);
  const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const unsigned mp = (5 * dayOfYear + 2) / 153;
  *day = dayOfYear - (153 * mp + 2) / 5 + 1;
  *month = mp < 10 ? mp + 3 : mp - 9;
  *year = static_cast<int>(static_cast<int64_t>(yearOfEra) + era * 400 + (*month <= 2));
}

bool ReadDigits(const std::string& text, size_t pos, size_t count, int* value) {
  if (pos + count > text.size()) return false;
  int result = 0;
  for (size_t i = pos; i < pos + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    result = result * 10 + (text[i] - '0');
  }
  *value = result;
  return true;
}

// Parses "YYYYMMDDTHHMMSS[.fraction]Z" exactly.
std::optional<double> ParseClockTime(const std::string& text) {
  int year, month, day, hour, minute, second;
  if (text.size() < 16 || text[8] != 'T' || !ReadDigits(text, 0, 4, &year) || !ReadDigits(text, 4, 2, &month) ||
      !ReadDigits(text, 6, 2, &day) || !ReadDigits(text, 9, 2, &hour) || !ReadDigits(text, 11, 2, &minute) ||
      !ReadDigits(text, 13, 2, &second)) {
    return std::nullopt;
  }
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) return std::nullopt;
  double fraction = 0;
  size_t pos = 15;
  if (text[pos] == '.') {
    double scale = 0.1;
    ++pos;
    size_t digits = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
      fraction += (text[pos] - '0') * scale;
      scale /= 10;
      ++pos;
      ++digits;
    }
    if (digits == 0) return std::nullopt;
  }
  if (pos + 1 != text.size() || text[pos] != 'Z') return std::nullopt;
  const int64_t days = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
  return static_cast<double>(days * 86400 + hour * 3600 + minute * 60 + second) + fraction;
}

}  // namespace

std::optional<ClockRange> ParseClockRange(const std::string& header) {
  static const std::string kPrefix = "clock=";
  if (header.compare(0, kPrefix.size(), kPrefix) != 0) return std::nullopt;
  std::string value = header.substr(kPrefix.size());
  // A ";time=" parameter may follow the range; it does not change what is played.
  value = value.substr(0, value.find(';'));
  const size_t dash = value.find('-');
  if (dash == std::string::npos) return std::nullopt;
  auto start = ParseClockTime(value.substr(0, dash));
  if (!start) return std::nullopt;
  ClockRange range;
  range.start = *start;
  const std::string stopText = value.substr(dash + 1);
  if (!stopText.empty()) {
    auto stop = ParseClockTime(stopText);
    if (!stop) return std::nullopt;
    range.stop = *stop;
  }
  return range;
}

std::string FormatClockTime(double utcSeconds) {
  const double whole = std::floor(utcSeconds);
  int millis = static_cast<int>(std::lround((utcSeconds - whole) * 1000));
  int64_t seconds = static_cast<int64_t>(whole);
  if (millis == 1000) {
    millis = 0;
    ++seconds;
  }
  int64_t days = seconds / 86400;
  int64_t secondOfDay = seconds % 86400;
  if (secondOfDay < 0) {
    secondOfDay += 86400;
    --days;
  }
  int year;
  unsigned month, day;
  CivilFromDays(days, &year, &month, &day);
  char text[40];
  const int hour = static_cast<int>(secondOfDay / 3600);
  const int minute = static_cast<int>(secondOfDay / 60 % 60);
  const int second = static_cast<int>(secondOfDay % 60);
  if (millis != 0) {
    std::snprintf(text, sizeof text, "%04d%02u%02uT%02d%02d%02d.%03dZ", year, month, day, hour, minute, second, millis);
  } else {
    std::snprintf(text, sizeof text, "%04d%02u%02uT%02d%02d%02dZ", year, month, day, hour, minute, second);
  }
  return text;
}

std::optional<ClipWindow> WindowWithinRecording(const ClockRange& range, int64_t recordingStart,
                                                int64_t recordingStop) {
  const double duration = static_cast<double>(recordingStop - recordingStart);
  if (duration <= 0) return std::nullopt;
  ClipWindow window;
  window.startOffset = std::max(0.0, range.start - static_cast<double>(recordingStart));
  window.stopOffset = range.stop ? std::min(duration, *range.stop - static_cast<double>(recordingStart)) : duration;
  if (window.startOffset >= duration || window.stopOffset <= window.startOffset) return std::nullopt;
  return window;
}

}  // namespace camsim
