#include "HostTime.h"

#include <cstdio>
#include <ctime>

namespace {

std::tm Fields(int64_t seconds) {
  const std::time_t t = static_cast<std::time_t>(seconds);
  std::tm fields{};
  gmtime_r(&t, &fields);
  return fields;
}

}  // namespace

bool ParseIsoUtc(const std::string& text, int64_t* seconds) {
  std::tm fields{};
  int consumed = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &fields.tm_year, &fields.tm_mon, &fields.tm_mday,
                  &fields.tm_hour, &fields.tm_min, &fields.tm_sec, &consumed) != 6) {
    return false;
  }
  std::string rest = text.substr(static_cast<size_t>(consumed));
  if (!rest.empty() && rest[0] == '.') rest.erase(0, rest.find_first_not_of("0123456789", 1));
  if (rest != "" && rest != "Z") return false;
  if (fields.tm_mon < 1 || fields.tm_mon > 12 || fields.tm_mday < 1 || fields.tm_mday > 31 || fields.tm_hour > 23 ||
      fields.tm_min > 59 || fields.tm_sec > 60) {
    return false;
  }
  fields.tm_year -= 1900;
  fields.tm_mon -= 1;
  *seconds = static_cast<int64_t>(timegm(&fields));
  return true;
}

std::string FormatUtc(int64_t seconds) {
  const std::tm fields = Fields(seconds);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
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
  const std::tm fields = Fields(seconds);
  PluginTime time{};
  time.year = fields.tm_year + 1900;
  time.month = fields.tm_mon + 1;
  time.day = fields.tm_mday;
  time.hour = fields.tm_hour;
  time.minute = fields.tm_min;
  time.second = fields.tm_sec;
  return time;
}

int64_t FromPluginTime(const PluginTime& time) {
  std::tm fields{};
  fields.tm_year = time.year - 1900;
  fields.tm_mon = time.month - 1;
  fields.tm_mday = time.day;
  fields.tm_hour = time.hour;
  fields.tm_min = time.minute;
  fields.tm_sec = time.second;
  return static_cast<int64_t>(timegm(&fields));
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
