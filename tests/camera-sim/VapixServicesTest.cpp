// /vapix/services: a full round trip through the action and event services
// with requests written the way the plug-in writes them, read back at the
// exact prefixed element paths the plug-in walks.
#include <gtest/gtest.h>

#include <filesystem>
#include <pugixml.hpp>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

constexpr const char* kAction = "http://www.axis.com/vapix/ws/action1";
constexpr const char* kEvent = "http://www.axis.com/vapix/ws/event1";

std::string Envelope(const std::string& body, const std::string& bodyAttributes = "") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Envelope xmlns=\"http://www.w3.org/2003/05/soap-envelope\">\n"
         " <Header/>\n <Body " +
         bodyAttributes + ">\n" + body + "\n </Body>\n</Envelope>";
}

class VapixServices : public CameraTest {
 protected:
  pugi::xml_document Soap(const std::string& envelope, long expectedStatus = 200) {
    Reply reply = PostPath("/vapix/services", envelope);
    EXPECT_EQ(reply.status, expectedStatus) << reply.body;
    EXPECT_EQ(reply.contentType.rfind("application/soap+xml", 0), 0u) << reply.contentType;
    pugi::xml_document doc;
    EXPECT_TRUE(doc.load_string(reply.body.c_str())) << reply.body;
    return doc;
  }

  std::string AddScheduledEvent(const std::string& name, const std::string& ical) {
    auto doc = Soap(Envelope(std::string("<AddScheduledEvent xmlns=\"") + kEvent + "\"><NewScheduledEvent><Name>" +
                             name + "</Name><Schedule><ICalendar Dialect=\"http://www.axis.com/vapix/ws/ical1\">" +
                             ical + "</ICalendar></Schedule></NewScheduledEvent></AddScheduledEvent>"));
    return doc.select_node("/SOAP-ENV:Envelope/SOAP-ENV:Body/aev:AddScheduledEventResponse/aev:EventID")
        .node()
        .text()
        .get();
  }

  int AddRecordingConfiguration(const std::string& name, const std::string& profile) {
    auto doc = Soap(Envelope(std::string("  <AddActionConfiguration xmlns=\"") + kAction +
                             "\">\n<NewActionConfiguration><Name>" + name +
                             "</Name><TemplateToken>com.axis.action.unlimited.recording.storage</TemplateToken>"
                             "<Parameters><Parameter Name=\"stream_options\" Value=\"&amp;streamprofile=" +
                             profile +
                             "&amp;camera=1\"/><Parameter Name=\"pre_duration\" Value=\"1000\"/>"
                             "<Parameter Name=\"post_duration\" Value=\"2000\"/>"
                             "<Parameter Name=\"storage_id\" Value=\"SD_DISK\"/></Parameters>"
                             "</NewActionConfiguration></AddActionConfiguration>"));
    return doc.select_node("/SOAP-ENV:Envelope/SOAP-ENV:Body/aa:AddActionConfigurationResponse/aa:ConfigurationID")
        .node()
        .text()
        .as_int(-1);
  }

  pugi::xml_document AddRule(const std::string& name, int primaryAction, const std::string& eventId,
                             long expectedStatus = 200) {
    // Prefixes on the Body, default namespaces inside, as the plug-in sends it.
    const std::string condition =
        "<Condition><TopicExpression Dialect=\"http://docs.oasis-open.org/wsn/t-1/TopicExpression/Concrete\" "
        "xmlns=\"http://docs.oasis-open.org/wsn/b-2\">tns1:UserAlarm/tnsaxis:Recurring/Interval</TopicExpression>"
        "<MessageContent Dialect=\"http://www.onvif.org/ver10/tev/messageContentFilter/ItemFilter\" "
        "xmlns=\"http://docs.oasis-open.org/wsn/b-2\">boolean(//SimpleItem[@Name=\"id\" and @Value=\"" +
        eventId + "\"]) and boolean(//SimpleItem[@Name=\"active\" and @Value=\"1\"])</MessageContent></Condition>";
    return Soap(Envelope("  <AddActionRule xmlns=\"" + std::string(kAction) + "\"><NewActionRule><Name>" + name +
                             "</Name><Enabled>true</Enabled><!-- No start event --><Conditions>" + condition +
                             "</Conditions><PrimaryAction>" + std::to_string(primaryAction) +
                             "</PrimaryAction></NewActionRule></AddActionRule>",
                         "xmlns:act=\"http://www.axis.com/vapix/ws/action1\" "
                         "xmlns:aev=\"http://www.axis.com/vapix/ws/event1\" "
                         "xmlns:tns1=\"http://www.onvif.org/ver10/topics\" "
                         "xmlns:tnsaxis=\"http://www.axis.com/2009/event/topics\""),
                expectedStatus);
  }

  pugi::xml_document Get(const char* service, const char* operation) {
    return Soap(Envelope(std::string("<") + operation + " xmlns=\"" + service + "\"/>"));
  }

