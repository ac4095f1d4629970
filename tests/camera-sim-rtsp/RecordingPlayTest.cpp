// Recordings: a hand-made exchange plays a clock range (which ffmpeg cannot
// send), pauses and resumes it, and sees it end.
#include <chrono>
#include <set>

#include "RtspTestPeer.h"
#include "TestServer.h"

namespace camsim_test {
namespace {

using namespace std::chrono_literals;
using netcam_test::InterleavedPacket;
using netcam_test::RtspExchange;
using netcam_test::RtspText;

constexpr uint32_t kFrameTicks = 90000 / 25;

uint32_t RtpTimestamp(const std::vector<uint8_t>& packet) {
  return (uint32_t{packet[4]} << 24) | (uint32_t{packet[5]} << 16) | (uint32_t{packet[6]} << 8) | packet[7];
}

bool HasRtcpBye(const std::vector<uint8_t>& compound) {
  size_t pos = 0;
  while (pos + 4 <= compound.size()) {
    if (compound[pos + 1] == 203) return true;
    pos += (((size_t{compound[pos + 2]} << 8) | compound[pos + 3]) + 1) * 4;
  }
  return false;
}

// What arrived on the interleaved channels until the server said BYE.
struct Received {
  std::vector<uint32_t> frameTimestamps;  // one per picture, in arrival order
  bool bye = false;
};

// Reads packets until BYE; stops early, without BYE, after `maxFrames` pictures.
void ReadUntilBye(RtspExchange* exchange, Received* received, size_t maxFrames = SIZE_MAX) {
  while (received->frameTimestamps.size() < maxFrames) {
    InterleavedPacket packet = exchange->Receive(15s);
    if (packet.channel < 0) return;
    if (packet.channel == 1 && HasRtcpBye(packet.data)) {
      received->bye = true;
      return;
    }
    if (packet.channel == 0 && packet.data.size() >= 12) {
      const uint32_t timestamp = RtpTimestamp(packet.data);
      if (received->frameTimestamps.empty() || received->frameTimestamps.back() != timestamp) {
        received->frameTimestamps.push_back(timestamp);
      }
    }
  }
}

class RecordingPlayTest : public RtspServerFixture {
 protected:
  // DESCRIBE and SETUP of the test recording; returns the aggregate URL.
  std::string SetUpRecording(RtspExchange* exchange) {
    EXPECT_TRUE(exchange->Connect(m_address, m_server->Port()));
    RtspText describe = exchange->Request("DESCRIBE", Url(std::string("recordingid=") + kRecordingId));
    EXPECT_EQ(describe.status, 200);
    EXPECT_NE(describe.body.find("a=range:npt=0-120"), std::string::npos) << describe.body;
    const std::string base = describe.Header("Content-Base");
    EXPECT_EQ(
        exchange->Request("SETUP", base + "stream=0", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n").status,
        200);
    return base;
  }
};

TEST_F(RecordingPlayTest, ClockRangePlaysThatSpanAndEndsOrIsRefused) {
  RtspExchange exchange("root", "p@ss:word");
  const std::string base = SetUpRecording(&exchange);
  EXPECT_EQ(exchange.Request("PLAY", base, "Range: clock=20240621T160000Z-20240621T160010Z\r\n").status, 457);
  EXPECT_EQ(exchange.Request("PLAY", base, "Range: clock=garbage-\r\n").status, 400);
  // The session is still there for a range that fits: 35 s into the recording, 4 s long.
  RtspText play = exchange.Request("PLAY", base, "Range: clock=20240621T151800Z-20240621T151804Z\r\n");
  ASSERT_EQ(play.status, 200);
  EXPECT_EQ(play.Header("Range"), "clock=20240621T151800Z-20240621T151804Z");
  const std::string rtpInfo = play.Header("RTP-Info");
  ASSERT_NE(rtpInfo.find("url=" + base + "stream=0"), std::string::npos) << rtpInfo;
  const size_t rtptimeAt = rtpInfo.find("rtptime=");
  ASSERT_NE(rtptimeAt, std::string::npos) << rtpInfo;
  const uint32_t announced = static_cast<uint32_t>(std::stoul(rtpInfo.substr(rtptimeAt + 8)));

  Received received;
  ReadUntilBye(&exchange, &received);
  EXPECT_TRUE(received.bye);
  ASSERT_FALSE(received.frameTimestamps.empty());
  EXPECT_EQ(received.frameTimestamps.front(), announced);
  // Exactly the pictures of the 4 s asked for, at 25 per second.
  EXPECT_EQ(received.frameTimestamps.size(), 100u);
  EXPECT_EQ(received.frameTimestamps.back() - received.frameTimestamps.front(), 99 * kFrameTicks);
  EXPECT_EQ(exchange.Request("TEARDOWN", base).status, 200);
}

TEST_F(RecordingPlayTest, PauseAndPlayResumeWhereItStopped) {
  RtspExchange exchange("root", "p@ss:word");
  const std::string base = SetUpRecording(&exchange);
  ASSERT_EQ(exchange.Request("PLAY", base, "Range: clock=20240621T151900Z-20240621T151903Z\r\n").status, 200);
  Received received;
  ReadUntilBye(&exchange, &received, 20);
  ASSERT_FALSE(received.bye);
  EXPECT_EQ(exchange.Request("PAUSE", base).status, 200);
  EXPECT_EQ(exchange.Request("PLAY", base).status, 200);
  ReadUntilBye(&exchange, &received);
  EXPECT_TRUE(received.bye);
  // No picture is repeated or skipped across the pause.
  const std::set<uint32_t> distinct(received.frameTimestamps.begin(), received.frameTimestamps.end());
  EXPECT_EQ(distinct.size(), received.frameTimestamps.size());
  EXPECT_EQ(received.frameTimestamps.size(), 75u);
}

}  // namespace
}  // namespace camsim_test
