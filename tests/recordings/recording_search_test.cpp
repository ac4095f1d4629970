// The search cursor, the recording status and the month view of a device
// object against the simulated camera's record/list.cgi.
#include <gtest/gtest.h>

#include <ctime>

#include "LogCapture.h"
#include "PluginTestSupport.h"
#include "RapidJsonProto.h"
#include "session/axis_device_object_implement.h"

namespace {

constexpr int64_t kJune21 = 1718983045;  // 2024-06-21T15:17:25Z

class RecordingSearch : public ::testing::Test {
 protected:
  void SetUp() override {
    m_camera = StartCamera(HttpOnlyCamera());
    ASSERT_NE(m_camera, nullptr);
    const DeviceLoginParam login = LoginFor(*m_camera);
    ASSERT_EQ(m_device.OpenDevice(&login), 0);
  }
  std::unique_ptr<camsim::Camera> m_camera;
  CPlgDeviceObjectImplement m_device;
  const RecordSearchCondition m_window{0, 0, 0, {2024, 6, 21, 0, 0, 0, {}}, {2024, 6, 24, 0, 0, 0, {}}};
};

TEST_F(RecordingSearch, CursorStepsThroughTheSpanThenSaysNoMore) {
  LogCapture log;
  RecordFileInfo file{};
  EXPECT_EQ(m_device.FindNextRecordFile(&file), -1);
  EXPECT_TRUE(log.Contains("]First call the interface FindRecordFiles.[")) << log.All();
  // Listed out of order; the last one is still recording.
  m_camera->SetRecordings({{"B", kJune21 + 60000, kJune21 + 63600, "h265"},
                           {"A", kJune21, kJune21 + 3600, "h264"},
                           {"C", kJune21 + 160000, 0, "h264"}});
  ASSERT_EQ(m_device.FindRecordFiles(&m_window), 0) << log.All();
  EXPECT_TRUE(log.Contains("starttime=2024-06-21T00:00:00.000Z&stoptime=2024-06-24T00:00:00.000Z")) << log.All();
  const struct {
    const char* id;
    int32_t start[6], end[6];
  } expected[] = {{"A", {2024, 6, 21, 15, 17, 25}, {2024, 6, 21, 16, 17, 25}},
                  {"B", {2024, 6, 22, 7, 57, 25}, {2024, 6, 22, 8, 57, 25}},
                  {"C", {2024, 6, 23, 11, 44, 5}, {2024, 6, 24, 0, 0, 0}}};  // ends with the window
  for (const auto& e : expected) {
    std::memset(&file, 0x5a, sizeof file);
    ASSERT_EQ(m_device.FindNextRecordFile(&file), 1000) << e.id;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&file);
    EXPECT_STREQ(reinterpret_cast<const char*>(bytes + 4), e.id);
    EXPECT_EQ(std::memcmp(bytes + 516, "\0\0\0\0", 4) | std::memcmp(bytes + 524, "\0\0\0\0", 4), 0);
    EXPECT_EQ(bytes[988], '1');
    EXPECT_EQ(std::memcmp(bytes + 528, e.start, 24), 0) << e.id;
    EXPECT_EQ(std::memcmp(bytes + 624, e.end, 24), 0) << e.id;
  }
  EXPECT_EQ(m_device.FindNextRecordFile(&file) + m_device.FindNextRecordFile(&file), 2006);  // and stays there
  EXPECT_EQ(m_device.CloseFindRecord(), 0);
  EXPECT_EQ(m_device.FindNextRecordFile(&file), -1);
}

TEST_F(RecordingSearch, FailedSearchesAnswerFailureThenNoMoreFiles) {
  const std::pair<camsim::Fault, const char*> cases[] = {
      {{camsim::Fault::Kind::Status, 500, "oops"}, "]GetRecordingList failed, url["},
      {{camsim::Fault::Kind::Drop}, "]GetRecordingList failed, url["},
      {{camsim::Fault::Kind::Huge, 200, "", {}, "", 8u << 20}, "]No corresponding node data was parsed(root), data["},
      {{camsim::Fault::Kind::Garbage, 200, "<root/>"}, "]No corresponding node data was parsed(recordings), data["},
  };
  for (const auto& [fault, logged] : cases) {
    m_camera->InjectFault("/axis-cgi/record/", fault);
    LogCapture log;
    EXPECT_EQ(m_device.FindRecordFiles(&m_window), -1);
    EXPECT_TRUE(log.Contains(logged) && log.Contains("]GetRecordingList failed.[")) << log.All();
    RecordFileInfo file{};
    EXPECT_EQ(m_device.FindNextRecordFile(&file), 1003);
  }
  bool recording = true;
  EXPECT_FALSE(m_device.GetRecordingStatus(&recording));
}

