#include "TimeText.h"

#include <cstdio>
#include <cstdlib>

#include "kor.h"

namespace camsim {

CivilTime CivilFromUnix(int64_t seconds) {
  const kor::CivilTime civil = kor::CivilFromUnixSeconds(seconds);
  return CivilTime{static_cast<int>(civil.year), civil.month, civil.day, civil.hour, civil.minute, civil.second};
}

std::optional<int64_t> UnixFromCivil(const CivilTime& t) {
  static const int kDaysInMonth[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (t.year < 1970 || t.year > 9999 || t.month < 1 || t.month > 12 || t.day < 1 || t.day > kDaysInMonth[t.month - 1] ||
      t.hour < 0 || t.hour > 23 || t.minute < 0 || t.minute > 59 || t.second < 0 || t.second > 59) {
    return std::nullopt;
  }
  const bool leap = (t.year % 4 == 0 && t.year % 100 != 0) || t.year % 400 == 0;
  if (t.month == 2 && t.day == 29 && !leap) return std::nullopt;
  return kor::UnixSecondsFromCivil(
      {.year = t.year, .month = t.month, .day = t.day, .hour = t.hour, .minute = t.minute, .second = t.second});
}

namespace {

std::string FormatCivil(const CivilTime& t, int micros) {
  char text[96];
  std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%06d", t.year, t.month, t.day, t.hour, t.minute,
                t.second, micros);
  return text;
}

bool ReadDigits(std::string_view text, size_t& pos, size_t count, int& value) {
  if (pos + count > text.size()) return false;
  value = 0;
  for (size_t i = 0; i < count; ++i) {
    char c = text[pos + i];
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  pos += count;
  return true;
}

bool Expect(std::string_view text, size_t& pos, char c) {
  if (pos >= text.size() || text[pos] != c) return false;
  ++pos;
  return true;
}

}  // namespace

std::string FormatUtc(int64_t seconds, int micros) { return FormatCivil(CivilFromUnix(seconds), micros) + "Z"; }

std::string FormatLocal(int64_t seconds, int micros, int offsetMinutes) {
  char offset[24];
  const int magnitude = std::abs(offsetMinutes);
  std::snprintf(offset, sizeof(offset), "%c%02d:%02d", offsetMinutes < 0 ? '-' : '+', magnitude / 60, magnitude % 60);
  return FormatCivil(CivilFromUnix(seconds + offsetMinutes * 60), micros) + offset;
}

std::optional<int64_t> ParseIsoTime(std::string_view text) {
  CivilTime t;
  size_t pos = 0;
  if (!ReadDigits(text, pos, 4, t.year) || !Expect(text, pos, '-') || !ReadDigits(text, pos, 2, t.month) ||
      !Expect(text, pos, '-') || !ReadDigits(text, pos, 2, t.day) || !Expect(text, pos, 'T') ||
      !ReadDigits(text, pos, 2, t.hour) || !Expect(text, pos, ':') || !ReadDigits(text, pos, 2, t.minute) ||
      !Expect(text, pos, ':') || !ReadDigits(text, pos, 2, t.second)) {
    return std::nullopt;
  }
  if (pos < text.size() && text[pos] == '.') {
    ++pos;
    size_t digits = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') ++pos, ++digits;
    if (digits == 0) return std::nullopt;
  }
  int offsetMinutes = 0;
  if (pos < text.size()) {
    if (text[pos] == 'Z' && pos + 1 == text.size()) {
      ++pos;
    } else if (text[pos] == '+' || text[pos] == '-') {
      const int sign = text[pos] == '-' ? -1 : 1;
      ++pos;
      int hours = 0, minutes = 0;
      if (!ReadDigits(text, pos, 2, hours) || !Expect(text, pos, ':') || !ReadDigits(text, pos, 2, minutes) ||
          hours > 23 || minutes > 59) {
        return std::nullopt;
      }
      offsetMinutes = sign * (hours * 60 + minutes);
    }
  }
  if (pos != text.size()) return std::nullopt;
  auto seconds = UnixFromCivil(t);
  if (!seconds) return std::nullopt;
  return *seconds - offsetMinutes * 60;
}

}  // namespace camsim
