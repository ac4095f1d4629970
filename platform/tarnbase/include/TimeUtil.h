// TimeUtil.h - TarnBase time utilities: conversions between ISO 8601 texts,
// seconds since 1970 and broken-down UTC times. All are pure and thread-safe.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "netcam_plugin.h"  // NET_DEV_TIME

namespace Tarn::Base::TimeUtil {

// What ISODatetime2TimeT answers for a text it cannot read. Every real time
// differs from it, those before 1970 (negative counts, -1 among them) too.
constexpr int64_t kInvalidTimeT = std::numeric_limits<int64_t>::min();

// "2024-03-05T08:00:00+08:00", "...Z", "...-03:30", with or without a
// fraction of seconds; a text without a zone is read as UTC.
// Returns seconds since 1970 UTC (negative before it), or kInvalidTimeT when
// the text is not a valid date and time.
int64_t ISODatetime2TimeT(const std::string& text);

// Seconds since 1970 to a broken-down UTC time (year four digits, month 1-12).
// False (and `out` untouched) for a NULL record or a time outside the years 0 to 9999.
bool TimeT2UTCDVRTime(int64_t seconds, NET_DEV_TIME* out);

// A camera UTC text whose date and time are separated by a blank or "T":
// "2024-03-05 08:00:00.000Z", "2024-03-05 08:00:00". Fraction and "Z" are
// ignored. Returns seconds since 1970 UTC, or -1 when it does not parse.
int64_t StrUTCTimeStamp2TimeT(const std::string& text);

// Seconds since 1970 to "YYYY-MM-DDTHH:MM:SSZ" (UTC); "" when out of range.
std::string TimeT2StrUTCDatetime(int64_t seconds);

}  // namespace Tarn::Base::TimeUtil