TEST_F(RecordingSearch, StatusTellsWhetherTheCameraIsRecordingNow) {
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  for (const bool going : {true, false}) {
    m_camera->SetRecordings(
        {{"done", now - 7200, now - 3600, "h264"}, {"old", now - 5 * 86400, going ? 0 : now - 4 * 86400, "h264"}});
    bool recording = !going;
    EXPECT_TRUE(m_device.GetRecordingStatus(&recording));
    EXPECT_EQ(recording, going);
  }
}

// Month view requests from `startDay` of `startMonth` to `endDay` of `endMonth`, 2024.
std::shared_ptr<Tarn::Proto::IProto> MonthRequest(int startDay, int startMonth, int endDay, int endMonth) {
  auto request = std::make_shared<Tarn::Proto::CRapidJsonProto>();
  char text[400];
  std::snprintf(
      text, sizeof text,
      "{\"params\":{\"utc\":{\"start\":{\"year\":2024,\"month\":%d,\"day\":%d,\"hour\":0,\"min\":0,\"sec\":0},"
      "\"end\":{\"year\":2024,\"month\":%d,\"day\":%d,\"hour\":23,\"min\":59,\"sec\":59}}}}",
      startMonth, startDay, endMonth, endDay);
  EXPECT_TRUE(request->set_str(text));
  return request;
}

TEST_F(RecordingSearch, MonthViewMarksTheDaysWithRecordings) {
  // Answers in the month view's local form "%Y-%m-%d %H:%M:%S"; only the first and the last of them mark days.
  std::string answer = "<root><recordings>";
  for (const char* span : {"2024-02-27 22:00:00|2024-03-01 01:00:00", "2024-01-31 23:00:00|2024-02-01 02:00:00",
                           "2024-02-10 10:00:00|2024-04-01 00:00:00", "2023-02-10 10:00:00|2023-02-11 10:00:00",
                           "2024-02-10T10:00:00.000000+02:00|2024-02-10T11:00:00.000000+02:00", "2024-02-10 10:00:00|",
                           "2024-02-02 10:00:00|2024-02-03 10:00:00"}) {
    const std::string text = span;
    answer += "<recording starttime=\"2024\" stoptime=\"\" starttimelocal=\"" + text.substr(0, text.find('|')) +
              "\" stoptimelocal=\"" + text.substr(text.find('|') + 1) + "\"/>";
  }
  answer += "</recordings></root>";
  const std::string marked = "0,1,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,1,1,1,1";
  const std::string none = "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0";
  const struct {
    int startDay, startMonth, endDay, endMonth;
    std::string answer, result;  // no "/result" when empty
    bool warning;
  } cases[] = {{1, 2, 29, 2, answer, marked, false},  // starts on day 1: February
               {28, 1, 9, 3, answer, marked, true},   // January 28 to March 9: the month in between
               {1, 2, 29, 2, "<root><recordings/></root>", none, false},
               {1, 2, 29, 2, "<html>busy</html>", "", false},
               {1, 2, 29, 2, "<root/>", "", false}};
  for (const auto& c : cases) {
    m_camera->Script("/axis-cgi/record/list.cgi", {200, "text/xml", c.answer, {}});
    LogCapture log;
    std::shared_ptr<Tarn::Proto::IProto> response;
    EXPECT_EQ(m_device.SearchRecordByMonth(MonthRequest(c.startDay, c.startMonth, c.endDay, c.endMonth), response), 0);
    EXPECT_EQ(response->GetString("/result", ""), c.result) << c.answer;
    EXPECT_EQ(log.Contains("]end_month - start_month > 1["), c.warning) << log.All();
  }
  // The camera's window is the page as asked for, not the month.
  EXPECT_NE(
      m_camera->Requests().back().query.find("starttime=2024-02-01T00:00:00.000Z&stoptime=2024-02-29T23:59:59.000Z"),
      std::string::npos);
  std::shared_ptr<Tarn::Proto::IProto> response;
  EXPECT_EQ(m_device.SearchRecordByMonth(nullptr, response), -1);
  m_camera->InjectFault("/axis-cgi/record/", {camsim::Fault::Kind::Status, 503});
  LogCapture log;
  EXPECT_EQ(m_device.SearchRecordByMonth(MonthRequest(1, 2, 29, 2), response), -1);
  EXPECT_TRUE(log.Contains("]SendHttpPostReqWithRsp failed[")) << log.All();
}

}  // namespace
