// /vapix/services: a round trip through the action and event services with
// requests written the way the plug-in writes them, read back at the exact
// prefixed element paths the plug-in walks.
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

constexpr const char* kAction = "http://www.axis.com/vapix/ws/action1";
constexpr const char* kEvent = "http://www.axis.com/vapix/ws/event1";
constexpr const char* kBody = "/SOAP-ENV:Envelope/SOAP-ENV:Body/";

class VapixServices : public CameraTest {
 protected:
  pugi::xml_document Soap(const std::string& service, const std::string& operation, const std::string& inner,
                          const std::string& bodyAttributes = "") {
    Reply reply = PostPath("/vapix/services",
                           "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Envelope "
                           "xmlns=\"http://www.w3.org/2003/05/soap-envelope\">\n <Header/>\n <Body " +
                               bodyAttributes + ">\n  <" + operation + " xmlns=\"" + service + "\">" + inner + "</" +
                               operation + ">\n </Body>\n</Envelope>");
    EXPECT_EQ(reply.status, 200) << reply.body;
    EXPECT_EQ(reply.contentType.rfind("application/soap+xml", 0), 0u) << reply.contentType;
    pugi::xml_document doc;
    EXPECT_TRUE(doc.load_string(reply.body.c_str())) << reply.body;
    return doc;
  }
  std::string Text(const pugi::xml_document& doc, const std::string& path) {
    return doc.select_node((kBody + path).c_str()).node().text().get();
  }
  std::string AddScheduledEvent(const std::string& ical) {
    return Text(Soap(kEvent, "AddScheduledEvent",
                     "<NewScheduledEvent><Name>Plan</Name><Schedule><ICalendar "
                     "Dialect=\"http://www.axis.com/vapix/ws/ical1\">" +
                         ical + "</ICalendar></Schedule></NewScheduledEvent>"),
                "aev:AddScheduledEventResponse/aev:EventID");
  }
  std::string AddRecordingConfiguration() {
    return Text(Soap(kAction, "AddActionConfiguration",
                     "\n<NewActionConfiguration><Name>Record</Name><TemplateToken>com.axis.action.unlimited.recording."
                     "storage</TemplateToken><Parameters><Parameter Name=\"stream_options\" "
                     "Value=\"&amp;streamprofile=h265main&amp;camera=1\"/><Parameter Name=\"post_duration\" "
                     "Value=\"2000\"/></Parameters></NewActionConfiguration>"),
                "aa:AddActionConfigurationResponse/aa:ConfigurationID");
  }
  // Prefixes on the Body, default namespaces inside, as the plug-in sends it.
  pugi::xml_document AddRule(const std::string& configurationId, const std::string& eventId) {
    return Soap(kAction, "AddActionRule",
                "<NewActionRule><Name>Rule</Name><Enabled>true</Enabled><!-- No start event --><Conditions><Condition>"
                "<TopicExpression Dialect=\"http://docs.oasis-open.org/wsn/t-1/TopicExpression/Concrete\" "
                "xmlns=\"http://docs.oasis-open.org/wsn/b-2\">tns1:UserAlarm/tnsaxis:Recurring/Interval</"
                "TopicExpression><MessageContent "
                "Dialect=\"http://www.onvif.org/ver10/tev/messageContentFilter/ItemFilter\" "
                "xmlns=\"http://docs.oasis-open.org/wsn/b-2\">boolean(//SimpleItem[@Name=\"id\" and @Value=\"" +
                    eventId + "\"])</MessageContent></Condition></Conditions><PrimaryAction>" + configurationId +
                    "</PrimaryAction></NewActionRule>",
                "xmlns:act=\"http://www.axis.com/vapix/ws/action1\" xmlns:tns1=\"http://www.onvif.org/ver10/topics\" "
                "xmlns:tnsaxis=\"http://www.axis.com/2009/event/topics\"");
  }
};

TEST_F(VapixServices, ScheduleConfigurationAndRuleRoundTrip) {
  const std::string ical = "DTSTART:19700101T080000\nDTEND:19700101T170000\nRRULE:FREQ=WEEKLY;BYDAY=MO,WE";
  const std::string eventId = AddScheduledEvent(ical);
  EXPECT_EQ(eventId.rfind("com.axis.schedules.genid.id", 0), 0u) << eventId;
  const std::string configurationId = AddRecordingConfiguration();
  const std::string ruleId = Text(AddRule(configurationId, eventId), "aa:AddActionRuleResponse/aa:RuleID");
  ASSERT_FALSE(ruleId.empty());

  auto events = Soap(kEvent, "GetScheduledEvents", "");
  EXPECT_STREQ(events.child("SOAP-ENV:Envelope").attribute("xmlns:aev").value(), kEvent);  // declared on the envelope
  const std::string event = "aev:GetScheduledEventsResponse/aev:ScheduledEvents/aev:ScheduledEvent[aev:EventID='" +
                            eventId + "']/aev:Schedule/aev:ICalendar";
  EXPECT_EQ(Text(events, event), ical);
  auto configurations = Soap(kAction, "GetActionConfigurations", "");
  const std::string configuration =
      "aa:GetActionConfigurationsResponse/aa:ActionConfigurations/aa:ActionConfiguration[aa:ConfigurationID='" +
      configurationId + "']/";
  EXPECT_EQ(Text(configurations, configuration + "aa:TemplateToken"), "com.axis.action.unlimited.recording.storage");
  const std::string options = kBody + configuration + "aa:Parameters/aa:Parameter[@Name='stream_options']/@Value";
  EXPECT_STREQ(configurations.select_node(options.c_str()).attribute().value(), "&streamprofile=h265main&camera=1");
  auto rules = Soap(kAction, "GetActionRules", "");
  const std::string rule = "aa:GetActionRulesResponse/aa:ActionRules/aa:ActionRule[aa:RuleID='" + ruleId + "']/";
  EXPECT_EQ(Text(rules, rule + "aa:PrimaryAction"), configurationId);
  EXPECT_EQ(Text(rules, rule + "aa:Conditions/aa:Condition/wsnt:TopicExpression"),
            "tns1:UserAlarm/tnsaxis:Recurring/Interval");
  // The camera's own rules (motion recording) are listed beside ours.
  EXPECT_EQ(rules.select_nodes("//aa:ActionRule").size(), 3u);
}

}  // namespace
}  // namespace camsim_test
