// The schedule area against the simulated camera: SOAP bodies as the camera
// receives them, plans written and read back, stream profiles and the command
// channel. The answer walks and the calendar mapping alone are in
// schedule_text_test.cpp.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "LogCapture.h"
#include "PluginTestSupport.h"
#include "RapidJsonProto.h"
#include "SchedulePlans.h"
#include "schedule/ScheduleCalendar.h"
#include "schedule/SoapServices.h"
#include "session/axis_device_object_implement.h"

namespace {

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
const std::string kEnvelope = "<Envelope xmlns=\"http://www.w3.org/2003/05/soap-envelope\">\n <Header/>\n";
const std::string kEnd = " </Body>\n</Envelope>";

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

}  // namespace
