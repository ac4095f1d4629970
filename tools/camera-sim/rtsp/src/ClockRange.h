// ClockRange.h - RTSP "Range: clock=" values and where they fall within a
// recording. Pure code.
//
// The stock server reads a clock range as seconds since 1900; the cameras read
// it as absolute UTC and play that part of the recording, so the simulator
// turns it into an offset range within the recording's clip.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace camsim {

// UTC seconds since 1970; a stop is absent for an open range ("clock=T-").
struct ClockRange {
  double start = 0;
  std::optional<double> stop;
};

// Parses "clock=20240621T151800Z-20240621T151810Z" (fractions such as
// "151800.25Z" allowed; the stop may be left out). Nothing for anything else.
std::optional<ClockRange> ParseClockRange(const std::string& header);

// "20240621T151800Z", with ".mmm" before the Z when the time has a fraction.
std::string FormatClockTime(double utcSeconds);

// The part of a recording spanning [recordingStart, recordingStop] (UTC
// seconds) that `range` asks for, as offsets from the recording's start.
struct ClipWindow {
  double startOffset = 0;
  double stopOffset = 0;
};

// Clamps the range to the recording. Nothing when the range ends before the
// recording starts, starts at or after its end, or is reversed.
std::optional<ClipWindow> WindowWithinRecording(const ClockRange& range, int64_t recordingStart, int64_t recordingStop);

}  // namespace camsim
