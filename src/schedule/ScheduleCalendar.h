// ScheduleCalendar.h - the weekly record plan in its three forms: the
// platform's half-hour marks, day segments, and the one-weekday iCalendar
// texts the camera's scheduled events carry. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "session/axis_device_object_implement.h"

namespace schedule {

// Day index 0..6 -> "SU".."SA".
extern const char* const kDayTokens[7];

// One calendar per segment, in day order.
std::vector<std::string> BuildCalendars(const WeeklySchedule& schedule);
// Adds the segments of one DTSTART/DTEND/RRULE calendar; a text that does not
// hold the three adds nothing.
void ReadCalendar(const std::string& calendar, WeeklySchedule& schedule);

// The platform's plan as segments. On a type other than '0'/'1' (or an all-day
// type other than '1') scanning stops: ok is false and the fields say where.
struct PlanScan {
  bool ok = true;
  bool allDay = false;
  int type = 0;
  int day = 0;
  int slot = 0;
};
PlanScan ScanRecordPlan(const RecordConfigInfo& plan, WeeklySchedule& schedule);
// Marks the half hours a schedule covers (7 x 48).
void MarkSchedule(const WeeklySchedule& schedule, std::vector<std::vector<bool>>& marks);

int32_t PreCodeToMilliseconds(uint32_t code);
uint32_t MillisecondsToPreCode(int32_t milliseconds);

}  // namespace schedule
