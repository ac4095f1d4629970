// The recording search cursor, the recording status and the month view of a
// device object against the simulated camera's record/list.cgi.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "LogCapture.h"
#include "PluginTestSupport.h"
#include "RapidJsonProto.h"
#include "session/axis_device_object_implement.h"

namespace {

constexpr int64_t kJune21 = 1718983045;  // 2024-06-21T15:17:25Z
const std::string kNoDays = "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0";

PluginTime Time(int year, int month, int day, int hour, int minute, int second) {
  PluginTime time{};
  time.year = year;
  time.month = month;
  time.day = day;
  time.hour = hour;
  time.minute = minute;
  time.second = second;
  return time;
}

class RecordingSearch : public ::testing::Test {
 protected:
  void SetUp() override {
    m_camera = StartCamera(HttpOnlyCamera());
    ASSERT_NE(m_camera, nullptr);
    const DeviceLoginParam login = LoginFor(*m_camera);
    ASSERT_EQ(m_device.OpenDevice(&login), 0);
  }

  RecordSearchCondition Window(const PluginTime& start, const PluginTime& end) {
    RecordSearchCondition condition{};
    condition.start = start;
    condition.end = end;
    return condition;
  }

  std::unique_ptr<camsim::Camera> m_camera;
  CPlgDeviceObjectImplement m_device;
};

TEST_F(RecordingSearch, CursorStepsThroughTheSpanThenSaysNoMore) {
  LogCapture log;
  RecordFileInfo file{};
  EXPECT_EQ(m_device.FindNextRecordFile(&file), -1);
  EXPECT_TRUE(log.Contains("]First call the interface FindRecordFiles.[")) << log.All();

  // Listed out of order; the last one is still recording.
  m_camera->SetRecordings({{"20240622_080000_0001_B8A44F9D7D55", kJune21 + 60000, kJune21 + 63600, "h265"},
                           {"20240621_151725_95E7_B8A44F9D7D55", kJune21, kJune21 + 3600, "h264"},
                           {"20240623_120000_0002_B8A44F9D7D55", kJune21 + 160000, 0, "h264"}});
  const RecordSearchCondition condition = Window(Time(2024, 6, 21, 0, 0, 0), Time(2024, 6, 24, 0, 0, 0));
  ASSERT_EQ(m_device.FindRecordFiles(&condition), 0) << log.All();
  EXPECT_TRUE(log.Contains("starttime=2024-06-21T00:00:00.000Z&stoptime=2024-06-24T00:00:00.000Z")) << log.All();

  struct Expected {
    const char* id;
    PluginTime start, end;
  };
  const Expected expected[] = {
      {"20240621_151725_95E7_B8A44F9D7D55", Time(2024, 6, 21, 15, 17, 25), Time(2024, 6, 21, 16, 17, 25)},
      {"20240622_080000_0001_B8A44F9D7D55", Time(2024, 6, 22, 7, 57, 25), Time(2024, 6, 22, 8, 57, 25)},
      // Still recording in a window that ended in the past: it ends with the window.
      {"20240623_120000_0002_B8A44F9D7D55", Time(2024, 6, 23, 11, 44, 5), Time(2024, 6, 24, 0, 0, 0)},
  };
  for (const Expected& e : expected) {
    std::memset(&file, 0x5a, sizeof file);
    ASSERT_EQ(m_device.FindNextRecordFile(&file), 1000) << e.id;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&file);
    EXPECT_STREQ(reinterpret_cast<const char*>(bytes + 4), e.id);
    int32_t field516 = -1, field524 = -1;
    std::memcpy(&field516, bytes + 516, 4);
    std::memcpy(&field524, bytes + 524, 4);
    EXPECT_EQ(field516, 0);
    EXPECT_EQ(field524, 0);
    EXPECT_EQ(bytes[988], '1');
    EXPECT_EQ(std::memcmp(bytes + 528, &e.start, 24), 0) << e.id << " start";
    EXPECT_EQ(std::memcmp(bytes + 624, &e.end, 24), 0) << e.id << " end";
  }
  EXPECT_EQ(m_device.FindNextRecordFile(&file), 1003);
  EXPECT_EQ(m_device.FindNextRecordFile(&file), 1003);
  EXPECT_EQ(m_device.FindNextRecordFile(nullptr), -1);

