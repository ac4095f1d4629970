#include "TimeText.h"

#include <cstdio>
#include <cstdlib>

namespace camsim {

int64_t DaysFromCivil(int year, int month, int day) {
  // Howard Hinnant's days_from_civil.
  const int64_t y = static_cast<int64_t>(year) - (month <= 2 ? 1 : 0);
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

CivilTime CivilFromUnix(int64_t seconds) {
  int64_t days = seconds / 86400;
  int64_t rest = seconds % 86400;
  if (rest < 0) {
    rest += 86400;
    --days;
  }
  const int64_t z = days + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  CivilTime t;
  t.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  t.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  t.year = static_cast<int>(yoe + era * 400 + (t.month <= 2 ? 1 : 0));
  t.hour = static_cast<int>(rest / 3600);
  t.minute = static_cast<int>(rest % 3600 / 60);
  t.second = static_cast<int>(rest % 60);
  return t;
}

std::optional<int64_t> UnixFromCivil(const CivilTime& t) {
  static const int kDaysInMonth[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (t.year < 1970 || t.year > 9999 || t.month < 1 || t.month > 12 || t.day < 1 || t.day > kDaysInMonth[t.month - 1] ||
      t.hour < 0 || t.hour > 23 || t.minute < 0 || t.minute > 59 || t.second < 0 || t.second > 59) {
    return std::nullopt;
  }
  const bool leap = (t.year % 4 == 0 && t.year % 100 != 0) || t.year % 400 == 0;
  if (t.month == 2 && t.day == 29 && !leap) return std::nullopt;
  return DaysFromCivil(t.year, t.month, t.day) * 86400 + t.hour * 3600 + t.minute * 60 + t.second;
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
