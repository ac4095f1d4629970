#include "FuzzEntries.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "schedule/ScheduleCalendar.h"
#include "schedule/SoapServices.h"

namespace schedule_fuzz {

namespace {

std::string Text(const uint8_t* data, size_t size) { return std::string(reinterpret_cast<const char*>(data), size); }

void Check(bool condition) {
  if (!condition) std::abort();
}

// Whatever a calendar decodes to, folding it into marks stays inside the grid.
void FoldIntoMarks(const WeeklySchedule& schedule) {
  for (const auto& entry : schedule) Check(entry.first >= 0 && entry.first < 7);
  std::vector<std::vector<bool>> marks(7, std::vector<bool>(48, false));
  schedule::MarkSchedule(schedule, marks);
  for (const auto& day : marks) Check(day.size() == 48);
}

}  // namespace

int FuzzActionRules(const uint8_t* data, size_t size) {
  std::map<int32_t, ActionRuleRecord> rules;
  const schedule::SoapWalk walk = schedule::ReadActionRules(Text(data, size), rules);
  Check(walk.ok || !walk.missing.empty());
  for (const auto& [id, rule] : rules) {
    Check(id == rule.ruleId);
    for (const std::string& event : rule.scheduleEventIds) Check(event.rfind(schedule::kScheduleIdMarker, 0) == 0);
  }
  return 0;
}

int FuzzActionConfigurations(const uint8_t* data, size_t size) {
  std::map<int32_t, ActionConfigRecord> configurations;
  const schedule::SoapWalk walk = schedule::ReadActionConfigurations(Text(data, size), configurations);
  Check(walk.ok || !walk.missing.empty());
  for (const auto& [id, configuration] : configurations) Check(id == configuration.configurationId);
  return 0;
}

int FuzzScheduledEvents(const uint8_t* data, size_t size) {
  std::map<std::string, ScheduledEventRecord> events;
  const schedule::SoapWalk walk = schedule::ReadScheduledEvents(Text(data, size), events);
  Check(walk.ok || !walk.missing.empty());
  for (const auto& [id, event] : events) FoldIntoMarks(event.schedule);
  return 0;
}

int FuzzCalendar(const uint8_t* data, size_t size) {
  WeeklySchedule schedule;
  schedule::ReadCalendar(Text(data, size), schedule);
  FoldIntoMarks(schedule);
  // What the builder writes, the reader reads back the same.
  WeeklySchedule again;
  for (const std::string& calendar : schedule::BuildCalendars(schedule)) schedule::ReadCalendar(calendar, again);
  return 0;
}

}  // namespace schedule_fuzz
