// The schedule area's texts alone, no camera: the SOAP answer walks, the plan
// <-> calendar mapping, and the fuzz corpora replayed.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include "FuzzEntries.h"
#include "SchedulePlans.h"
#include "schedule/ScheduleCalendar.h"
#include "schedule/SoapServices.h"

namespace {

std::string Answer(const std::string& body) {
  return "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://www.w3.org/2003/05/soap-envelope\" "
         "xmlns:aa=\"http://www.axis.com/vapix/ws/action1\" xmlns:aev=\"http://www.axis.com/vapix/ws/event1\" "
         "xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\"><SOAP-ENV:Body>" +
         body + "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
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
  WeeklySchedule repeated;  // a weekday named again is the same weekday
  schedule::ReadCalendar("DTSTART:19700101T080000\nDTEND:19700101T090000\nRRULE:BYDAY=MO,MO,TU;BYDAY=MO", repeated);
  EXPECT_EQ(std::vector<size_t>({repeated[1].size(), repeated[2].size()}), std::vector<size_t>({1, 1}));

  const std::pair<int32_t, uint32_t> codes[] = {{0, 0},     {-3000, 1}, {5000, 1},  {10000, 2}, {15999, 3},
                                                {20000, 4}, {24000, 5}, {27000, 7}, {30000, 0}, {35000, 0}};
  for (const auto& [ms, code] : codes) EXPECT_EQ(schedule::MillisecondsToPreCode(ms), code) << ms;
  EXPECT_EQ(schedule::PreCodeToMilliseconds(0xFFFFFFFFu), 30000);
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
