// The platform's weekly record plan mapped onto the camera's scheduled
// events, recording action configurations and action rules, and back. The
// plug-in's own objects carry a name prefix; everything else on the camera is
// left as other tools made it.
#include <algorithm>
#include <cstring>
#include <set>
#include <string>

#include "schedule/ScheduleCalendar.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

constexpr char kNamePrefix[] = "platform_custom_name_";

}  // namespace

int32_t CPlgDeviceObjectImplement::SetRecordConfig(void* pstDevice, const RecordConfigInfo* pstRecConfigInfo) {
  if (pstDevice == nullptr || pstRecConfigInfo == nullptr) {
    PLG_ERROR("[%s]QelPlugin: GetRecordConfig Fail, pstDevice == NULL || pstRecConfigInfo == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  WeeklySchedule plan;
  const schedule::PlanScan scan = schedule::ScanRecordPlan(*pstRecConfigInfo, plan);
  if (!scan.ok) {
    if (scan.allDay) {
      PLG_ERROR("[%s]The video type is not supported, type[%d].[%s(%d)]", scan.type);
    } else {
      PLG_ERROR("[%s]The video type is not supported, type[%d], day[%d], nTimeSeg[%d].[%s(%d)]", scan.type, scan.day,
                scan.slot);
    }
    PLG_ERROR("[%s]The video type is not supported.[%s(%d)]");
    return NETCAM_NOT_SUPPORTED;
  }
  const std::vector<std::string> calendars = schedule::BuildCalendars(plan);
  kor::CGuard guard(m_scheduleLock);
  if (!RemoveRecordSetting()) {
    PLG_ERROR("[%s]RemoveRecordSetting failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  const int32_t preDuration = schedule::PreCodeToMilliseconds(pstRecConfigInfo->preRecordCode);
  if (!SetRecordSettingHelper(calendars, preDuration, static_cast<int32_t>(pstRecConfigInfo->postRecordTime))) {
    PLG_ERROR("[%s]SetRecordSettingHelper failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::SetRecordSettingHelper(const std::vector<std::string>& calendars, int32_t preDuration,
                                                       int32_t postDuration) {
  if (calendars.empty()) {
    PLG_WARN("[%s]Calendar empty.[%s(%d)]");
    return true;
  }
  int counter = 0;
  auto nextName = [&counter] { return kNamePrefix + std::to_string(++counter); };
  std::vector<std::string> eventIds;
  for (const std::string& calendar : calendars) {
    const std::string name = nextName();
    std::string eventId;
    if (!AddScheduledEvent(eventId, name, calendar)) {
      PLG_ERROR("[%s]AddScheduledEvent failed, name[%s], calendar[%s].[%s(%d)]", name.c_str(), calendar.c_str());
      return false;
    }
    PLG_INFO("[%s]AddScheduledEvent success, name[%s], schedule-event-id[%s], calendar[%s].[%s(%d)]", name.c_str(),
             eventId.c_str(), calendar.c_str());
    eventIds.push_back(eventId);
  }
  std::string profile;
  {
    kor::CGuard guard(m_streamLock);
    profile = m_strRecordProfileName;
  }
  PLG_INFO("[%s]GetH265StreamProfileName  %s[%s(%d)]", profile.c_str());
  for (const std::string& eventId : eventIds) {
    std::string name = nextName();
    int32_t configurationId = 0;
    if (!AddActionConfigurations(configurationId, name, preDuration, postDuration, profile)) {
      PLG_ERROR("[%s]AddActionConfigurations failed, name[%s], pre-duration[%d], post-duration[%d].[%s(%d)]",
                name.c_str(), preDuration, postDuration);
      return false;
    }
    PLG_INFO(
        "[%s]AddActionConfigurations success, name[%s], action-cfg-id[%d], pre-duration[%d], "
        "post-duration[%d].[%s(%d)]",
        name.c_str(), configurationId, preDuration, postDuration);
    name = nextName();
    int32_t ruleId = 0;
    if (!AddActionRules(ruleId, name, configurationId, {eventId})) {
      PLG_ERROR("[%s]AddActionRules failed, name[%s], action-cfg-id[%d], schedule-event-id[%s].[%s(%d)]", name.c_str(),
                configurationId, eventId.c_str());
      return false;
    }
    PLG_INFO("[%s]AddActionRules success, name[%s], action-rule-id[%d], action-id[%d], schedule-event-id[%s].[%s(%d)]",
             name.c_str(), ruleId, configurationId, eventId.c_str());
  }
  return true;
}

bool CPlgDeviceObjectImplement::RemoveRecordSetting() {
  std::map<int32_t, ActionRuleRecord> rules;
  std::map<int32_t, ActionConfigRecord> configurations;
  std::map<std::string, ScheduledEventRecord> events;
  if (!GetActionRules(rules)) {
    PLG_ERROR("[%s]GetActionRules failed.[%s(%d)]");
    return false;
  }
  if (!GetActionConfigurations(configurations)) {
    PLG_ERROR("[%s]GetActionConfigurations failed.[%s(%d)]");
    return false;
  }
  if (!GetScheduledEvents(events)) {
    PLG_ERROR("[%s]GetScheduledEvents failed.[%s(%d)]");
    return false;
  }
  std::vector<int32_t> ruleIds, configurationIds;
  std::vector<std::string> eventIds;
  for (const auto& [id, rule] : rules) {
    if (!rule.enabled || rule.name.find(kNamePrefix) == std::string::npos ||
        configurations.count(rule.primaryAction) == 0) {
      continue;
    }
    ruleIds.push_back(id);
    // Two rules never share a configuration the plug-in made; guard anyway, a
    // second removal of one id would fail the whole write.
    if (std::find(configurationIds.begin(), configurationIds.end(), rule.primaryAction) == configurationIds.end()) {
      configurationIds.push_back(rule.primaryAction);
    }
    for (const std::string& eventId : rule.scheduleEventIds) {
      if (events.count(eventId) != 0 && std::find(eventIds.begin(), eventIds.end(), eventId) == eventIds.end()) {
        eventIds.push_back(eventId);
      }
    }
  }
  if (!RemoveActionRules(ruleIds)) {
    PLG_ERROR("[%s]RemoveActionRules failed.[%s(%d)]");
    return false;
  }
  if (!RemoveActionConfigurations(configurationIds)) {
    PLG_ERROR("[%s]RemoveActionConfigurations failed.[%s(%d)]");
    return false;
  }
  if (!RemoveScheduledEvents(eventIds)) {
    PLG_ERROR("[%s]RemoveScheduledEvents failed.[%s(%d)]");
    return false;
  }
  return true;
}

int32_t CPlgDeviceObjectImplement::GetRecordConfig(void* pstDevice, RecordConfigInfo* pstRecConfigInfo) {
  if (pstDevice == nullptr || pstRecConfigInfo == nullptr) {
    PLG_ERROR("[%s]QelPlugin: GetRecordConfig Fail, pstDevice == NULL || pstRecConfigInfo == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  std::vector<std::vector<bool>> marks;
  int32_t preDuration = 0, postDuration = 0;
  if (!GetRecordSetting(marks, preDuration, postDuration)) {
    PLG_ERROR("[%s]GetRecordSetting failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  RecordConfigInfo& info = *pstRecConfigInfo;
  info.enabled = 0;
  info.preRecordCode = schedule::MillisecondsToPreCode(preDuration);
  info.postRecordTime = static_cast<uint32_t>(postDuration);
  for (size_t day = 0; day < 7; ++day) {
    std::memset(info.halfHours[day], '0', sizeof info.halfHours[day]);
    info.days[day].allDay = 0;
    for (size_t slot = 0; slot < 48; ++slot) {
      if (!marks[day][slot]) continue;
      info.halfHours[day][slot] = '1';
      info.enabled = 1;
    }
  }
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::GetRecordSetting(std::vector<std::vector<bool>>& marks, int32_t& preDuration,
                                                 int32_t& postDuration) {
  marks.assign(7, std::vector<bool>(48, false));
  std::map<int32_t, ActionRuleRecord> rules;
  std::map<int32_t, ActionConfigRecord> configurations;
  std::map<std::string, ScheduledEventRecord> events;
  if (!GetActionRules(rules)) {
    PLG_ERROR("[%s]GetActionRules failed.[%s(%d)]");
    return false;
  }
  if (!GetActionConfigurations(configurations)) {
    PLG_ERROR("[%s]GetActionConfigurations failed.[%s(%d)]");
    return false;
  }
  if (!GetScheduledEvents(events)) {
    PLG_ERROR("[%s]GetScheduledEvents failed.[%s(%d)]");
    return false;
  }
  // Any enabled recording rule counts, whoever made it: the plan is what the camera does.
  for (const auto& [id, rule] : rules) {
    auto configuration = configurations.find(rule.primaryAction);
    if (!rule.enabled || configuration == configurations.end()) continue;
    preDuration = configuration->second.preDuration;
    postDuration = configuration->second.postDuration;
    for (const std::string& eventId : rule.scheduleEventIds) {
      auto event = events.find(eventId);
      if (event != events.end()) schedule::MarkSchedule(event->second.schedule, marks);
    }
  }
  return true;
}
