// StreamClock.h - calendar arithmetic for the stream-time reports: a civil
// start time plus elapsed milliseconds (through the runtime's calendar so month and
// year ends and leap days come out right), and the local wall clock.
#pragma once

#include <cstdint>

#include "MuxConvert.h"

namespace muxc {

// Year 1..9999, month 1..12, a day that exists in that month, 0..23, 0..59, 0..60, 0..999.
bool IsValidCivilTime(const MUXC_GlobalTime& time);

// `base` plus `elapsedMs` (may be negative); dwReserved is copied. False if out of range.
bool AddMilliseconds(const MUXC_GlobalTime& base, int64_t elapsedMs, MUXC_GlobalTime* out);

// Local time of `unixMs` (milliseconds since 1970, UTC) with `reserved` as dwReserved.
MUXC_GlobalTime LocalTimeOf(int64_t unixMs, int32_t reserved);

int64_t WallClockMs();

}  // namespace muxc
