// TimeText.h - the time texts the cameras use (UTC with microseconds and Z,
// local time with a numeric offset), without the C library's time zones.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace camsim {

struct CivilTime {
  int year = 1970, month = 1, day = 1, hour = 0, minute = 0, second = 0;
};

CivilTime CivilFromUnix(int64_t seconds);
// Seconds since 1970 for a civil time in UTC; nullopt when a field is out of range.
std::optional<int64_t> UnixFromCivil(const CivilTime& time);

// "2024-06-21T15:17:25.958365Z"
std::string FormatUtc(int64_t seconds, int micros);
// "2024-06-21T17:17:25.958365+02:00"
std::string FormatLocal(int64_t seconds, int micros, int offsetMinutes);
// ISO 8601 as clients send it: date "T" time, optional fraction, "Z" or "+hh:mm"/"-hh:mm" (none: UTC).
std::optional<int64_t> ParseIsoTime(std::string_view text);

}  // namespace camsim