  pugi::xml_document Remove(const char* service, const char* operation, const char* idElement, const std::string& id,
                            long expectedStatus = 200) {
    return Soap(Envelope(std::string("  <") + operation + " xmlns=\"" + service + "\">\n   <" + idElement + ">" + id +
                         "</" + idElement + ">\n  </" + operation + ">"),
                expectedStatus);
  }
};

TEST_F(VapixServices, ScheduleConfigurationAndRuleRoundTrip) {
  const std::string ical = "DTSTART:19700101T080000\nDTEND:19700101T170000\nRRULE:FREQ=WEEKLY;BYDAY=MO,WE";
  const std::string eventId = AddScheduledEvent("Plan Monday", ical);
  EXPECT_EQ(eventId.rfind("com.axis.schedules.genid.id", 0), 0u) << eventId;
  const int configurationId = AddRecordingConfiguration("Record Monday", "h265main");
  ASSERT_GT(configurationId, 0);
  auto added = AddRule("Rule Monday", configurationId, eventId);
  const std::string ruleId =
      added.select_node("/SOAP-ENV:Envelope/SOAP-ENV:Body/aa:AddActionRuleResponse/aa:RuleID").node().text().get();
  ASSERT_FALSE(ruleId.empty());

  // The namespace declarations are on the envelope.
  auto events = Get(kEvent, "GetScheduledEvents");
  pugi::xml_node envelope = events.child("SOAP-ENV:Envelope");
  EXPECT_STREQ(envelope.attribute("xmlns:aev").value(), kEvent);
  EXPECT_STREQ(envelope.attribute("xmlns:aa").value(), kAction);
  EXPECT_STREQ(envelope.attribute("xmlns:wsnt").value(), "http://docs.oasis-open.org/wsn/b-2");
  const std::string eventPath =
      "/SOAP-ENV:Envelope/SOAP-ENV:Body/aev:GetScheduledEventsResponse/aev:ScheduledEvents/aev:ScheduledEvent[aev:"
      "EventID='" +
      eventId + "']";
  pugi::xml_node event = events.select_node(eventPath.c_str()).node();
  ASSERT_TRUE(event);
  EXPECT_STREQ(event.child("aev:Name").text().get(), "Plan Monday");
  EXPECT_EQ(event.child("aev:Schedule").child("aev:ICalendar").text().get(), ical);

  auto configurations = Get(kAction, "GetActionConfigurations");
  const std::string configurationPath =
      "/SOAP-ENV:Envelope/SOAP-ENV:Body/aa:GetActionConfigurationsResponse/aa:ActionConfigurations/"
      "aa:ActionConfiguration[aa:ConfigurationID='" +
      std::to_string(configurationId) + "']";
  pugi::xml_node configuration = configurations.select_node(configurationPath.c_str()).node();
  ASSERT_TRUE(configuration);
  EXPECT_STREQ(configuration.child("aa:TemplateToken").text().get(), "com.axis.action.unlimited.recording.storage");
  EXPECT_STREQ(
      configuration.select_node("aa:Parameters/aa:Parameter[@Name='stream_options']").node().attribute("Value").value(),
      "&streamprofile=h265main&camera=1");
  EXPECT_STREQ(
      configuration.select_node("aa:Parameters/aa:Parameter[@Name='post_duration']").node().attribute("Value").value(),
      "2000");

  auto rules = Get(kAction, "GetActionRules");
  const std::string rulePath =
      "/SOAP-ENV:Envelope/SOAP-ENV:Body/aa:GetActionRulesResponse/aa:ActionRules/aa:ActionRule[aa:RuleID='" + ruleId +
      "']";
  pugi::xml_node rule = rules.select_node(rulePath.c_str()).node();
  ASSERT_TRUE(rule);
  EXPECT_STREQ(rule.child("aa:Name").text().get(), "Rule Monday");
  EXPECT_STREQ(rule.child("aa:Enabled").text().get(), "true");
  EXPECT_EQ(rule.child("aa:PrimaryAction").text().as_int(), configurationId);
  pugi::xml_node condition = rule.child("aa:Conditions").child("aa:Condition");
  EXPECT_STREQ(condition.child("wsnt:TopicExpression").text().get(), "tns1:UserAlarm/tnsaxis:Recurring/Interval");
  EXPECT_NE(std::string(condition.child("wsnt:MessageContent").text().get()).find("@Value=\"" + eventId + "\""),
            std::string::npos);

  Remove(kAction, "RemoveActionRule", "RuleID", ruleId);
  Remove(kAction, "RemoveActionConfiguration", "ConfigurationID", std::to_string(configurationId));
  Remove(kEvent, "RemoveScheduledEvent", "EventID", eventId);
  EXPECT_FALSE(Get(kAction, "GetActionRules").select_node(rulePath.c_str()));
  EXPECT_FALSE(Get(kAction, "GetActionConfigurations").select_node(configurationPath.c_str()));
  EXPECT_FALSE(Get(kEvent, "GetScheduledEvents").select_node(eventPath.c_str()));
}

