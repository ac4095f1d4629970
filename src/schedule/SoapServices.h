// SoapServices.h - the pure half of the camera's action and event services:
// the SOAP request bodies (byte for byte as cameras have been sent them) and
// the walks over the answers. The device object's operations post and log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "session/axis_device_object_implement.h"

namespace schedule {

inline constexpr char kRecordingTemplate[] = "com.axis.action.unlimited.recording.storage";
inline constexpr char kScheduleIdMarker[] = "com.axis.schedules.genid.id";

std::string GetActionRulesBody();
std::string GetActionConfigurationsBody();
std::string GetScheduledEventsBody();
std::string RemoveActionRuleBody(int32_t ruleId);
std::string RemoveActionConfigurationBody(int32_t configurationId);
std::string RemoveScheduledEventBody(const std::string& eventId);
std::string AddScheduledEventBody(const std::string& name, const std::string& calendar);
std::string AddActionConfigurationBody(const std::string& name, int32_t preDuration, int32_t postDuration,
                                       const std::string& streamProfile);
std::string AddActionRuleBody(const std::string& name, int32_t primaryAction,
                              const std::vector<std::string>& scheduleEventIds);

// How a walk ended: `missing` names the element that was not there (the level
// of the path, or the field of one entry) when ok is false.
struct SoapWalk {
  bool ok = false;
  std::string missing;
  size_t skippedRules = 0;                  // rules lacking a field, left out
  std::vector<std::string> filteredTokens;  // templates of configurations left out
};

// Entries go into the maps in document order; an id already there stays.
SoapWalk ReadActionRules(const std::string& answer, std::map<int32_t, ActionRuleRecord>& rules);
SoapWalk ReadActionConfigurations(const std::string& answer, std::map<int32_t, ActionConfigRecord>& configurations);
SoapWalk ReadScheduledEvents(const std::string& answer, std::map<std::string, ScheduledEventRecord>& events);
SoapWalk ReadAddActionRule(const std::string& answer, int32_t& ruleId);
SoapWalk ReadAddActionConfiguration(const std::string& answer, int32_t& configurationId);
SoapWalk ReadAddScheduledEvent(const std::string& answer, std::string& eventId);

// The generated schedule id a condition's message content names; "" when none.
std::string ScheduleIdOfCondition(const std::string& messageContent);
// Sets `profile` from each "streamprofile=NAME" piece of a "stream_options"
// value, the last one winning; false when no piece names one.
bool StreamProfileOfOptions(const std::string& streamOptions, std::string& profile);

}  // namespace schedule
