// MDClient against a scripted RTSP peer on a private loopback address.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ClientSink.h"
#include "LogCapture.h"
#include "MDClient.h"
#include "RtspTestPeer.h"
#include "SessionSettings.h"

namespace mdclient_test {
namespace {

using namespace std::chrono_literals;
using netcam_test::CameraScript;
using netcam_test::PeerConnection;
using netcam_test::RtpPacket;
using netcam_test::RtspText;
using netcam_test::ScriptedRtspPeer;
constexpr int32_t kNoSession = MDC_ERR_NO_SESSION;

// Sessions made while it lives see a dead camera after 1 s instead of 10.
struct ShortBounds {
  explicit ShortBounds(size_t queueBytes = mdclient::SessionSettings{}.deliveryQueueBytes) {
    mdclient::SessionSettings settings;
    settings.timeouts.silence = 1s;
    settings.deliveryQueueBytes = queueBytes;
    mdclient::SetDefaultSessionSettings(settings);
  }
  ~ShortBounds() { mdclient::SetDefaultSessionSettings({}); }
};

template <typename Condition>
bool Eventually(Condition condition) {
  for (auto deadline = std::chrono::steady_clock::now() + Sink::kPatience; !condition();) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

TEST(MdcApiTest, RejectsBadArgumentsAndUnknownIds) {
  EXPECT_LT(MDC_Create(nullptr, 0), 0);
  EXPECT_EQ(MDC_Create("http://cam/x", 0), static_cast<int32_t>(MDC_ERR_BAD_URL));
  for (int32_t id : {-1, 4095, 123456}) {
    EXPECT_EQ(MDC_Open(id, &Sink::OnData, nullptr), kNoSession);
    EXPECT_EQ(MDC_Close(id), kNoSession);
    EXPECT_EQ(MDC_Destroy(id), kNoSession);
  }
  int32_t id = MDC_Create("rtsp://user:pw@127.0.0.1/x", 0);
  ASSERT_GE(id, 0);
  EXPECT_EQ(MDC_Open(id, nullptr, nullptr), static_cast<int32_t>(MDC_ERR_INVALID_ARG));
  EXPECT_EQ(MDC_SetInfoV1(id, nullptr), static_cast<int32_t>(MDC_ERR_INVALID_ARG));
  MDC_PlayInfoV1 reversed{1, 1, 0, 1.0f, 0, 2e15, 1e15};
  EXPECT_EQ(MDC_SetInfoV1(id, &reversed), static_cast<int32_t>(MDC_ERR_INVALID_ARG));
  MDC_StatusChange pause{};
  EXPECT_EQ(MDC_ChangeStatus(id, &pause), static_cast<int32_t>(MDC_ERR_STATE));  // not open
  EXPECT_EQ(MDC_Close(id), 0);  // closing a never-opened client is harmless
  EXPECT_EQ(MDC_Destroy(id), 0);
  // A stale id never reaches the session that reuses its slot.
  int32_t next = MDC_Create("rtsp://127.0.0.1/y", 0);
  EXPECT_NE(next, id);
  EXPECT_EQ(MDC_Destroy(id), kNoSession);
  EXPECT_EQ(MDC_Destroy(next), 0);
}

TEST(MdcSessionTest, OpensWithDigestAfter401AndDeliversEachChannelWithItsType) {
  // The URL's last '@' ends the user info.
  ScriptedRtspPeer peer(CameraScript(
      {.user = "root", .password = "p@ss:word", .withAudio = true, .afterPlay = [](PeerConnection& connection) {
         for (uint8_t channel : {0, 2, 1, 3, 9, 0}) {  // 9: no such channel
           connection.SendInterleaved(channel,
                                      channel % 2 ? std::vector<uint8_t>{0x80, 200, 0, 0} : RtpPacket(channel));
         }
       }}));
  Sink sink;
  int32_t result = -1;
  int32_t id = OpenClient(peer.Url("root:p@ss:word"), sink, &result);
  ASSERT_EQ(result, 0);
  ASSERT_TRUE(sink.WaitForPackets(2));
  {
    std::lock_guard<std::mutex> lock(sink.mutex);
    EXPECT_EQ(sink.types, (std::vector<int>{MDC_DATA_SDP, MDC_DATA_VIDEO, MDC_DATA_AUDIO, MDC_DATA_RTCP_VIDEO,
                                            MDC_DATA_RTCP_AUDIO, MDC_DATA_VIDEO}));
    EXPECT_NE(sink.sdp.find("m=video"), std::string::npos);
  }
  EXPECT_EQ(MDC_Close(id), 0);
  EXPECT_EQ(MDC_Destroy(id), 0);

  // DESCRIBE twice (401, then authorized); SETUP per medium on its own channels.
  std::vector<RtspText> describes = peer.RequestsOf("DESCRIBE");
  ASSERT_EQ(describes.size(), 2u);
  EXPECT_EQ(describes[0].Header("Authorization"), "");
  EXPECT_EQ(describes[1].Header("Authorization").rfind("Digest username=\"root\"", 0), 0u);
  std::vector<RtspText> setups = peer.RequestsOf("SETUP");
  ASSERT_EQ(setups.size(), 2u);
  EXPECT_NE(setups[0].uri.find("/trackID=1"), std::string::npos);
  EXPECT_NE(setups[0].Header("Transport").find("interleaved=0-1"), std::string::npos);
  EXPECT_NE(setups[1].Header("Transport").find("interleaved=2-3"), std::string::npos);
  EXPECT_EQ(setups[1].Header("Session"), "8E2F1A");
  ASSERT_EQ(peer.RequestsOf("PLAY").size(), 1u);
  EXPECT_EQ(peer.RequestsOf("PLAY")[0].Header("Range"), "npt=0.000-");
  EXPECT_EQ(peer.RequestsOf("TEARDOWN").size(), 1u);
  for (const RtspText& request : peer.RequestsOf("")) EXPECT_EQ(request.head.find("p@ss"), std::string::npos);
}

// What MDC_Open answers for each way opening can fail.
TEST(MdcSessionTest, OpenFailsWithTheReasonAndNoMessage) {
  ScriptedRtspPeer::Script camera = CameraScript({.user = "root", .password = "pass"});
  struct Case {
    const char* name;
    ScriptedRtspPeer::Script script;
    std::string userInfo;
    int32_t expected;
  } cases[] = {
      {"wrong password", camera, "root:wrong", int32_t(MDC_ERR_AUTH)},
      {"no credentials", camera, "", int32_t(MDC_ERR_AUTH)},
      {"461 on SETUP",
       [camera](PeerConnection& connection, const RtspText& request) {
         request.method == "SETUP" ? connection.Reply(request, 461) : camera(connection, request);
       },
       "root:pass", int32_t(MDC_ERR_STATUS)},
      {"reset while PLAY waits",  // the open fails once, with the reset as its reason
       [camera](PeerConnection& connection, const RtspText& request) {
         request.method == "PLAY" ? connection.Reset() : camera(connection, request);
       },
       "root:pass", int32_t(MDC_ERR_CLOSED)},
      {"silent peer (waits out the answer bound)", [](PeerConnection&, const RtspText&) {}, "",
       int32_t(MDC_ERR_TIMEOUT)},
      {"refused", nullptr, "", int32_t(MDC_ERR_CONNECT)},
  };
  // The address of a peer that is gone: connecting to it is refused.
  const std::string refused = ScriptedRtspPeer([](PeerConnection&, const RtspText&) {}).Url();
  for (const Case& c : cases) {
    LogCapture log;
    ScriptedRtspPeer peer(c.script);
    Sink sink;
    int32_t result = -1;
    int32_t id = OpenClient(c.script ? peer.Url(c.userInfo) : refused, sink, &result);
    EXPECT_EQ(result, c.expected) << c.name;
    EXPECT_EQ(MDC_Open(id, &Sink::OnData, &sink), int32_t(MDC_ERR_STATE)) << "one open per client";
    EXPECT_EQ(MDC_Destroy(id), 0) << c.name;
    EXPECT_TRUE(sink.messages.empty()) << c.name;
    EXPECT_EQ(log.Matching(": open of ").size(), 1u) << c.name;
  }
}

TEST(MdcSessionTest, PlayCarriesClockRangeAndStatusChangesFollow) {
  ScriptedRtspPeer peer(CameraScript({}));
  Sink sink;
  // 2024-06-21T15:17:25Z to 15:27:25.5Z.
  MDC_PlayInfoV1 info{1, 1, 0, 1.0f, 0, 1718983045.0 * 1e6, 1718983645.5 * 1e6};
  int32_t result = -1;
  int32_t id = OpenClient(peer.Url(), sink, &result, &info);
  ASSERT_EQ(result, 0);
  EXPECT_EQ(MDC_SetInfoV1(id, &info), static_cast<int32_t>(MDC_ERR_STATE));  // too late
  struct Step {
    int kind;
    double speed;
    int32_t expected;
  };
  for (Step step :
       {Step{MDC_STATUS_PAUSE, 0, 0}, Step{MDC_STATUS_RESUME, 0, 0}, Step{MDC_STATUS_SPEED, 4.0, 0},
        Step{MDC_STATUS_SPEED, 0, int32_t(MDC_ERR_INVALID_ARG)}, Step{7, 0, int32_t(MDC_ERR_INVALID_ARG)}}) {
    MDC_StatusChange change{};
    change.kind = step.kind;
    change.speed = step.speed;
    EXPECT_EQ(MDC_ChangeStatus(id, &change), step.expected) << step.kind;
  }
  EXPECT_EQ(MDC_Close(id), 0);  // while the peer streams
  sink.closeReturned = true;
  MDC_StatusChange pause{};
  pause.kind = MDC_STATUS_PAUSE;
  EXPECT_EQ(MDC_ChangeStatus(id, &pause), static_cast<int32_t>(MDC_ERR_STATE));
  EXPECT_EQ(MDC_Destroy(id), 0);
  EXPECT_EQ(sink.afterClose, 0);
  EXPECT_EQ(sink.messages, std::vector<int>{});  // no message for our own close

  std::vector<RtspText> plays = peer.RequestsOf("PLAY");
  ASSERT_EQ(plays.size(), 3u);
  EXPECT_EQ(plays[0].Header("Range"), "clock=20240621T151725.000Z-20240621T152725.500Z");
  EXPECT_EQ(plays[1].Header("Range") + plays[1].Header("Scale"), "");
  EXPECT_EQ(plays[2].Header("Scale"), "4.000");
  EXPECT_EQ(peer.RequestsOf("PAUSE").size(), 1u);
  EXPECT_EQ(plays[0].uri, peer.Url() + "/");  // aggregate control "*" means the Content-Base itself
}

TEST(MdcSessionTest, KeepAliveUsesGetParameterOrOptions) {
  for (bool offerGetParameter : {true, false}) {
    ScriptedRtspPeer peer(CameraScript({.offerGetParameter = offerGetParameter, .sessionTimeout = 2}));
    Sink sink;
    int32_t result = -1;
    int32_t id = OpenClient(peer.Url(), sink, &result);
    ASSERT_EQ(result, 0);
    const char* expected = offerGetParameter ? "GET_PARAMETER" : "OPTIONS";
    const size_t before = peer.RequestsOf(expected).size();
    ASSERT_TRUE(Eventually([&] { return peer.RequestsOf(expected).size() > before; })) << expected;
    EXPECT_EQ(peer.RequestsOf(expected).back().Header("Session"), "8E2F1A");
    EXPECT_EQ(MDC_Destroy(id), 0);
  }
}

std::vector<uint8_t> RtcpSenderReportAndBye() {
  std::vector<uint8_t> packet = {0x80, 200, 0, 6};  // SR, 28 bytes
  packet.resize(28, 0);
  packet.insert(packet.end(), {0x81, 203, 0, 1, 0x12, 0x34, 0x56, 0x78});
  return packet;
}

// Faults after PLAY, each with the one message it must produce.
TEST(MdcSessionTest, ReportsWhatTheServerDidOnceEach) {
  struct Case {
    const char* name;
    std::function<void(PeerConnection&)> afterPlay;
    int message;
  } cases[] = {
      {"server closes",
       [](PeerConnection& connection) {
         for (uint16_t i = 0; i < 20; ++i) connection.SendInterleaved(0, RtpPacket(i));
         connection.Close();
       },
       MDC_MSG_CLOSED},
      {"RTCP BYE, then close",  // hanging up after BYE is no second event
       [](PeerConnection& connection) {
         for (uint16_t i = 0; i < 5; ++i) connection.SendInterleaved(0, RtpPacket(i));
         connection.SendInterleaved(1, RtcpSenderReportAndBye());
         connection.Close();
       },
       MDC_MSG_COMPLETE},
      {"garbage",
       [](PeerConnection& connection) {
         connection.SendInterleaved(0, RtpPacket(1));
         std::string junk(4096, '\0');
         for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<char>(i * 131 + 7);
         connection.Send(junk);
       },
       MDC_MSG_CLOSED},
      {"stray binary answers, then close",  // logged once, escaped and cut
       [](PeerConnection& connection) {
         for (int i = 0; i < 50; ++i)
           connection.Send("RTSP/1.0 200 \x01\xfe" + std::string(300, 'x') + "\r\nCSeq: 999\r\n\r\n");
         connection.Close();
       },
       MDC_MSG_CLOSED},
  };
  for (const Case& c : cases) {
    LogCapture log;
    ScriptedRtspPeer peer(CameraScript({.afterPlay = c.afterPlay}));
    Sink sink;
    int32_t result = -1;
    int32_t id = OpenClient(peer.Url(), sink, &result);
    ASSERT_EQ(result, 0) << c.name;
    ASSERT_TRUE(sink.WaitForMessage()) << c.name;
    EXPECT_EQ(MDC_Close(id), 0);
    EXPECT_EQ(MDC_Destroy(id), 0);
    std::lock_guard<std::mutex> lock(sink.mutex);
    EXPECT_EQ(sink.messages, std::vector<int>{c.message}) << c.name;
    EXPECT_EQ(sink.types.front(), MDC_DATA_SDP) << c.name;
    EXPECT_LE(log.Matching(" answer ").size(), 1u) << c.name;
    for (char byte : log.All()) ASSERT_TRUE(byte == '\n' || (byte >= 0x20 && byte < 0x7f)) << c.name;
  }
}

// Closes (and destroys) its own client from inside the data callback.
struct SelfClosing {
  std::atomic<int> packets{0}, afterClose{0};
  std::atomic<int32_t> closeResult{-1}, destroyResult{-1};
  std::atomic<bool> closed{false};

  static void OnData(int32_t clientId, int32_t type, const uint8_t*, int32_t, void* user) {
    auto* self = static_cast<SelfClosing*>(user);
    if (self->closed) ++self->afterClose;
    if (type != MDC_DATA_VIDEO || ++self->packets != 3) return;
    self->closeResult = MDC_Close(clientId);
    self->destroyResult = MDC_Destroy(clientId);
    self->closed = true;
  }
};

TEST(MdcSessionTest, CloseFromInsideOwnCallbackDoesNotDeadlock) {
  ScriptedRtspPeer peer(CameraScript({}));
  SelfClosing state;
  int32_t id = MDC_Create(peer.Url().c_str(), 0);
  ASSERT_EQ(MDC_Open(id, &SelfClosing::OnData, &state), 0);
  ASSERT_TRUE(Eventually([&] { return state.closed.load(); }));
  EXPECT_EQ(state.closeResult, 0);
  EXPECT_EQ(state.destroyResult, 0);
  // The peer keeps streaming until TEARDOWN arrives; none of it may come through.
  EXPECT_TRUE(Eventually([&] { return !peer.RequestsOf("TEARDOWN").empty(); }));
  EXPECT_EQ(state.afterClose, 0);
  EXPECT_EQ(MDC_Destroy(id), kNoSession);
}

// A camera that hangs: while playing nothing more arrives; while paused the second keep-alive goes
// unanswered. Keep-alives every 2 s: the silence of a pause is no fault, however long.
TEST(MdcSessionTest, DeadCameraFailsTheSessionOnce) {
  ShortBounds bounds;
  for (bool paused : {false, true}) {
    Sink sink;
    std::atomic<int> keepAlives{0};
    ScriptedRtspPeer::Script camera = CameraScript({.sessionTimeout = 4, .afterPlay = [paused](PeerConnection& c) {
                                                      c.SendInterleaved(0, RtpPacket(0));
                                                      (paused ? c.streaming : c.frozen) = true;
                                                    }});
    ScriptedRtspPeer peer([&, camera](PeerConnection& connection, const RtspText& request) {
      const bool freeze = request.method == "GET_PARAMETER" && ++keepAlives == 2;
      std::lock_guard<std::mutex> lock(sink.mutex);
      EXPECT_TRUE(!freeze || sink.messages.empty()) << "failed while paused and answering";
      freeze ? void(connection.frozen = true) : camera(connection, request);
    });
    int32_t result = -1;
    const int32_t id = OpenClient(peer.Url(), sink, &result);
    ASSERT_EQ(result, 0);
    MDC_StatusChange pause{};
    EXPECT_EQ(paused ? MDC_ChangeStatus(id, &pause) : 0, 0);
    EXPECT_TRUE(sink.WaitForMessage(MDC_MSG_CLOSED)) << paused;
    EXPECT_EQ(MDC_Destroy(id), 0);
    EXPECT_EQ(sink.messages, std::vector<int>{MDC_MSG_CLOSED}) << paused;
  }
}

// Three consumers stall in their callbacks: a fourth camera's packets keep coming, and each stalled
// session, once its queue is full, loses the packets up to the next key frame and nothing else.
TEST(MdcSessionTest, StalledConsumersHoldOnlyTheirOwnStreams) {
  ShortBounds bounds(16 * 1024);
  LogCapture log;
  static std::atomic<bool> stall{false};
  static std::atomic<int> stalled{0};
  struct Stalling : Sink {
    bool done = false;
  } sinks[3];
  auto stallOnce = [](int32_t id, int32_t type, const uint8_t* data, int32_t length, void* user) {
    if (type == MDC_DATA_VIDEO && stall && !std::exchange(static_cast<Stalling*>(user)->done, true)) {
      ++stalled;
      Eventually([] { return !stall; });
    }
    Sink::OnData(id, type, data, length, user);
  };
  ScriptedRtspPeer peer(CameraScript({}));
  Sink healthy;
  int32_t result = -1;
  std::vector<int32_t> ids = {OpenClient(peer.Url(), healthy, &result)};
  for (Stalling& sink : sinks) {
    ids.push_back(MDC_Create(peer.Url().c_str(), 0));
    ASSERT_EQ(MDC_Open(ids.back(), stallOnce, &sink), 0);
  }
  stall = true;
  EXPECT_TRUE(Eventually([] { return stalled == 3; }));
  size_t before = 0;
  healthy.WaitFor([&] { return before = healthy.frames.size(), true; });
  EXPECT_TRUE(healthy.WaitFor([&] { return healthy.frames.size() >= before + 200; }));
  EXPECT_TRUE(Eventually([&] { return log.Matching("dropping packets up to the next key frame").size() == 3; }));
  stall = false;
  for (Stalling& sink : sinks) EXPECT_TRUE(sink.WaitFor([&] { return sink.frames.size() >= 200; }));
  for (int32_t id : ids) EXPECT_EQ(MDC_Destroy(id), 0);
  for (Stalling& sink : sinks) {
    std::vector<uint32_t> resumedAt;
    for (size_t i = 1; i < sink.frames.size(); ++i) {
      if (sink.frames[i] != sink.frames[i - 1] + 3600) resumedAt.push_back(sink.frames[i] / 3600);
    }
    ASSERT_EQ(resumedAt.size(), 1u);
    EXPECT_EQ(resumedAt[0] % netcam_test::kKeyFrameInterval, 0u);
  }
}

// Packets that come with the PLAY answer, in the same read or just before it.
TEST(MdcSessionTest, KeepsPacketsSentWithOrBeforeThePlayAnswer) {
  for (bool separately : {false, true}) {
    ScriptedRtspPeer::Script camera = CameraScript({});
    ScriptedRtspPeer peer([camera, separately](PeerConnection& connection, const RtspText& request) {
      if (request.method != "PLAY") return camera(connection, request);
      std::string early;
      for (uint16_t i = 0; i < 3; ++i) early += netcam_test::InterleavedFrame(0, RtpPacket(i));
      if (separately && connection.Send(std::exchange(early, ""))) std::this_thread::sleep_for(50ms);
      connection.Send(early + "RTSP/1.0 200 OK\r\nCSeq: " + request.Header("CSeq") + "\r\nSession: 8E2F1A\r\n\r\n");
      connection.SendInterleaved(0, RtpPacket(3));
    });
    Sink sink;
    int32_t result = -1;
    const int32_t id = OpenClient(peer.Url(), sink, &result);
    ASSERT_EQ(result, 0);
    EXPECT_TRUE(sink.WaitForPackets(4)) << separately;
    EXPECT_EQ(MDC_Destroy(id), 0);
    EXPECT_EQ(sink.types.front(), MDC_DATA_SDP);
    EXPECT_EQ(sink.frames, (std::vector<uint32_t>{0, 3600, 7200, 10800})) << separately;
  }
}

// The engine's threads live only while sessions do, so no static destructor joins one: on Windows that
// runs under the loader lock and deadlocks. The last destroy joins them; the next create starts them again.
TEST(MdcSessionTest, NoThreadOutlivesTheLastSession) {
  auto threads = [] {
    auto entries = std::filesystem::directory_iterator("/proc/self/task");
    return std::distance(begin(entries), end(entries));
  };
  // Thread checkers start a helper thread of their own with the first thread a process makes.
  std::thread([] {}).join();
  const auto before = threads();
  for (int round = 0; round < 2; ++round) {
    ScriptedRtspPeer peer(CameraScript({}));
    Sink sink;
    int32_t result = -1;
    const int32_t id = OpenClient(peer.Url(), sink, &result);
    ASSERT_EQ(result, 0);
    EXPECT_TRUE(sink.WaitForPackets(1));
    EXPECT_EQ(MDC_Destroy(id), 0);
  }
  EXPECT_EQ(threads(), before);
}

}  // namespace
}  // namespace mdclient_test