  EXPECT_EQ(m_device.CloseFindRecord(), 0);
  EXPECT_EQ(m_device.FindNextRecordFile(&file), -1);
  EXPECT_EQ(m_device.FindRecordFiles(nullptr), -1);
}

TEST_F(RecordingSearch, FailedSearchesAnswerFailureThenNoMoreFiles) {
  struct FaultCase {
    const char* name;
    camsim::Fault fault;
    const char* logged;
  };
  const FaultCase cases[] = {
      {"server error", {camsim::Fault::Kind::Status, 500, "oops"}, "]GetRecordingList failed, url["},
      {"empty", {camsim::Fault::Kind::EmptyBody}, "]GetRecordingList failed, url["},
      {"dropped", {camsim::Fault::Kind::Drop}, "]GetRecordingList failed, url["},
      {"not XML", {camsim::Fault::Kind::Garbage, 200, "{\"recordings\": []}"}, "(root), data["},
      {"no recordings", {camsim::Fault::Kind::Garbage, 200, "<root><disks/></root>"}, "(recordings), data["},
      {"huge", {camsim::Fault::Kind::Huge, 200, "", {}, "", 8u << 20}, "(root), data["},
  };
  const RecordSearchCondition condition = Window(Time(2024, 6, 21, 0, 0, 0), Time(2024, 6, 24, 0, 0, 0));
  for (const FaultCase& c : cases) {
    SCOPED_TRACE(c.name);
    m_camera->ClearScripts();
    m_camera->InjectFault("/axis-cgi/record/", c.fault);
    LogCapture log;
    EXPECT_EQ(m_device.FindRecordFiles(&condition), -1);
    EXPECT_TRUE(log.Contains(c.logged)) << log.All();
    EXPECT_TRUE(log.Contains("]GetRecordingList failed.[")) << log.All();
    EXPECT_EQ(log.All().find(m_camera->Config().password + "@"), std::string::npos);
    RecordFileInfo file{};
    EXPECT_EQ(m_device.FindNextRecordFile(&file), 1003);
  }
  // An unreachable camera fails the same way.
  const std::string nowhere = netcam_test::UniqueLoopbackAddress();
  CPlgDeviceObjectImplement unreachable;
  const DeviceLoginParam login = MakeLogin(nowhere, 80, "root", "pass");
  unreachable.OpenDevice(&login);
  EXPECT_EQ(unreachable.FindRecordFiles(&condition), -1);
}

TEST_F(RecordingSearch, StatusTellsWhetherTheCameraIsRecordingNow) {
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  struct StatusCase {
    std::vector<camsim::RecordingClip> clips;
    bool recording;
  };
  const StatusCase cases[] = {
      {{{"done", now - 7200, now - 3600, "h264"}, {"going", now - 600, 0, "h264"}}, true},
      {{{"done", now - 7200, now - 3600, "h264"}}, false},
      {{{"old", now - 5 * 86400, 0, "h264"}}, true},  // began long ago, still going: it reaches the window
      {{}, false},
  };
  for (const StatusCase& c : cases) {
    m_camera->SetRecordings(c.clips);
    bool recording = !c.recording;
    EXPECT_TRUE(m_device.GetRecordingStatus(&recording));
    EXPECT_EQ(recording, c.recording) << c.clips.size();
  }
  m_camera->InjectFault("/axis-cgi/record/", {camsim::Fault::Kind::Status, 401});
  LogCapture log;
  bool recording = false;
  EXPECT_FALSE(m_device.GetRecordingStatus(&recording));
  EXPECT_TRUE(log.Contains("]GetRecordingList failed.[")) << log.All();
}

// The month view on answers in the local-time form "%Y-%m-%d %H:%M:%S".
std::string LocalAnswer(const std::vector<std::pair<std::string, std::string>>& spans) {
  std::string body = "<root><recordings>";
  for (const auto& [start, stop] : spans) {
    body += "<recording recordingid=\"r\" starttime=\"2024-01-01T00:00:00Z\" stoptime=\"\" starttimelocal=\"" + start +
            "\" stoptimelocal=\"" + stop + "\" recordingstatus=\"completed\"/>";
  }
  return body + "</recordings></root>";
}

