// The simulator's RTSP server as ffprobe and a plain socket see it: live
// streams, authentication, errors, DisconnectAll and several servers at once.
#include <chrono>
#include <thread>
#include <vector>

#include "RtspTestPeer.h"
#include "TestServer.h"

namespace camsim_test {
namespace {

using namespace std::chrono_literals;
using netcam_test::RtspExchange;
using netcam_test::RtspText;

bool WaitFor(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 30s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(20ms);
  }
  return true;
}

using RtspServerTest = RtspServerFixture;

TEST_F(RtspServerTest, FfprobeReadsLiveH264AndH265) {
  EXPECT_NE(Probe(Url("videocodec=h264")).find("codec_name=h264"), std::string::npos);
  EXPECT_NE(Probe(Url("videocodec=h265&camera=1")).find("codec_name=hevc"), std::string::npos);
}

TEST_F(RtspServerTest, CredentialsAreRequired) {
  EXPECT_NE(Probe(Url("videocodec=h264", false)).find("401"), std::string::npos);
  RtspExchange anonymous("", "");
  ASSERT_TRUE(anonymous.Connect(m_address, m_server->Port()));
  RtspText answer = anonymous.Request("DESCRIBE", Url("recordingid=nope", false));  // authentication comes first
  EXPECT_EQ(answer.status, 401);
  const std::string challenge = answer.Header("WWW-Authenticate");
  EXPECT_EQ(challenge.rfind("Digest realm=\"AXIS_B8A44F9D7D55\", nonce=\"", 0), 0u) << challenge;
  EXPECT_EQ(challenge.find("qop"), std::string::npos);
}

// A live session by hand: SETUP interleaved, PLAY, and packets arrive.
void PlayLive(RtspExchange* exchange, const std::string& url) {
  RtspText describe = exchange->Request("DESCRIBE", url);
  ASSERT_EQ(describe.status, 200);
  const std::string base = describe.Header("Content-Base");
  ASSERT_EQ(exchange->Request("SETUP", base + "stream=0", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n").status,
            200);
  ASSERT_EQ(exchange->Request("PLAY", base, "Range: npt=0.000-\r\n").status, 200);
  EXPECT_EQ(exchange->Receive(10s).channel, 0);
}

TEST_F(RtspServerTest, AnswersAsTheCamerasDoAndPausesLive) {
  RtspExchange exchange("root", "p@ss:word");
  ASSERT_TRUE(exchange.Connect(m_address, m_server->Port()));
  EXPECT_EQ(exchange.Request("DESCRIBE", Url("recordingid=nope", false)).status, 404);
  EXPECT_EQ(exchange.Request("DESCRIBE", Url("videocodec=mjpeg", false)).status, 400);
  // The connection stays usable after refusals.
  RtspText answer = exchange.Request("DESCRIBE", Url("videocodec=h264&camera=1", false));
  ASSERT_EQ(answer.status, 200);
  const std::string base = "rtsp://" + m_address + ":" + std::to_string(m_server->Port()) + "/axis-media/media.amp/";
  EXPECT_EQ(answer.Header("Content-Base"), base);
  for (const char* line : {"a=control:stream=0", "a=rtpmap:96 H264/90000", "sprop-parameter-sets="}) {
    EXPECT_NE(answer.body.find(line), std::string::npos) << answer.body;
  }
  PlayLive(&exchange, Url("videocodec=h264", false));
  EXPECT_EQ(exchange.Request("PAUSE", base).status, 200);
  EXPECT_EQ(exchange.Request("PLAY", base).status, 200);
  EXPECT_EQ(exchange.Receive(10s).channel, 0);
  EXPECT_EQ(exchange.Request("GET_PARAMETER", base).status, 200);  // the keep-alive clients send
  EXPECT_EQ(exchange.Request("TEARDOWN", base).status, 200);
}

TEST_F(RtspServerTest, DisconnectAllAndStopCloseEveryConnection) {
  RtspExchange first("root", "p@ss:word"), second("root", "p@ss:word");
  ASSERT_TRUE(first.Connect(m_address, m_server->Port()));
  ASSERT_TRUE(second.Connect(m_address, m_server->Port()));
  PlayLive(&first, Url("videocodec=h264", false));
  PlayLive(&second, Url("videocodec=h265", false));
  ASSERT_TRUE(WaitFor([&] { return m_server->ClientCount() == 2; })) << m_server->ClientCount();

  m_server->DisconnectAll();
  for (RtspExchange* exchange : {&first, &second}) {
    // Packets already on their way may still come; then the connection ends.
    while (exchange->Receive(10s).channel >= 0) {
    }
    EXPECT_TRUE(exchange->Closed());
  }
  EXPECT_TRUE(WaitFor([&] { return m_server->ClientCount() == 0; }));

  // The camera is back: a new client plays again.
  RtspExchange again("root", "p@ss:word");
  ASSERT_TRUE(again.Connect(m_address, m_server->Port()));
  PlayLive(&again, Url("videocodec=h264", false));
  // Stop ends streaming clients too, and a second Stop is harmless.
  m_server->Stop();
  while (again.Receive(10s).channel >= 0) {
  }
  EXPECT_TRUE(again.Closed());
  m_server->Stop();
}

TEST(RtspServerStartTest, StartReportsSetUpFaults) {
  const std::string address = netcam_test::UniqueLoopbackAddress(0);
  camsim::RtspConfig config = TestConfig(address);
  config.mediaDir = "/nonexistent/media";
  std::string error;
  EXPECT_FALSE(camsim::RtspServer(config).Start(&error));
  EXPECT_NE(error.find("/nonexistent/media/clip.h264"), std::string::npos) << error;

  camsim::RtspServer first(TestConfig(address));
  ASSERT_TRUE(first.Start(&error)) << error;
  camsim::RtspConfig same = TestConfig(address);
  same.port = first.Port();
  camsim::RtspServer second(same);
  error.clear();
  EXPECT_FALSE(second.Start(&error));
  EXPECT_NE(error.find("cannot listen on " + address), std::string::npos) << error;
}

}  // namespace
}  // namespace camsim_test
