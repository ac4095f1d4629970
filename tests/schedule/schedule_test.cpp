// The schedule area: SOAP bodies as the camera receives them, the answer walks,
// the plan <-> calendar mapping, stream profiles and the command channel.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "FuzzEntries.h"
#include "LogCapture.h"
#include "PluginTestSupport.h"
#include "RapidJsonProto.h"
#include "schedule/ScheduleCalendar.h"
#include "schedule/SoapServices.h"
#include "session/axis_device_object_implement.h"

namespace {

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
const std::string kEnvelope = "<Envelope xmlns=\"http://www.w3.org/2003/05/soap-envelope\">\n <Header/>\n";
const std::string kEnd = " </Body>\n</Envelope>";

std::string Answer(const std::string& body) {
  return "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://www.w3.org/2003/05/soap-envelope\" "
         "xmlns:aa=\"http://www.axis.com/vapix/ws/action1\" xmlns:aev=\"http://www.axis.com/vapix/ws/event1\" "
         "xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\"><SOAP-ENV:Body>" +
         body + "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
}

RecordConfigInfo EmptyPlan() {
  RecordConfigInfo plan{};
  std::memset(plan.halfHours, '0', sizeof plan.halfHours);
  return plan;
}
const RecordConfigInfo kNoPlan = EmptyPlan();

class Schedule : public OpenedCameraTest {
 protected:
  // SOAP bodies the camera accepted past authentication, in order.
  std::vector<std::string> Bodies() const {
    std::vector<std::string> bodies;
    for (const auto& r : m_camera->Requests()) {
      if (r.path == "/vapix/services" && r.status != 401) bodies.push_back(r.body);
    }
    return bodies;
  }
  std::string Command(const std::string& request, int32_t& result) {
    std::vector<char> buffer(1 << 16, 'x');
    uint32_t length = 0;
    result = m_device.TransMethod(request.c_str(), static_cast<uint32_t>(request.size()), buffer.data(), &length);
    EXPECT_TRUE(result == -1 || buffer[length] == '\0');  // a text that does not parse leaves the buffer
    return std::string(buffer.data(), length);
  }
};

TEST_F(Schedule, EachOperationPostsItsBodyByteForByte) {
  std::map<int32_t, ActionRuleRecord> rules;
  std::map<int32_t, ActionConfigRecord> configurations;
  std::map<std::string, ScheduledEventRecord> events;
  std::string eventId;
  int32_t configurationId = 0, ruleId = 0;
  ASSERT_TRUE(m_device.GetActionRules(rules));
  ASSERT_TRUE(m_device.GetActionConfigurations(configurations));
  ASSERT_TRUE(m_device.GetScheduledEvents(events));
  ASSERT_TRUE(m_device.AddScheduledEvent(eventId, "n1", "DTSTART:19700101T080000\nDTEND:19700101T180000\nX"));
  ASSERT_TRUE(m_device.AddActionConfigurations(configurationId, "n2", 10000, 5000, "Quality"));
  ASSERT_TRUE(m_device.AddActionRules(ruleId, "n3", configurationId, {eventId, "id-b"}));
  ASSERT_TRUE(m_device.RemoveActionRules({ruleId}));
  ASSERT_TRUE(m_device.RemoveActionConfigurations({configurationId}));
  ASSERT_TRUE(m_device.RemoveScheduledEvents({eventId}));
  EXPECT_EQ(eventId, "com.axis.schedules.genid.id1");

  const std::string action = "xmlns=\"http://www.axis.com/vapix/ws/action1\"";
  const std::string event = "xmlns=\"http://www.axis.com/vapix/ws/event1\"";
  const std::string head = kDeclaration + kEnvelope + " <Body >\n";
  auto condition = [](const std::string& id) {
    return "     <Condition>\n      <TopicExpression Dialect=\"http://docs.oasis-open.org/wsn/t-1/TopicExpression/"
           "Concrete\" xmlns=\"http://docs.oasis-open.org/wsn/b-2\">tns1:UserAlarm/tnsaxis:Recurring/Interval"
           "</TopicExpression>\n      <MessageContent Dialect=\"http://www.onvif.org/ver10/tev/messageContentFilter/"
           "ItemFilter\" xmlns=\"http://docs.oasis-open.org/wsn/b-2\">boolean(//SimpleItem[@Name=\"id\" and @Value=\"" +
           id +
           "\"]) and boolean(//SimpleItem[@Name=\"active\" and @Value=\"1\"])</MessageContent>\n     </Condition>\n";
  };
  const std::vector<std::string> expected = {
      head + "  <GetActionRules " + action + "/>\n" + kEnd,
      head + "  <GetActionConfigurations " + action + "/>\n" + kEnd,
      head + "<GetScheduledEvents " + event + "/>\n" + kEnd,
      head + "  <AddScheduledEvent " + event +
          ">\n   <NewScheduledEvent>\n    <Name>n1</Name>\n    <Schedule>\n     <ICalendar "
          "Dialect=\"http://www.axis.com/vapix/ws/ical1\">DTSTART:19700101T080000\nDTEND:19700101T180000\nX"
          "</ICalendar>\n    </Schedule>\n   </NewScheduledEvent>\n  </AddScheduledEvent>\n" +
          kEnd,
      head + "  <AddActionConfiguration " + action +
          ">\n   <NewActionConfiguration>\n    <Name>n2</Name>\n    <TemplateToken>"
          "com.axis.action.unlimited.recording.storage</TemplateToken>\n    <Parameters>\n"
          "     <Parameter Name=\"stream_options\" Value=\"&amp;streamprofile=Quality&amp;camera=1\"/>\n"
          "     <Parameter Name=\"pre_duration\" Value=\"10000\"/>\n"
          "     <Parameter Name=\"post_duration\" Value=\"5000\"/>\n"
          "     <Parameter Name=\"storage_id\" Value=\"SD_DISK\"/>\n"
          "    </Parameters>\n   </NewActionConfiguration>\n  </AddActionConfiguration>\n" +
          kEnd,
      kDeclaration + kEnvelope +
          " <Body xmlns:act=\"http://www.axis.com/vapix/ws/action1\" xmlns:aev=\"http://www.axis.com/vapix/ws/event1\""
          " xmlns:tns1=\"http://www.onvif.org/ver10/topics\" xmlns:tnsaxis=\"http://www.axis.com/2009/event/topics\">\n"
          "  <AddActionRule " +
          action +
          ">\n   <NewActionRule>\n    <Name>n3</Name>\n    <Enabled>true</Enabled>\n    <!-- No start event -->\n"
          "    <Conditions>\n" +
          condition(eventId) + condition("id-b") +
          "    </Conditions>\n    <PrimaryAction>3</PrimaryAction>\n   </NewActionRule>\n  </AddActionRule>\n" + kEnd,
      head + "  <RemoveActionRule " + action + ">\n   <RuleID>3</RuleID>\n  </RemoveActionRule>\n" + kEnd,
      head + "  <RemoveActionConfiguration " + action +
          ">\n   <ConfigurationID>3</ConfigurationID>\n  </RemoveActionConfiguration>\n" + kEnd,
      head + "  <RemoveScheduledEvent " + event +
          ">\n   <EventID>com.axis.schedules.genid.id1</EventID>\n"
          "  </RemoveScheduledEvent>\n" +
          kEnd,
  };
  EXPECT_EQ(Bodies(), expected);
}

TEST(ScheduleWalks, AnswersAreReadOrRefusedAsTheCameraMeantThem) {
  const std::string rule =
      "<aa:RuleID>7</aa:RuleID><aa:Name>r</aa:Name><aa:Enabled>true</aa:Enabled>"
      "<aa:PrimaryAction>4</aa:PrimaryAction>";
  const std::string genid =
      "<aa:Condition><wsnt:MessageContent>x@Value=\"com.axis.schedules.genid.id9\"]"
      "</wsnt:MessageContent></aa:Condition>";
  auto rules = [](const std::string& list) {
    return Answer("<aa:GetActionRulesResponse><aa:ActionRules>" + list +
                  "</aa:ActionRules></aa:GetActionRulesResponse>");
  };
  auto configuration = [](const std::string& token, const std::string& options) {
    return Answer(
        "<aa:GetActionConfigurationsResponse><aa:ActionConfigurations><aa:ActionConfiguration>"
        "<aa:Name>c</aa:Name><aa:ConfigurationID>4</aa:ConfigurationID><aa:TemplateToken>" +
        token + "</aa:TemplateToken><aa:Parameters><aa:Parameter Name=\"stream_options\" Value=\"" + options +
        "\"/><aa:Parameter Name=\"pre_duration\" Value=\"27000\"/></aa:Parameters>"
        "</aa:ActionConfiguration></aa:ActionConfigurations></aa:GetActionConfigurationsResponse>");
  };
  const std::string recording = schedule::kRecordingTemplate;
  struct Case {
    const char* what;
    std::string answer;
    int kind;  // 0 rules, 1 configurations, 2 events
    bool ok;
    std::string missing;
    std::string found;  // the entries read, summarised
  };
  const std::vector<Case> cases = {
      {"empty rule list", rules(""), 0, true, "", ""},
      {"rule without schedule ids, rule without a field skipped",
       rules("<aa:ActionRule><aa:Conditions/>" + rule +
             "</aa:ActionRule><aa:ActionRule><aa:RuleID>8</aa:RuleID>"
             "</aa:ActionRule>"),
       0, true, "", "7:r:1:4:"},
      {"schedule id taken to the quote",
       rules("<aa:ActionRule>" + rule + "<aa:Conditions>" + genid + "</aa:Conditions></aa:ActionRule>"), 0, true, "",
       "7:r:1:4:com.axis.schedules.genid.id9,"},
      {"condition without content fails, earlier rules kept",
       rules(
           "<aa:ActionRule>" + rule +
           "<aa:Conditions/></aa:ActionRule><aa:ActionRule><aa:RuleID>9</aa:RuleID>"
           "<aa:Name/><aa:Enabled/><aa:PrimaryAction/><aa:Conditions><aa:Condition/></aa:Conditions></aa:ActionRule>"),
       0, false, "wsnt:MessageContent", "7:r:1:4:"},
      {"other prefixes", "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"/>", 0, false,
       "SOAP-ENV:Envelope", ""},
      {"not XML", "", 1, false, "SOAP-ENV:Envelope", ""},
      {"no streamprofile piece", configuration(recording, "&camera=1"), 1, true, "", "4:c:27000::"},
      {"profile piece a=b", configuration(recording, "&streamprofile=a=b&camera=1"), 1, true, "", "4:c:27000::"},
      {"profile named", configuration(recording, "&streamprofile=Quality&camera=1"), 1, true, "", "4:c:27000:Quality:"},
      {"other template filtered", configuration("com.axis.action.fixed.ledcontrol", ""), 1, true, "", ""},
      {"configuration without a name fails",
       Answer("<aa:GetActionConfigurationsResponse><aa:ActionConfigurations><aa:ActionConfiguration>"
              "<aa:ConfigurationID>4</aa:ConfigurationID></aa:ActionConfiguration></aa:ActionConfigurations>"
              "</aa:GetActionConfigurationsResponse>"),
       1, false, "aa:Name", ""},
      {"event without calendar fails",
       Answer("<aev:GetScheduledEventsResponse><aev:ScheduledEvents><aev:ScheduledEvent><aev:Name>e</aev:Name>"
              "<aev:EventID>e1</aev:EventID><aev:Schedule/></aev:ScheduledEvent></aev:ScheduledEvents>"
              "</aev:GetScheduledEventsResponse>"),
       2, false, "aev:ICalendar", ""},
      {"event read",
       Answer("<aev:GetScheduledEventsResponse><aev:ScheduledEvents><aev:ScheduledEvent><aev:Name>e"
              "</aev:Name><aev:EventID>e1</aev:EventID><aev:Schedule><aev:ICalendar>DTSTART:19700101T080000\n"
              "DTEND:19700101T093000\nRRULE:FREQ=WEEKLY;BYDAY=TU</aev:ICalendar></aev:Schedule></aev:ScheduledEvent>"
              "</aev:ScheduledEvents></aev:GetScheduledEventsResponse>"),
       2, true, "", "e1:e:2=8.0-9.30,"},
  };
  for (const Case& c : cases) {
    schedule::SoapWalk walk;
    std::string found;
    if (c.kind == 0) {
      std::map<int32_t, ActionRuleRecord> map;
      walk = schedule::ReadActionRules(c.answer, map);
      for (const auto& [id, r] : map) {
        found += std::to_string(id) + ":" + r.name + ":" + std::to_string(r.enabled) + ":" +
                 std::to_string(r.primaryAction) + ":";
        for (const auto& e : r.scheduleEventIds) found += e + ",";
      }
    } else if (c.kind == 1) {
      std::map<int32_t, ActionConfigRecord> map;
      walk = schedule::ReadActionConfigurations(c.answer, map);
      for (const auto& [id, r] : map) {
        found += std::to_string(id) + ":" + r.name + ":" + std::to_string(r.preDuration) + ":" + r.streamProfile + ":";
      }
    } else {
      std::map<std::string, ScheduledEventRecord> map;
      walk = schedule::ReadScheduledEvents(c.answer, map);
      for (const auto& [id, e] : map) {
        found += id + ":" + e.name + ":";
        for (const auto& [day, segments] : e.schedule) {
          for (const auto& s : segments) {
            found += std::to_string(day) + "=" + std::to_string(s.startHour) + "." + std::to_string(s.startMinute) +
                     "-" + std::to_string(s.endHour) + "." + std::to_string(s.endMinute) + ",";
          }
        }
      }
    }
    EXPECT_EQ(walk.ok, c.ok) << c.what;
    EXPECT_EQ(walk.missing, c.missing) << c.what;
    EXPECT_EQ(found, c.found) << c.what;
  }
}

TEST(ScheduleCalendar, PlanCalendarsAndCodesMapBothWays) {
  struct Case {
    int day, from, to;  // half-hour slots [from, to)
    std::string calendar;
  } cases[] = {
      {1, 16, 36, "DTSTART:19700101T080000\nDTEND:19700101T180000\nRRULE:FREQ=WEEKLY;BYDAY=MO"},
      {6, 46, 48, "DTSTART:19700101T230000\nDTEND:19700102T000000\nRRULE:FREQ=WEEKLY;BYDAY=SA"},
      {0, 0, 1, "DTSTART:19700101T000000\nDTEND:19700101T003000\nRRULE:FREQ=WEEKLY;BYDAY=SU"},
  };
  for (const Case& c : cases) {
    RecordConfigInfo plan = EmptyPlan();
    std::memset(&plan.halfHours[c.day][c.from], '1', static_cast<size_t>(c.to - c.from));
    WeeklySchedule schedule;
    ASSERT_TRUE(schedule::ScanRecordPlan(plan, schedule).ok);
    const auto calendars = schedule::BuildCalendars(schedule);
    ASSERT_EQ(calendars, std::vector<std::string>{c.calendar});
    WeeklySchedule back;
    schedule::ReadCalendar(c.calendar, back);
    std::vector<std::vector<bool>> marks(7, std::vector<bool>(48, false));
    schedule::MarkSchedule(back, marks);
    for (int slot = 0; slot < 48; ++slot) EXPECT_EQ(marks[c.day][slot], slot >= c.from && slot < c.to) << slot;
  }
  WeeklySchedule overnight;
  schedule::ReadCalendar("DTSTART:19700101T220000\nDTEND:19700102T020000\nRRULE:FREQ=WEEKLY;BYDAY=FR", overnight);
  ASSERT_EQ(overnight.size(), 1u);
  ASSERT_EQ(overnight[5].size(), 2u);
  EXPECT_EQ(std::vector<int>({overnight[5][0].startHour, overnight[5][0].endHour, overnight[5][0].endMinute,
                              overnight[5][1].startHour, overnight[5][1].endHour}),
            std::vector<int>({22, 23, 59, 0, 2}));

  const std::pair<int32_t, uint32_t> codes[] = {{0, 0},     {-3000, 1}, {5000, 1},  {10000, 2}, {15999, 3},
                                                {20000, 4}, {24000, 5}, {27000, 7}, {30000, 0}, {35000, 0}};
  for (const auto& [ms, code] : codes) EXPECT_EQ(schedule::MillisecondsToPreCode(ms), code) << ms;
  EXPECT_EQ(schedule::PreCodeToMilliseconds(0xFFFFFFFFu), 30000);
}

TEST_F(Schedule, PlansWriteReadBackAndReplaceOnlyThePluginsObjects) {
  LogCapture log;
  RecordConfigInfo plan = EmptyPlan();
  plan.days[3].allDay = 1;
  plan.days[3].allDayType = '2';
  EXPECT_EQ(m_device.SetRecordConfig(&m_device, &plan), -2);
  EXPECT_TRUE(Bodies().empty());
  EXPECT_EQ(m_device.SetRecordConfig(&m_device, nullptr), -1);

  // Two writes, the second replacing the first; then an empty plan.
  plan = EmptyPlan();
  std::memset(&plan.halfHours[1][16], '1', 20);
  std::memset(plan.halfHours[5], '1', 4);
  std::memset(&plan.halfHours[5][44], '1', 4);
  plan.days[6].allDay = 1;
  plan.days[6].allDayType = '1';
  plan.preRecordCode = 2;
  plan.postRecordTime = 4000;
  for (int round = 0; round < 2; ++round) ASSERT_EQ(m_device.SetRecordConfig(&m_device, &plan), 0) << log.All();
  RecordConfigInfo back{};
  ASSERT_EQ(m_device.GetRecordConfig(&m_device, &back), 0);
  std::memset(plan.halfHours[6], '1', 48);
  EXPECT_EQ(std::memcmp(back.halfHours, plan.halfHours, sizeof plan.halfHours), 0);
  EXPECT_EQ(back.enabled, 1u);
  EXPECT_EQ(back.preRecordCode, 2u);
  EXPECT_EQ(back.postRecordTime, 4000u);
  std::map<int32_t, ActionRuleRecord> rules;
  ASSERT_TRUE(m_device.GetActionRules(rules));
  EXPECT_EQ(rules.size(), 2u + 4u);  // the camera's own two and one per segment

  ASSERT_EQ(m_device.SetRecordConfig(&m_device, &kNoPlan), 0);
  EXPECT_TRUE(log.Contains("]Calendar empty.[")) << log.All();
  ASSERT_EQ(m_device.GetRecordConfig(&m_device, &back), 0);
  EXPECT_EQ(back.enabled, 0u);
  std::string configurations, events;
  ASSERT_TRUE(m_device.SendHttpPostReqWithRsp(configurations,
                                              "http://" + m_device.GetDeviceAddress() + "/vapix/services",
                                              schedule::GetActionConfigurationsBody(), "root", "pass", ""));
  ASSERT_TRUE(m_device.SendHttpPostReqWithRsp(events, "http://" + m_device.GetDeviceAddress() + "/vapix/services",
                                              schedule::GetScheduledEventsBody(), "root", "pass", ""));
  rules.clear();
  ASSERT_TRUE(m_device.GetActionRules(rules));
  EXPECT_EQ(rules.size(), 2u);
  EXPECT_EQ(configurations.find("platform_custom_name_"), std::string::npos);
  EXPECT_NE(configurations.find("Record video while motion"), std::string::npos);
  EXPECT_NE(configurations.find("Flash status LED"), std::string::npos);
  EXPECT_EQ(events.find("platform_custom_name_"), std::string::npos);
  EXPECT_NE(events.find("com.axis.schedules.office_hours"), std::string::npos);
  EXPECT_NE(events.find("com.axis.schedules.weekends"), std::string::npos);
}

TEST_F(Schedule, FailuresLeaveNothingTheNextWriteCannotClear) {
  RecordConfigInfo plan = EmptyPlan();
  for (int day = 0; day < 3; ++day) std::memset(&plan.halfHours[day][10], '1', 2);
  // 3 reads, 3 events, then configuration, rule, configuration: the second rule fails.
  m_camera->InjectFault("/vapix/services", {camsim::Fault::Kind::Status, 500, "", {}, "", 0, 1, 8});
  EXPECT_EQ(m_device.SetRecordConfig(&m_device, &plan), -1);
  m_camera->ClearScripts();
  ASSERT_EQ(m_device.SetRecordConfig(&m_device, &kNoPlan), 0);
  std::map<int32_t, ActionRuleRecord> rules;
  ASSERT_TRUE(m_device.GetActionRules(rules));
  for (const auto& [id, rule] : rules) EXPECT_EQ(rule.name.find("platform_custom_name_"), std::string::npos) << id;

  // A failed read and an answer with no body fail the operation; an empty removal posts nothing.
  m_camera->ClearRequests();
  EXPECT_TRUE(m_device.RemoveActionRules({}) && m_device.RemoveScheduledEvents({}));
  EXPECT_TRUE(Bodies().empty());
  m_camera->InjectFault("/vapix/services", {camsim::Fault::Kind::EmptyBody});
  EXPECT_FALSE(m_device.GetActionRules(rules));
  RecordConfigInfo back{};
  EXPECT_EQ(m_device.GetRecordConfig(&m_device, &back), -1);
  EXPECT_EQ(m_device.SetRecordConfig(&m_device, &plan), -1);
}

TEST_F(Schedule, ProfilesAndTheCommandChannel) {
  int32_t result = 0;
  const std::string empty = Tarn::Proto::CRapidJsonProto().get_str();
  EXPECT_EQ(Command("{\"params\":{}}", result), empty);
  EXPECT_EQ(result, -2);
  EXPECT_EQ(Command("{\"method\":", result), std::string());
  EXPECT_EQ(result, -1);

  Tarn::Proto::CRapidJsonProto list;
  ASSERT_TRUE(list.set_str(Command("{\"method\":\"ProfileList\"}", result)));
  ASSERT_EQ(result, 0);
  ASSERT_EQ(list.GetArraySize("/List[1]/Profiles"), 5u);
  EXPECT_EQ(list.GetString("/List[1]/VideoSourcesToken", ""), "1");
  EXPECT_EQ(list.GetInt("/List[1]/Profiles[2]/High", 0), 1280);  // Balanced, 1280x720
  EXPECT_EQ(list.GetInt("/List[1]/Profiles[2]/Width", 0), 720);
  EXPECT_EQ(list.GetInt("/List[1]/Profiles[2]/FrameRateLimit", 0), 15);
  EXPECT_EQ(list.GetString("/List[1]/Profiles[5]/Encode", ""), "H264");
  for (int i = 1; i <= 5; ++i) {
    EXPECT_EQ(list.GetInt("/List[1]/Profiles[" + std::to_string(i) + "]/RecordEnable", -1), i == 5 ? 1 : 0) << i;
  }

  // The chosen profile is what the next plan's configurations record.
  EXPECT_EQ(Command("{\"method\":\"SetProfile\",\"params\":{\"ProfileToken\":\"Balanced\"}}", result), empty);
  EXPECT_EQ(result, 1);
  RecordConfigInfo plan = EmptyPlan();
  plan.halfHours[2][7] = '1';
  ASSERT_EQ(m_device.SetRecordConfig(&m_device, &plan), 0);
  std::map<int32_t, ActionConfigRecord> configurations;
  ASSERT_TRUE(m_device.GetActionConfigurations(configurations));
  ASSERT_EQ(configurations.size(), 1u);
  EXPECT_EQ(configurations.begin()->second.streamProfile, "Balanced");
  ASSERT_TRUE(list.set_str(Command("{\"method\":\"ProfileList\"}", result)));
  EXPECT_EQ(list.GetInt("/List[1]/Profiles[2]/RecordEnable", -1), 1);
  EXPECT_EQ(list.GetInt("/List[1]/Profiles[5]/RecordEnable", -1), 0);

  m_camera->Script("/axis-cgi/streamprofile.cgi", {200,
                                                   "application/json",
                                                   "{\"data\":{\"streamProfile\":[{\"name\":\"p\",\"parameters\":"
                                                   "\"videocodec=h265&compression=30\"}]}}",
                                                   {}});
  ASSERT_TRUE(list.set_str(Command("{\"method\":\"ProfileList\"}", result)));
  EXPECT_EQ(list.GetString("/List[1]/Profiles[1]/Encode", ""), "h265");
  for (const char* field : {"High", "Width", "FrameRateLimit"}) {
    EXPECT_EQ(list.GetInt(std::string("/List[1]/Profiles[1]/") + field, 0), -1) << field;
  }
}

// Every seed of the fuzz corpora, so that what the fuzzers once found stays fixed.
TEST(ScheduleFuzz, CorporaReplay) {
  const std::map<std::string, std::function<int(const uint8_t*, size_t)>> entries = {
      {"rules", schedule_fuzz::FuzzActionRules},
      {"configurations", schedule_fuzz::FuzzActionConfigurations},
      {"events", schedule_fuzz::FuzzScheduledEvents},
      {"calendar", schedule_fuzz::FuzzCalendar},
      {"trans_method", schedule_fuzz::FuzzTransMethod}};
  for (const auto& [kind, entry] : entries) {
    size_t replayed = 0;
    for (const auto& file : std::filesystem::directory_iterator(std::string(SCHEDULE_CORPUS_DIR) + "/" + kind)) {
      std::ifstream in(file.path(), std::ios::binary);
      const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      EXPECT_EQ(entry(bytes.data(), bytes.size()), 0) << file.path();
      ++replayed;
    }
    EXPECT_GT(replayed, 0u) << kind;
  }
}

}  // namespace
