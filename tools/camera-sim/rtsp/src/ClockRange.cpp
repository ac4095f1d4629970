#include "ClockRange.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "kor.h"

namespace camsim {
namespace {

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
  const kor::CivilTime civil{
      .year = year, .month = month, .day = day, .hour = hour, .minute = minute, .second = second};
  return static_cast<double>(kor::UnixSecondsFromCivil(civil)) + fraction;
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
  const kor::CivilTime t = kor::CivilFromUnixSeconds(seconds);
  char text[48];
  if (millis != 0) {
    std::snprintf(text, sizeof text, "%04lld%02d%02dT%02d%02d%02d.%03dZ", static_cast<long long>(t.year), t.month,
                  t.day, t.hour, t.minute, t.second, millis);
  } else {
    std::snprintf(text, sizeof text, "%04lld%02d%02dT%02d%02d%02dZ", static_cast<long long>(t.year), t.month, t.day,
                  t.hour, t.minute, t.second);
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