std::shared_ptr<Tarn::Proto::IProto> MonthRequest(int startDay, int startMonth, int endDay, int endMonth) {
  auto request = std::make_shared<Tarn::Proto::CRapidJsonProto>();
  const std::string text =
      "{\"method\":\"SearchCameraRecordByMonth\",\"params\":{\"utc\":{\"start\":{\"year\":2024,"
      "\"month\":" +
      std::to_string(startMonth) + ",\"day\":" + std::to_string(startDay) +
      ",\"hour\":0,\"min\":0,\"sec\":0},\"end\":{\"year\":2024,\"month\":" + std::to_string(endMonth) +
      ",\"day\":" + std::to_string(endDay) + ",\"hour\":23,\"min\":59,\"sec\":59}}}}";
  EXPECT_TRUE(request->set_str(text));
  return request;
}

TEST_F(RecordingSearch, MonthViewMarksTheDaysWithRecordings) {
  struct MonthCase {
    const char* name;
    std::shared_ptr<Tarn::Proto::IProto> request;
    std::string answer;
    std::string result;  // "" = no /result written
    bool warning;
  };
  const MonthCase cases[] = {
      {"February from day 1", MonthRequest(1, 2, 29, 2),
       LocalAnswer({{"2024-02-27 22:00:00", "2024-03-01 01:00:00"}, {"2024-01-31 23:00:00", "2024-02-01 02:00:00"}}),
       "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,1,1,1,1", false},
      {"a page from January 28 to March 9", MonthRequest(28, 1, 9, 3),
       LocalAnswer({{"2024-02-02 10:00:00", "2024-02-03 10:00:00"}, {"2024-03-02 10:00:00", "2024-03-02 11:00:00"}}),
       "0,1,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0", true},
      {"empty recordings", MonthRequest(1, 2, 29, 2), LocalAnswer({}), kNoDays, false},
      {"no root", MonthRequest(1, 2, 29, 2), "<html>busy</html>", "", false},
      {"no recordings", MonthRequest(1, 2, 29, 2), "<root/>", "", false},
  };
  for (const MonthCase& c : cases) {
    SCOPED_TRACE(c.name);
    m_camera->Script("/axis-cgi/record/list.cgi", {200, "text/xml", c.answer, {}});
    LogCapture log;
    std::shared_ptr<Tarn::Proto::IProto> response;
    EXPECT_EQ(m_device.SearchRecordByMonth(c.request, response), 0) << log.All();
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->GetString("/result", ""), c.result);
    EXPECT_EQ(log.Contains("]end_month - start_month > 1["), c.warning) << log.All();
  }
  // The camera's window is the page as asked for, not the month.
  const std::vector<camsim::ReceivedRequest> requests = m_camera->Requests();
  EXPECT_NE(requests.back().query.find("starttime=2024-02-01T00:00:00.000Z&stoptime=2024-02-29T23:59:59.000Z"),
            std::string::npos)
      << requests.back().query;

  LogCapture log;
  std::shared_ptr<Tarn::Proto::IProto> response;
  EXPECT_EQ(m_device.SearchRecordByMonth(nullptr, response), -1);
  m_camera->InjectFault("/axis-cgi/record/", {camsim::Fault::Kind::Status, 503});
  EXPECT_EQ(m_device.SearchRecordByMonth(MonthRequest(1, 2, 29, 2), response), -1);
  EXPECT_TRUE(log.Contains("]SendHttpPostReqWithRsp failed[")) << log.All();
  EXPECT_TRUE(log.Contains("]NetcamPlugin: CRapidJsonProto == NULL[")) << log.All();
}

TEST_F(RecordingSearch, MonthViewOfTheSimulatorsOwnFormatMarksNothing) {
  // The cameras write local times with a "T" and an offset; the month view's pattern does not read them.
  m_camera->SetRecordings({{"20240210_100000_0001_B8A44F9D7D55", 1707559200, 1707562800, "h264"}});
  std::shared_ptr<Tarn::Proto::IProto> response;
  EXPECT_EQ(m_device.SearchRecordByMonth(MonthRequest(1, 2, 29, 2), response), 0);
  EXPECT_EQ(response->GetString("/result", ""), kNoDays);
}

}  // namespace
