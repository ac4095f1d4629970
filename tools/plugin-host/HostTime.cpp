#include "HostTime.h"

#include <cstdio>

#include "kor.h"

bool ParseIsoUtc(const std::string& text, int64_t* seconds) {
  kor::CivilTime fields;
  int year = 0;
  int consumed = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &year, &fields.month, &fields.day, &fields.hour,
                  &fields.minute, &fields.second, &consumed) != 6) {
    return false;
  }
  std::string rest = text.substr(static_cast<size_t>(consumed));
  if (!rest.empty() && rest[0] == '.') rest.erase(0, rest.find_first_not_of("0123456789", 1));
  if (rest != "" && rest != "Z") return false;
  if (fields.month < 1 || fields.month > 12 || fields.day < 1 || fields.day > 31 || fields.hour > 23 ||
      fields.minute > 59 || fields.second > 60) {
    return false;
  }
  fields.year = year;
  *seconds = kor::UnixSecondsFromCivil(fields);
  return true;
}

std::string FormatUtc(int64_t seconds) {
  const kor::CivilTime fields = kor::CivilFromUnixSeconds(seconds);
  char text[48];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", static_cast<int>(fields.year), fields.month,
                fields.day, fields.hour, fields.minute, fields.second);
  return text;
}

std::string FormatDuration(int64_t seconds) {
  if (seconds < 0) seconds = 0;
  char text[32];
  if (seconds >= 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                  static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(seconds / 60),
                  static_cast<long long>(seconds % 60));
  }
  return text;
}

PluginTime ToPluginTime(int64_t seconds) {
  const kor::CivilTime fields = kor::CivilFromUnixSeconds(seconds);
  PluginTime time{};
  time.year = static_cast<int32_t>(fields.year);
  time.month = fields.month;
  time.day = fields.day;
  time.hour = fields.hour;
  time.minute = fields.minute;
  time.second = fields.second;
  return time;
}

int64_t FromPluginTime(const PluginTime& time) {
  const kor::CivilTime fields{time.year, time.month, time.day, time.hour, time.minute, time.second};
  return kor::UnixSecondsFromCivil(fields);
}

PluginZonedTime ToZonedTime(int64_t seconds) {
  const PluginTime time = ToPluginTime(seconds);
  PluginZonedTime zoned{};
  zoned.year = time.year;
  zoned.month = time.month;
  zoned.day = time.day;
  zoned.hour = time.hour;
  zoned.minute = time.minute;
  zoned.second = time.second;
  return zoned;
}
