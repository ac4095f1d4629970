#include "schedule/SoapServices.h"

#include <climits>
#include <cstdlib>

#include "XmlMarkup.h"
#include "schedule/ScheduleCalendar.h"

namespace schedule {

namespace {

constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
constexpr char kEnvelopeOpen[] = "<Envelope xmlns=\"http://www.w3.org/2003/05/soap-envelope\">\n <Header/>\n";
constexpr char kBodyClose[] = " </Body>\n</Envelope>";
constexpr char kActionNs[] = "http://www.axis.com/vapix/ws/action1";
constexpr char kEventNs[] = "http://www.axis.com/vapix/ws/event1";

std::string Envelope(const std::string& operation) {
  return std::string(kDeclaration) + kEnvelopeOpen + " <Body >\n" + operation + kBodyClose;
}

std::string EmptyOperation(const char* name, const char* ns, const char* indent) {
  return std::string(indent) + "<" + name + " xmlns=\"" + ns + "\"/>\n";
}

std::string IdOperation(const char* name, const char* ns, const char* idName, const std::string& id) {
  return std::string("  <") + name + " xmlns=\"" + ns + "\">\n   <" + idName + ">" + id + "</" + idName + ">\n  </" +
         name + ">\n";
}

// Camera ids are decimal; anything past the digits is ignored and an
// out-of-range value is clamped rather than wrapped.
int32_t Decimal(const std::string& text) {
  const long long value = std::strtoll(text.c_str(), nullptr, 10);
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

// Fields of one entry may come in any order: from here on, else from the start.
bool FindField(CXmlMarkup& xml, const char* name) { return xml.FindElem(name) || xml.FindElem(name, true); }

// Walks the levels of `path` into the document; false with the missing name.
bool Descend(CXmlMarkup& xml, std::initializer_list<const char*> path, SoapWalk& walk) {
  for (const char* name : path) {
    if (!xml.FindElem(name)) {
      walk.missing = name;
      return false;
    }
    xml.IntoElem();
  }
  return true;
}

SoapWalk ReadAddAnswer(const std::string& answer, const char* response, const char* idName, std::string& id) {
  SoapWalk walk;
  CXmlMarkup xml;
  xml.SetDoc(answer);
  if (!Descend(xml, {"SOAP-ENV:Envelope", "SOAP-ENV:Body", response}, walk)) return walk;
  if (!xml.FindElem(idName)) {
    walk.missing = idName;
    return walk;
  }
  id = xml.GetData();
  walk.ok = true;
  return walk;
}

}  // namespace

std::string GetActionRulesBody() { return Envelope(EmptyOperation("GetActionRules", kActionNs, "  ")); }

std::string GetActionConfigurationsBody() {
  return Envelope(EmptyOperation("GetActionConfigurations", kActionNs, "  "));
}

std::string GetScheduledEventsBody() { return Envelope(EmptyOperation("GetScheduledEvents", kEventNs, "")); }

std::string RemoveActionRuleBody(int32_t ruleId) {
  return Envelope(IdOperation("RemoveActionRule", kActionNs, "RuleID", std::to_string(ruleId)));
}

std::string RemoveActionConfigurationBody(int32_t configurationId) {
  return Envelope(
      IdOperation("RemoveActionConfiguration", kActionNs, "ConfigurationID", std::to_string(configurationId)));
}

std::string RemoveScheduledEventBody(const std::string& eventId) {
  return Envelope(IdOperation("RemoveScheduledEvent", kEventNs, "EventID", eventId));
}

// The calendar goes in as it is: its texts hold no markup characters.
std::string AddScheduledEventBody(const std::string& name, const std::string& calendar) {
  return Envelope(std::string("  <AddScheduledEvent xmlns=\"") + kEventNs +
                  "\">\n"
                  "   <NewScheduledEvent>\n"
                  "    <Name>" +
                  name +
                  "</Name>\n"
                  "    <Schedule>\n"
                  "     <ICalendar Dialect=\"http://www.axis.com/vapix/ws/ical1\">" +
                  calendar +
                  "</ICalendar>\n"
                  "    </Schedule>\n"
                  "   </NewScheduledEvent>\n"
                  "  </AddScheduledEvent>\n");
}

std::string AddActionConfigurationBody(const std::string& name, int32_t preDuration, int32_t postDuration,
                                       const std::string& streamProfile) {
  return Envelope(std::string("  <AddActionConfiguration xmlns=\"") + kActionNs +
                  "\">\n"
                  "   <NewActionConfiguration>\n"
                  "    <Name>" +
                  name +
                  "</Name>\n"
                  "    <TemplateToken>" +
                  kRecordingTemplate +
                  "</TemplateToken>\n"
                  "    <Parameters>\n"
                  "     <Parameter Name=\"stream_options\" Value=\"&amp;streamprofile=" +
                  streamProfile +
                  "&amp;camera=1\"/>\n"
                  "     <Parameter Name=\"pre_duration\" Value=\"" +
                  std::to_string(preDuration) +
                  "\"/>\n"
                  "     <Parameter Name=\"post_duration\" Value=\"" +
                  std::to_string(postDuration) +
                  "\"/>\n"
                  "     <Parameter Name=\"storage_id\" Value=\"SD_DISK\"/>\n"
                  "    </Parameters>\n"
                  "   </NewActionConfiguration>\n"
                  "  </AddActionConfiguration>\n");
}

// The rule fires its action while any of its schedules is active.
std::string AddActionRuleBody(const std::string& name, int32_t primaryAction,
                              const std::vector<std::string>& scheduleEventIds) {
  std::string conditions;
  for (const std::string& id : scheduleEventIds) {
    conditions +=
        "     <Condition>\n"
        "      <TopicExpression Dialect=\"http://docs.oasis-open.org/wsn/t-1/TopicExpression/Concrete\" "
        "xmlns=\"http://docs.oasis-open.org/wsn/b-2\">tns1:UserAlarm/tnsaxis:Recurring/Interval</TopicExpression>\n"
        "      <MessageContent Dialect=\"http://www.onvif.org/ver10/tev/messageContentFilter/ItemFilter\" "
        "xmlns=\"http://docs.oasis-open.org/wsn/b-2\">boolean(//SimpleItem[@Name=\"id\" and @Value=\"" +
        id +
        "\"]) and boolean(//SimpleItem[@Name=\"active\" and @Value=\"1\"])</MessageContent>\n"
        "     </Condition>\n";
  }
  return std::string(kDeclaration) + kEnvelopeOpen + " <Body xmlns:act=\"" + kActionNs + "\" xmlns:aev=\"" + kEventNs +
         "\" xmlns:tns1=\"http://www.onvif.org/ver10/topics\" "
         "xmlns:tnsaxis=\"http://www.axis.com/2009/event/topics\">\n"
         "  <AddActionRule xmlns=\"" +
         kActionNs +
         "\">\n"
         "   <NewActionRule>\n"
         "    <Name>" +
         name +
         "</Name>\n"
         "    <Enabled>true</Enabled>\n"
         "    <!-- No start event -->\n"
         "    <Conditions>\n" +
         conditions +
         "    </Conditions>\n"
         "    <PrimaryAction>" +
         std::to_string(primaryAction) +
         "</PrimaryAction>\n"
         "   </NewActionRule>\n"
         "  </AddActionRule>\n" +
         kBodyClose;
}

std::string ScheduleIdOfCondition(const std::string& messageContent) {
  const size_t start = messageContent.find(kScheduleIdMarker);
  if (start == std::string::npos) return {};
  const size_t quote = messageContent.find('"', start);
  if (quote == std::string::npos) return {};
  return messageContent.substr(start, quote - start);
}

bool StreamProfileOfOptions(const std::string& streamOptions, std::string& profile) {
  bool found = false;
  size_t begin = 0;
  while (begin <= streamOptions.size()) {
    size_t end = streamOptions.find('&', begin);
    if (end == std::string::npos) end = streamOptions.size();
    const std::string piece = streamOptions.substr(begin, end - begin);
    const size_t equals = piece.find('=');
    // Exactly two parts: "streamprofile=a=b" names no profile.
    if (equals != std::string::npos && piece.find('=', equals + 1) == std::string::npos &&
        piece.substr(0, equals) == "streamprofile") {
      profile = piece.substr(equals + 1);
      found = true;
    }
    begin = end + 1;
  }
  return found;
}

SoapWalk ReadActionRules(const std::string& answer, std::map<int32_t, ActionRuleRecord>& rules) {
  SoapWalk walk;
  CXmlMarkup xml;
  xml.SetDoc(answer);
  if (!Descend(xml, {"SOAP-ENV:Envelope", "SOAP-ENV:Body", "aa:GetActionRulesResponse", "aa:ActionRules"}, walk)) {
    return walk;
  }
  while (xml.FindElem("aa:ActionRule")) {
    xml.IntoElem();
    ActionRuleRecord rule;
    bool complete = true;
    for (const char* field : {"aa:RuleID", "aa:Name", "aa:Enabled", "aa:PrimaryAction", "aa:Conditions"}) {
      if (!FindField(xml, field)) {
        complete = false;
        break;
      }
      const std::string text = xml.GetData();
      if (field[3] == 'R') rule.ruleId = Decimal(text);
      if (field[3] == 'N') rule.name = text;
      if (field[3] == 'E') rule.enabled = text == "true";
      if (field[3] == 'P') rule.primaryAction = Decimal(text);
    }
    if (!complete) {
      ++walk.skippedRules;
      xml.OutOfElem();
      continue;
    }
    xml.IntoElem();  // aa:Conditions, found last
    while (xml.FindElem("aa:Condition")) {
      xml.IntoElem();
      if (!FindField(xml, "wsnt:MessageContent")) {
        walk.missing = "wsnt:MessageContent";
        return walk;
      }
      const std::string id = ScheduleIdOfCondition(xml.GetData());
      if (!id.empty()) rule.scheduleEventIds.push_back(id);
      xml.OutOfElem();
    }
    xml.OutOfElem();
    xml.OutOfElem();
    rules.emplace(rule.ruleId, std::move(rule));
  }
  walk.ok = true;
  return walk;
}

SoapWalk ReadActionConfigurations(const std::string& answer, std::map<int32_t, ActionConfigRecord>& configurations) {
  SoapWalk walk;
  CXmlMarkup xml;
  xml.SetDoc(answer);
  if (!Descend(xml,
               {"SOAP-ENV:Envelope", "SOAP-ENV:Body", "aa:GetActionConfigurationsResponse", "aa:ActionConfigurations"},
               walk)) {
    return walk;
  }
  while (xml.FindElem("aa:ActionConfiguration")) {
    xml.IntoElem();
    ActionConfigRecord configuration;
    for (const char* field : {"aa:ConfigurationID", "aa:Name", "aa:TemplateToken"}) {
      if (!FindField(xml, field)) {
        walk.missing = field;
        return walk;
      }
    }
    FindField(xml, "aa:ConfigurationID");
    configuration.configurationId = Decimal(xml.GetData());
    FindField(xml, "aa:Name");
    configuration.name = xml.GetData();
    FindField(xml, "aa:TemplateToken");
    const std::string token = xml.GetData();
    if (token != kRecordingTemplate) {
      walk.filteredTokens.push_back(token);
      xml.OutOfElem();
      continue;
    }
    if (!FindField(xml, "aa:Parameters")) {
      walk.missing = "aa:Parameters";
      return walk;
    }
    xml.IntoElem();
    while (xml.FindElem("aa:Parameter")) {
      const std::string name = xml.GetAttrib("Name");
      const std::string value = xml.GetAttrib("Value");
      if (name == "pre_duration") configuration.preDuration = Decimal(value);
      if (name == "post_duration") configuration.postDuration = Decimal(value);
      if (name == "stream_options") StreamProfileOfOptions(value, configuration.streamProfile);
    }
    xml.OutOfElem();
    xml.OutOfElem();
    configurations.emplace(configuration.configurationId, std::move(configuration));
  }
  walk.ok = true;
  return walk;
}

SoapWalk ReadScheduledEvents(const std::string& answer, std::map<std::string, ScheduledEventRecord>& events) {
  SoapWalk walk;
  CXmlMarkup xml;
  xml.SetDoc(answer);
  if (!Descend(xml, {"SOAP-ENV:Envelope", "SOAP-ENV:Body", "aev:GetScheduledEventsResponse", "aev:ScheduledEvents"},
               walk)) {
    return walk;
  }
  while (xml.FindElem("aev:ScheduledEvent")) {
    xml.IntoElem();
    ScheduledEventRecord event;
    for (const char* field : {"aev:EventID", "aev:Name", "aev:Schedule"}) {
      if (!FindField(xml, field)) {
        walk.missing = field;
        return walk;
      }
    }
    FindField(xml, "aev:EventID");
    event.eventId = xml.GetData();
    FindField(xml, "aev:Name");
    event.name = xml.GetData();
    FindField(xml, "aev:Schedule");
    xml.IntoElem();
    if (!xml.FindElem("aev:ICalendar")) {
      walk.missing = "aev:ICalendar";
      return walk;
    }
    ReadCalendar(xml.GetData(), event.schedule);
    xml.OutOfElem();
    xml.OutOfElem();
    events.emplace(event.eventId, std::move(event));
  }
  walk.ok = true;
  return walk;
}

SoapWalk ReadAddActionRule(const std::string& answer, int32_t& ruleId) {
  std::string id;
  SoapWalk walk = ReadAddAnswer(answer, "aa:AddActionRuleResponse", "aa:RuleID", id);
  if (walk.ok) ruleId = Decimal(id);
  return walk;
}

SoapWalk ReadAddActionConfiguration(const std::string& answer, int32_t& configurationId) {
  std::string id;
  SoapWalk walk = ReadAddAnswer(answer, "aa:AddActionConfigurationResponse", "aa:ConfigurationID", id);
  if (walk.ok) configurationId = Decimal(id);
  return walk;
}

SoapWalk ReadAddScheduledEvent(const std::string& answer, std::string& eventId) {
  return ReadAddAnswer(answer, "aev:AddScheduledEventResponse", "aev:EventID", eventId);
}

}  // namespace schedule
