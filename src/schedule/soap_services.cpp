// The camera's action service (rules, configurations) and event service
// (scheduled events): one SOAP POST per operation, the answer walked by the
// pure readers in SoapServices.cpp; here only the posting and the log lines.
#include <string>

#include "schedule/SoapServices.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

std::string ServicesUrl(const std::string& address) { return "http://" + address + "/vapix/services"; }

}  // namespace

bool CPlgDeviceObjectImplement::GetActionRules(std::map<int32_t, ActionRuleRecord>& rules) {
  const std::string url = ServicesUrl(GetDeviceAddress());
  std::string answer;
  if (!SendHttpPostReqWithRsp(answer, url, schedule::GetActionRulesBody(), User(), Password(), "")) {
    PLG_ERROR("[%s]GetActionRules failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
    return false;
  }
  const schedule::SoapWalk walk = schedule::ReadActionRules(answer, rules);
  for (size_t i = 0; i < walk.skippedRules; ++i) {
    PLG_TRACE("[%s]Response data is invalid(aa:ActionRules), url[%s], rsp-data[%s].[%s(%d)]", url.c_str(),
              answer.c_str());
  }
  if (!walk.ok) {
    // A condition without its content is reported under the list's name.
    const std::string name = walk.missing == "wsnt:MessageContent" ? "aa:ActionRules" : walk.missing;
    PLG_ERROR("[%s]Response data is invalid(%s), url[%s], rsp-data[%s].[%s(%d)]", name.c_str(), url.c_str(),
              answer.c_str());
    return false;
  }
  PLG_INFO("[%s]GetActionRules info success, url[%s], data[%s].[%s(%d)]", url.c_str(), answer.c_str());
  return true;
}

bool CPlgDeviceObjectImplement::GetActionConfigurations(std::map<int32_t, ActionConfigRecord>& configurations) {
  const std::string url = ServicesUrl(GetDeviceAddress());
  std::string answer;
  if (!SendHttpPostReqWithRsp(answer, url, schedule::GetActionConfigurationsBody(), User(), Password(), "")) {
    PLG_ERROR("[%s]GetActionConfigurations failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
    return false;
  }
  const schedule::SoapWalk walk = schedule::ReadActionConfigurations(answer, configurations);
  for (const std::string& token : walk.filteredTokens) {
    PLG_TRACE("[%s]ConfigurationID is filtered, template-token[%s].[%s(%d)]", token.c_str());
  }
  if (!walk.ok) {
    PLG_ERROR("[%s]Response data is invalid(%s), url[%s], rsp-data[%s].[%s(%d)]", walk.missing.c_str(), url.c_str(),
              answer.c_str());
    return false;
  }
  return true;
}

bool CPlgDeviceObjectImplement::GetScheduledEvents(std::map<std::string, ScheduledEventRecord>& events) {
  const std::string url = ServicesUrl(GetDeviceAddress());
  std::string answer;
  if (!SendHttpPostReqWithRsp(answer, url, schedule::GetScheduledEventsBody(), User(), Password(), "")) {
    PLG_ERROR("[%s]GetScheduledEvents failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
    return false;
  }
  const schedule::SoapWalk walk = schedule::ReadScheduledEvents(answer, events);
  if (!walk.ok) {
    PLG_ERROR("[%s]Response data is invalid(%s), url[%s], rsp-data[%s].[%s(%d)]", walk.missing.c_str(), url.c_str(),
              answer.c_str());
    return false;
  }
  PLG_INFO("[%s]GetScheduledEvents info success, url[%s], data[%s].[%s(%d)]", url.c_str(), answer.c_str());
  return true;
}

bool CPlgDeviceObjectImplement::RemoveActionRules(const std::vector<int32_t>& ruleIds) {
  if (ruleIds.empty()) {
    PLG_INFO("[%s]Input param invalid, action-rule-id-size[%lld].[%s(%d)]", static_cast<long long>(ruleIds.size()));
    return true;
  }
  const std::string url = ServicesUrl(GetDeviceAddress());
  for (int32_t id : ruleIds) {
    std::string answer;
    if (!SendHttpPostReqWithRsp(answer, url, schedule::RemoveActionRuleBody(id), User(), Password(), "")) {
      PLG_ERROR("[%s]RemoveActionRules failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
      return false;
    }
  }
  return true;
}

bool CPlgDeviceObjectImplement::RemoveActionConfigurations(const std::vector<int32_t>& configurationIds) {
  if (configurationIds.empty()) {
    PLG_INFO("[%s]Input param invalid, action-cfg-size[%lld].[%s(%d)]",
             static_cast<long long>(configurationIds.size()));
    return true;
  }
  const std::string url = ServicesUrl(GetDeviceAddress());
  for (int32_t id : configurationIds) {
    std::string answer;
    if (!SendHttpPostReqWithRsp(answer, url, schedule::RemoveActionConfigurationBody(id), User(), Password(), "")) {
      PLG_ERROR("[%s]RemoveActionConfigurations failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
      return false;
    }
  }
  return true;
}

bool CPlgDeviceObjectImplement::RemoveScheduledEvents(const std::vector<std::string>& eventIds) {
  if (eventIds.empty()) {
    PLG_INFO("[%s]Input param invalid, schedule-event-id-size[%lld].[%s(%d)]", static_cast<long long>(eventIds.size()));
    return true;
  }
  const std::string url = ServicesUrl(GetDeviceAddress());
  for (const std::string& id : eventIds) {
    std::string answer;
    if (!SendHttpPostReqWithRsp(answer, url, schedule::RemoveScheduledEventBody(id), User(), Password(), "")) {
      // The configurations' text, as the platform's log readers know it.
      PLG_ERROR("[%s]RemoveActionConfigurations failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
      return false;
    }
  }
  return true;
}

bool CPlgDeviceObjectImplement::AddActionRules(int32_t& ruleId, const std::string& name, int32_t primaryAction,
                                               const std::vector<std::string>& scheduleEventIds) {
  if (name.empty() || scheduleEventIds.empty()) {
    PLG_ERROR("[%s]Input param invalid, name[%s], schedule-event-id-size[%lld].[%s(%d)]", name.c_str(),
              static_cast<long long>(scheduleEventIds.size()));
    return false;
  }
  const std::string url = ServicesUrl(GetDeviceAddress());
  std::string answer;
  if (!SendHttpPostReqWithRsp(answer, url, schedule::AddActionRuleBody(name, primaryAction, scheduleEventIds), User(),
                              Password(), "")) {
    PLG_ERROR("[%s]AddActionRules failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
    return false;
  }
  const schedule::SoapWalk walk = schedule::ReadAddActionRule(answer, ruleId);
  if (!walk.ok) {
    PLG_ERROR("[%s]Response data is invalid(%s), url[%s], rsp-data[%s].[%s(%d)]", walk.missing.c_str(), url.c_str(),
              answer.c_str());
  }
  return walk.ok;
}

bool CPlgDeviceObjectImplement::AddActionConfigurations(int32_t& configurationId, const std::string& name,
                                                        int32_t preDuration, int32_t postDuration,
                                                        const std::string& streamProfile) {
  if (name.empty()) {
    PLG_ERROR("[%s]Input param invalid.[%s(%d)]");
    return false;
  }
  const std::string url = ServicesUrl(GetDeviceAddress());
  std::string answer;
  const std::string body = schedule::AddActionConfigurationBody(name, preDuration, postDuration, streamProfile);
  if (!SendHttpPostReqWithRsp(answer, url, body, User(), Password(), "")) {
    PLG_ERROR("[%s]AddActionConfigurations failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
    return false;
  }
  const schedule::SoapWalk walk = schedule::ReadAddActionConfiguration(answer, configurationId);
  if (walk.ok) return true;
  if (walk.missing == "SOAP-ENV:Envelope") {
    PLG_ERROR("[%s]Response data is invalid, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
  } else {
    PLG_ERROR("[%s]Response data is invalid(%s), url[%s], rsp-data[%s].[%s(%d)]", walk.missing.c_str(), url.c_str(),
              answer.c_str());
  }
  return false;
}

bool CPlgDeviceObjectImplement::AddScheduledEvent(std::string& eventId, const std::string& name,
                                                  const std::string& calendar) {
  if (name.empty() || calendar.empty()) {
    PLG_ERROR("[%s]Input param invliad, name[%s], calendar[%s].[%s(%d)]", name.c_str(), calendar.c_str());
    return false;
  }
  const std::string url = ServicesUrl(GetDeviceAddress());
  std::string answer;
  if (!SendHttpPostReqWithRsp(answer, url, schedule::AddScheduledEventBody(name, calendar), User(), Password(), "")) {
    PLG_ERROR("[%s]AddScheduledEvent failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), answer.c_str());
    return false;
  }
  const schedule::SoapWalk walk = schedule::ReadAddScheduledEvent(answer, eventId);
  if (!walk.ok) {
    PLG_ERROR("[%s]Response data is invalid(%s), url[%s], rsp-data[%s].[%s(%d)]", walk.missing.c_str(), url.c_str(),
              answer.c_str());
  }
  return walk.ok;
}
