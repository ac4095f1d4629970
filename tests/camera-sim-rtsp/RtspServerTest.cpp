// The simulator's RTSP server as a plain socket sees it: authentication, the
// answers clients parse, live pause and play, DisconnectAll and Stop.
#include <chrono>
#include <thread>

#include "RtspTestPeer.h"
#include "TestServer.h"

namespace camsim_test {
namespace {

using namespace std::chrono_literals;
using netcam_test::RtspExchange;
using netcam_test::RtspText;

// A live session by hand: SETUP interleaved, PLAY, and packets arrive. Returns the aggregate URL.
std::string PlayLive(RtspExchange* exchange, const std::string& url) {
  const std::string base = exchange->Request("DESCRIBE", url).Header("Content-Base");
  EXPECT_EQ(exchange->Request("SETUP", base + "stream=0", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n").status,
            200);
  EXPECT_EQ(exchange->Request("PLAY", base, "Range: npt=0.000-\r\n").status, 200);
  EXPECT_EQ(exchange->Receive(10s).channel, 0);
  return base;
}

using RtspServerTest = RtspServerFixture;

TEST_F(RtspServerTest, AnswersAsTheCamerasDoAndPausesLive) {
  RtspExchange anonymous("", "");
  ASSERT_TRUE(anonymous.Connect(m_address, m_server->Port()));
  RtspText refused = anonymous.Request("DESCRIBE", Url("recordingid=nope"));  // authentication comes first
  EXPECT_EQ(refused.status, 401);
  const std::string challenge = refused.Header("WWW-Authenticate");
  EXPECT_EQ(challenge.rfind("Digest realm=\"AXIS_B8A44F9D7D55\", nonce=\"", 0), 0u) << challenge;
  EXPECT_EQ(challenge.find("qop"), std::string::npos);

  RtspExchange exchange("root", "p@ss:word");
  ASSERT_TRUE(exchange.Connect(m_address, m_server->Port()));
  EXPECT_EQ(exchange.Request("DESCRIBE", Url("recordingid=nope")).status, 404);
  EXPECT_EQ(exchange.Request("DESCRIBE", Url("videocodec=mjpeg")).status, 400);
  // The connection stays usable after refusals.
  RtspText answer = exchange.Request("DESCRIBE", Url("videocodec=h264&camera=1"));
  const std::string base = "rtsp://" + m_address + ":" + std::to_string(m_server->Port()) + "/axis-media/media.amp/";
  EXPECT_EQ(answer.Header("Content-Base"), base);
  for (const char* line : {"a=control:stream=0", "a=rtpmap:96 H264/90000", "sprop-parameter-sets="}) {
    EXPECT_NE(answer.body.find(line), std::string::npos) << answer.body;
  }
  PlayLive(&exchange, Url("videocodec=h264"));
  EXPECT_EQ(exchange.Request("PAUSE", base).status, 200);
  EXPECT_EQ(exchange.Request("PLAY", base).status, 200);
  EXPECT_EQ(exchange.Receive(10s).channel, 0);
  EXPECT_EQ(exchange.Request("GET_PARAMETER", base).status, 200);  // the keep-alive clients send
  EXPECT_EQ(exchange.Request("TEARDOWN", base).status, 200);
}

TEST_F(RtspServerTest, DisconnectAllAndStopCloseEveryConnection) {
  RtspExchange first("root", "p@ss:word"), second("root", "p@ss:word"), again("root", "p@ss:word");
  ASSERT_TRUE(first.Connect(m_address, m_server->Port()) && second.Connect(m_address, m_server->Port()));
  PlayLive(&first, Url("videocodec=h264"));
  PlayLive(&second, Url("videocodec=h265"));
  for (int i = 0; i < 1500 && m_server->ClientCount() != 2; ++i) std::this_thread::sleep_for(20ms);
  m_server->DisconnectAll();
  for (RtspExchange* exchange : {&first, &second}) {
    // Packets already on their way may still come; then the connection ends.
    while (exchange->Receive(10s).channel >= 0) {
    }
    EXPECT_TRUE(exchange->Closed());
  }
  // The camera is back: a new client plays again, until Stop ends it too (twice is harmless).
  ASSERT_TRUE(again.Connect(m_address, m_server->Port()));
  PlayLive(&again, Url("videocodec=h264"));
  m_server->Stop();
  while (again.Receive(10s).channel >= 0) {
  }
  EXPECT_TRUE(again.Closed());
  m_server->Stop();
}

TEST(RtspServerStartTest, AnAddressInUseIsAClearError) {
  const std::string address = netcam_test::UniqueLoopbackAddress(0);
  camsim::RtspServer first(TestConfig(address));
  std::string error;
  ASSERT_TRUE(first.Start(&error)) << error;
  camsim::RtspConfig same = TestConfig(address);
  same.port = first.Port();
  EXPECT_FALSE(camsim::RtspServer(same).Start(&error));
  EXPECT_NE(error.find("cannot listen on " + address), std::string::npos) << error;
}

}  // namespace
}  // namespace camsim_test