TEST_F(VapixServices, RulesAndConfigurationsOfOtherToolsAreThereAndStay) {
  AddRule("Mine", AddRecordingConfiguration("Mine", "p"), AddScheduledEvent("Mine", "DTSTART:19700101T000000"));
  auto rules = Get(kAction, "GetActionRules");
  auto rulesPath = "/SOAP-ENV:Envelope/SOAP-ENV:Body/aa:GetActionRulesResponse/aa:ActionRules/aa:ActionRule";
  EXPECT_EQ(rules.select_nodes(rulesPath).size(), 3u);
  EXPECT_TRUE(
      rules.select_node("//aa:ActionRule[aa:Name='Motion recording']/aa:Conditions/aa:Condition/wsnt:TopicExpression"));
  auto configurations = Get(kAction, "GetActionConfigurations");
  EXPECT_TRUE(
      configurations.select_node("//aa:ActionConfiguration[aa:TemplateToken='com.axis.action.fixed.ledcontrol']"));
  EXPECT_TRUE(configurations.select_node(
      "//aa:ActionConfiguration[aa:TemplateToken='com.axis.action.fixed.recording.storage']"));
}

TEST_F(VapixServices, MalformedAndUnknownRequestsGetSoapFaults) {
  auto expectFault = [&](const std::string& body, const char* subcode = nullptr) {
    auto doc = Soap(body, 400);
    EXPECT_STREQ(doc.select_node("/SOAP-ENV:Envelope/SOAP-ENV:Body/SOAP-ENV:Fault/SOAP-ENV:Code/SOAP-ENV:Value")
                     .node()
                     .text()
                     .get(),
                 "SOAP-ENV:Sender")
        << body;
    EXPECT_TRUE(doc.select_node("//SOAP-ENV:Fault/SOAP-ENV:Reason/SOAP-ENV:Text")) << body;
    if (subcode != nullptr) {
      EXPECT_STREQ(doc.select_node("//SOAP-ENV:Subcode/SOAP-ENV:Value").node().text().get(), subcode) << body;
    }
  };
  expectFault("");
  expectFault("<Envelope><Body>");
  expectFault("<html><body/></html>");
  expectFault(Envelope(""));
  expectFault(Envelope("<Reboot xmlns=\"" + std::string(kAction) + "\"/>"));
  expectFault(Envelope("<GetActionRules xmlns=\"urn:somewhere-else\"/>"));
  expectFault(Envelope("<AddActionRule xmlns=\"" + std::string(kAction) + "\"/>"));
  expectFault(Envelope("<AddScheduledEvent xmlns=\"" + std::string(kEvent) +
                       "\"><NewScheduledEvent><Name>x</Name></NewScheduledEvent></AddScheduledEvent>"),
              "aev:InvalidICalendar");
  Remove(kAction, "RemoveActionRule", "RuleID", "999", 400);
  Remove(kAction, "RemoveActionRule", "RuleID", "abc", 400);
  Remove(kAction, "RemoveActionConfiguration", "ConfigurationID", "999", 400);
  Remove(kEvent, "RemoveScheduledEvent", "EventID", "com.axis.schedules.genid.id999", 400);
  auto unknownConfiguration = AddRule("x", 999, "com.axis.schedules.genid.id1", 400);
  EXPECT_STREQ(unknownConfiguration.select_node("//SOAP-ENV:Subcode/SOAP-ENV:Value").node().text().get(),
               "aa:InvalidConfigurationID");
  // Nothing was half-added along the way.
  EXPECT_EQ(Get(kAction, "GetActionRules").select_nodes("//aa:ActionRule").size(), 2u);
}

TEST_F(VapixServices, StateDirectoryKeepsSchedulesAcrossARestart) {
  const std::string dir = ::testing::TempDir() + "camsim-state-" + config_.address;
  std::filesystem::remove_all(dir);
  camsim::CameraConfig config;
  config.stateDir = dir;
  Restart(config);
  const std::string first = AddScheduledEvent("Kept", "DTSTART:19700101T080000");
  const int configurationId = AddRecordingConfiguration("Kept", "p");

  Restart(config);
  auto events = Get(kEvent, "GetScheduledEvents");
  EXPECT_TRUE(events.select_node(("//aev:ScheduledEvent[aev:EventID='" + first + "']").c_str()));
  EXPECT_TRUE(
      Get(kAction, "GetActionConfigurations")
          .select_node(
              ("//aa:ActionConfiguration[aa:ConfigurationID='" + std::to_string(configurationId) + "']").c_str()));
  EXPECT_NE(AddScheduledEvent("Next", "DTSTART:19700101T080000"), first);  // ids are not reused
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace camsim_test
