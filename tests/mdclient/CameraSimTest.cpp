// MDClient against the simulator's RTSP server (GStreamer): an independent
// RTSP implementation with the cameras' Digest authentication.
#include <gtest/gtest.h>

#include <mutex>
#include <string>

#include "ClientSink.h"
#include "MDClient.h"
#include "TestServer.h"

namespace {

using camsim_test::kRecordingId;
using camsim_test::kRecordingStart;
using mdclient_test::OpenClient;
using mdclient_test::Sink;

class MdcCameraSimTest : public camsim_test::RtspServerFixture {
 protected:
  // Credentials as the plug-in writes them: raw, ':' and '@' included.
  std::string Url(const std::string& query, const std::string& userInfo = "root:p@ss:word") const {
    return "rtsp://" + (userInfo.empty() ? "" : userInfo + "@") + m_address + ":" + std::to_string(m_server->Port()) +
           "/axis-media/media.amp?" + query;
  }
};

TEST_F(MdcCameraSimTest, LiveH264AndH265DeliverSdpThenVideoToTheRightCredentials) {
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
  Sink refused;
  int32_t result = -1;
  EXPECT_EQ(MDC_Destroy(OpenClient(Url("videocodec=h264", "root:wrong"), refused, &result)), 0);
  EXPECT_EQ(result, static_cast<int32_t>(MDC_ERR_AUTH));
}

TEST_F(MdcCameraSimTest, RecordingPlaysClockRangeToTheEnd) {
  Sink sink;
  // 35 s into the recording, 3 s long: the server ends the stream by itself.
  MDC_PlayInfoV1 info{1, 1, 0, 1.0f, 0, (kRecordingStart + 35) * 1e6, (kRecordingStart + 38) * 1e6};
  int32_t result = -1;
  int32_t id = OpenClient(Url(std::string("recordingid=") + kRecordingId), sink, &result, &info);
  ASSERT_EQ(result, 0);
  ASSERT_TRUE(sink.WaitForMessage(MDC_MSG_COMPLETE));
  EXPECT_EQ(MDC_Close(id), 0);
  EXPECT_GT(sink.Count(MDC_DATA_VIDEO), 25u);  // no callback runs after close
  EXPECT_EQ(MDC_Destroy(id), 0);
}

}  // namespace
