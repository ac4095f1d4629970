// MDClient against the simulator's RTSP server (GStreamer): an independent
// RTSP implementation with the cameras' Digest authentication.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "LoopbackAddress.h"
#include "ClientSink.h"
#include "MDClient.h"
#include "camera_sim/RtspServer.h"

namespace {

using namespace std::chrono_literals;
using mdclient_test::OpenClient;
using mdclient_test::Sink;

constexpr const char* kRecordingId = "20240621_151725_95E7_B8A44F9D7D55";
constexpr int64_t kRecordingStart = 1718983045;  // 2024-06-21T15:17:25Z

class MdcCameraSimTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_address = netcam_test::UniqueLoopbackAddress(0);
    camsim::RtspConfig config;
    config.address = m_address;
    config.port = 0;
    config.user = "root";
    config.password = "p@ss:word";
    config.findRecording = [](const std::string& id) -> std::optional<camsim::RecordingClip> {
      if (id != kRecordingId) return std::nullopt;
      camsim::RecordingClip clip;
      clip.id = id;
      clip.startUtc = kRecordingStart;
      clip.stopUtc = kRecordingStart + 120;
      return clip;
    };
    m_server = std::make_unique<camsim::RtspServer>(config);
    std::string error;
    ASSERT_TRUE(m_server->Start(&error)) << error;
  }

  // Credentials as the plug-in writes them: raw, ':' and '@' included.
  std::string Url(const std::string& query, const std::string& userInfo = "root:p@ss:word") const {
    return "rtsp://" + (userInfo.empty() ? "" : userInfo + "@") + m_address + ":" + std::to_string(m_server->Port()) +
           "/axis-media/media.amp?" + query;
  }


  std::string m_address;
  std::unique_ptr<camsim::RtspServer> m_server;
};

TEST_F(MdcCameraSimTest, LiveH264AndH265DeliverSdpThenVideo) {
  for (const std::string codec : {"h264", "h265"}) {
    SCOPED_TRACE(codec);
    Sink sink;
    int32_t result = -1;
    int32_t id = OpenClient(Url("videocodec=" + codec + "&camera=1"), sink, &result);
    ASSERT_EQ(result, 0);
    ASSERT_TRUE(sink.WaitForPackets(25));
    {
      std::lock_guard<std::mutex> lock(sink.mutex);
      EXPECT_EQ(sink.types.front(), MDC_DATA_SDP);
      EXPECT_NE(sink.sdp.find(codec == "h264" ? "H264/90000" : "H265/90000"), std::string::npos) << sink.sdp;
      EXPECT_TRUE(sink.messages.empty());
    }
    EXPECT_EQ(MDC_Close(id), 0);
    EXPECT_EQ(MDC_Destroy(id), 0);
  }
}

TEST_F(MdcCameraSimTest, RecordingPlaysClockRangeToTheEnd) {
  Sink sink;
  // 35 s into the recording, 3 s long: the server ends the stream by itself.
  MDC_PlayInfoV1 info{1, 1, 0, 1.0f, 0, (kRecordingStart + 35) * 1e6, (kRecordingStart + 38) * 1e6};
  int32_t result = -1;
  int32_t id = OpenClient(Url(std::string("recordingid=") + kRecordingId), sink, &result, &info);
  ASSERT_EQ(result, 0);
  ASSERT_TRUE(sink.WaitForMessage(MDC_MSG_COMPLETE));
  EXPECT_GT(sink.Count(MDC_DATA_VIDEO), 25u);
  EXPECT_EQ(MDC_Close(id), 0);
  EXPECT_EQ(MDC_Destroy(id), 0);
}

TEST_F(MdcCameraSimTest, PauseAndResume) {
  Sink sink;
  int32_t result = -1;
  int32_t id = OpenClient(Url(std::string("recordingid=") + kRecordingId), sink, &result);
  ASSERT_EQ(result, 0);
  ASSERT_TRUE(sink.WaitForPackets(10));
  MDC_StatusChange change{};
  change.kind = MDC_STATUS_PAUSE;
  EXPECT_EQ(MDC_ChangeStatus(id, &change), 0);
  size_t atResume = sink.Count(MDC_DATA_VIDEO);
  change.kind = MDC_STATUS_RESUME;
  EXPECT_EQ(MDC_ChangeStatus(id, &change), 0);
  EXPECT_TRUE(sink.WaitForPackets(atResume + 10));
  EXPECT_EQ(MDC_Close(id), 0);
  EXPECT_EQ(MDC_Destroy(id), 0);
}

TEST_F(MdcCameraSimTest, MissingOrWrongCredentialsAreRefused) {
  for (const std::string userInfo : {"", "root:wrong"}) {
    Sink sink;
    int32_t result = -1;
    int32_t id = OpenClient(Url("videocodec=h264&camera=1", userInfo), sink, &result);
    EXPECT_EQ(result, static_cast<int32_t>(MDC_ERR_AUTH)) << userInfo;
    EXPECT_EQ(MDC_Destroy(id), 0);
  }
}

TEST_F(MdcCameraSimTest, ServerDisconnectIsReported) {
  Sink sink;
  int32_t result = -1;
  int32_t id = OpenClient(Url("videocodec=h264&camera=1"), sink, &result);
  ASSERT_EQ(result, 0);
  ASSERT_TRUE(sink.WaitForPackets(5));
  m_server->DisconnectAll();
  EXPECT_TRUE(sink.WaitForMessage(MDC_MSG_CLOSED));
  EXPECT_EQ(MDC_Destroy(id), 0);
}

}  // namespace
