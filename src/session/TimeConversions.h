// TimeConversions.h - the conversions between the platform's broken-down time
// records, the camera's ISO 8601 texts and seconds since 1970. Stateless; each
// failure is logged under the routine's own name.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "TimeUtil.h"
#include "netcam_plugin.h"
#include "session/PluginLog.h"

namespace {

// "19700105T083000" -> day 5, hour 8, minute 30. Schedules encode the weekday
// as a day of a fixed week, so year, month and second are dropped on purpose.
inline bool ParseTime(const std::string& text, int& day, int& hour, int& minute) {
  int fields[9] = {};
  int scanned = std::sscanf(text.c_str(), "%04d%02d%02dT%02d%02d%02d", &fields[0], &fields[1], &fields[2], &fields[3],
                            &fields[4], &fields[5]);
  if (scanned < 0) {
    PLG_ERROR("[%s]ParseTime failed, time[%s][%s(%d)]", text.c_str());
    return false;
  }
  day = fields[2];
  hour = fields[3];
  minute = fields[4];
  return true;
}

// "%4d-%02d-%02d %02d:%02d:%02d" of a stream time; "" without one.
inline std::string QLSystemTimeToString(const PluginGlobalTime* time) {
  if (time == nullptr) {
    PLG_ERROR("[%s]pGlobalTime is null.[%s(%d)]");
    return std::string();
  }
  char text[64] = {};
  std::snprintf(text, sizeof text, "%4d-%02d-%02d %02d:%02d:%02d", time->year, time->month, time->day, time->hour,
                time->minute, time->second);
  return text;
}

// The fields are written as they stand: the caller passes UTC fields.
inline std::string PluginTimeToUTCStringNoCheck(const PluginTime* time) {
  char text[80] = {};
  std::snprintf(text, sizeof text, "%4d-%02d-%02dT%02d:%02d:%02d.000Z", time->year, time->month, time->day, time->hour,
                time->minute, time->second);
  return text;
}

inline std::string PluginTimeToUTCString(const PluginTime* time) {
  return time == nullptr ? std::string() : PluginTimeToUTCStringNoCheck(time);
}

// "2024-03-05T08:09:10.123456Z" -> 2024, 3, 5, 8, 9, 10; whatever follows the
// seconds is ignored. Text that does not scan leaves the record all zero.
inline void ConvertTimeToPluginTime(const std::string& text, PluginTime* out) {
  std::memset(out, 0, sizeof *out);
  int scanned = std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%d", &out->year, &out->month, &out->day, &out->hour,
                            &out->minute, &out->second);
  if (scanned < 0) PLG_ERROR("[%s]ConvertTimeToPluginTime failed, time[%s][%s(%d)]", text.c_str());
}

// Camera time text to a stream time record; kept for callers that hold the
// camera's texts as stream times.
inline bool CovertQLSystemTime(const std::string& text, PluginGlobalTime* out) {
  std::memset(out, 0, sizeof *out);
  int scanned = std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%d", &out->year, &out->month, &out->day, &out->hour,
                            &out->minute, &out->second);
  if (scanned != 6) {
    PLG_ERROR("[%s]CovertQLSystemTime failed, time[%s][%s(%d)]", text.c_str());
    return false;
  }
  return true;
}

}  // namespace

// A zoned local time to UTC: the offset is applied through an ISO 8601 text,
// whose sign is '-' when either offset field is negative. Every time that text
// can name is converted, those before 1970 too. A record that names no valid
// time (month 13, 25 o'clock, a 24-hour offset) is refused with a log line and
// false, the destination left untouched, so that no caller goes on with year 0.
inline bool ConvertUTCTime(PluginTime* utc, const PluginZonedTime* zoned) {
  if (utc == nullptr || zoned == nullptr) {
    PLG_ERROR("[%s]Input param invalid.[%s(%d)]");
    return false;
  }
  const char* sign = (zoned->zoneHours < 0 || zoned->zoneMinutes < 0) ? "-" : "+";
  char text[160] = {};
  std::snprintf(text, sizeof text, "%d-%02d-%02dT%02d:%02d:%02d%s%02lld:%02lld", zoned->year, zoned->month, zoned->day,
                zoned->hour, zoned->minute, zoned->second, sign, std::llabs(static_cast<long long>(zoned->zoneHours)),
                std::llabs(static_cast<long long>(zoned->zoneMinutes)));
  NET_DEV_TIME converted{};
  const int64_t seconds = Tarn::Base::TimeUtil::ISODatetime2TimeT(text);
  if (seconds == Tarn::Base::TimeUtil::kInvalidTimeT || !Tarn::Base::TimeUtil::TimeT2UTCDVRTime(seconds, &converted)) {
    PLG_ERROR("[%s]ConvertUTCTime failed, time[%s][%s(%d)]", text);
    return false;
  }
  utc->year = static_cast<int32_t>(converted.year);
  utc->month = static_cast<int32_t>(converted.month);
  utc->day = static_cast<int32_t>(converted.day);
  utc->hour = static_cast<int32_t>(converted.hour);
  utc->minute = static_cast<int32_t>(converted.minute);
  utc->second = static_cast<int32_t>(converted.second);
  return true;
}

// The six leading fields, zone ignored.
inline void ConvertTime(PluginGlobalTime* out, const PluginZonedTime* zoned) {
  if (out == nullptr || zoned == nullptr) {
    PLG_ERROR("[%s]Input param invalid.[%s(%d)]");
    return;
  }
  out->year = zoned->year;
  out->month = zoned->month;
  out->day = zoned->day;
  out->hour = zoned->hour;
  out->minute = zoned->minute;
  out->second = zoned->second;
}
