// The simulator's RTSP server through the media client the plug-in uses:
// Digest with the cameras' credentials, live codecs, recordings played for
// exactly the clock range asked for, DisconnectAll and Stop, and each fault.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "ClientSink.h"
#include "LoopbackAddress.h"
#include "MDClient.h"
#include "camera_sim/RtspServer.h"

namespace {

using mdclient_test::OpenClient;
using mdclient_test::Sink;

constexpr const char* kRecordingId = "20240621_151725_95E7_B8A44F9D7D55";
constexpr int64_t kRecordingStart = 1718983045;  // 2024-06-21T15:17:25Z, 120 s long

camsim::RtspConfig TestConfig(const std::string& address) {
  camsim::RtspConfig config;
  config.address = address;
  config.port = 0;
  config.user = "root";
  config.password = "p@ss:word";
  config.findRecording = [](const std::string& id) -> std::optional<camsim::RecordingClip> {
    if (id != kRecordingId) return std::nullopt;
    return camsim::RecordingClip{.id = id, .startUtc = kRecordingStart, .stopUtc = kRecordingStart + 120};
  };
  return config;
}

class RtspServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(m_server->Start(&error)) << error;
  }
  // Credentials as the plug-in writes them: raw, ':' and '@' included.
  std::string Url(const std::string& query, const std::string& userInfo = "root:p@ss:word") const {
    return "rtsp://" + userInfo + "@" + m_address + ":" + std::to_string(m_server->Port()) + "/axis-media/media.amp?" +
           query;
  }
  // Opens a client; it and its sink last until the test ends. nullptr unless the open ended in `expected`
  // (kFailed: any error).
  static constexpr int32_t kFailed = -1;
  Sink* Open(const std::string& url, int32_t expected = 0, const MDC_PlayInfoV1* info = nullptr) {
    m_sinks.push_back(std::make_unique<Sink>());
    int32_t result = 0;
    m_clients.push_back(OpenClient(url, *m_sinks.back(), &result, info));
    const bool asExpected = result == expected || (expected == kFailed && result != 0);
    EXPECT_TRUE(asExpected) << url << " gave " << result;
    return asExpected ? m_sinks.back().get() : nullptr;
  }
  void TearDown() override { DestroyClients(); }
  void DestroyClients() {
    for (int32_t id : m_clients) EXPECT_EQ(MDC_Destroy(id), 0);
    m_clients.clear();
  }
  // Descriptors and threads of this process once every client is gone and the server has seen them go.
  std::pair<long, long> ResourcesWithoutClients() {
    DestroyClients();
    for (int i = 0; i < 200 && m_server->ClientCount() > 0; ++i) std::this_thread::sleep_for(kSettle / 20);
    std::this_thread::sleep_for(kSettle);
    auto count = [](const char* directory) {
      auto entries = std::filesystem::directory_iterator(directory);
      return long(std::distance(begin(entries), end(entries)));
    };
    return {count("/proc/self/fd"), count("/proc/self/task")};
  }

  static constexpr std::chrono::milliseconds kSettle{500};

  std::string m_address = netcam_test::UniqueLoopbackAddress(0);
  std::unique_ptr<camsim::RtspServer> m_server = std::make_unique<camsim::RtspServer>(TestConfig(m_address));
  std::vector<std::unique_ptr<Sink>> m_sinks;  // outlive the clients, which TearDown ends
  std::vector<int32_t> m_clients;
};

TEST_F(RtspServerTest, LiveCodecsPlayForTheRightCredentialsOnly) {
  for (const std::string codec : {"h264", "h265"}) {
    Sink* sink = Open(Url("videocodec=" + codec + "&camera=1"));
    ASSERT_TRUE(sink && sink->WaitForPackets(25)) << codec;
    std::lock_guard<std::mutex> lock(sink->mutex);
    EXPECT_NE(sink->sdp.find(codec == "h264" ? "H264/90000" : "H265/90000"), std::string::npos) << sink->sdp;
    EXPECT_NE(sink->sdp.find(codec == "h264" ? "sprop-parameter-sets=" : "sprop-vps="), std::string::npos);
    EXPECT_TRUE(sink->messages.empty()) << codec;
  }
  struct Refusal {
    std::string url;
    int32_t result;
  } refusals[] = {{Url("videocodec=h264", "root:wrong"), int32_t(MDC_ERR_AUTH)},
                  {Url("recordingid=nope"), int32_t(MDC_ERR_STATUS)}};
  for (const Refusal& refusal : refusals) Open(refusal.url, refusal.result);
}

// 35 s into the recording, 4 s long, paused on the way: exactly the 100
// pictures of the span, none repeated, then the server ends the stream.
TEST_F(RtspServerTest, RecordingPlaysTheClockRangeAcrossAPauseToItsEnd) {
  MDC_PlayInfoV1 outside{1, 1, 0, 1.0f, 0, (kRecordingStart + 200) * 1e6, (kRecordingStart + 210) * 1e6};
  Open(Url(std::string("recordingid=") + kRecordingId), int32_t(MDC_ERR_STATUS), &outside);
  MDC_PlayInfoV1 info{1, 1, 0, 1.0f, 0, (kRecordingStart + 35) * 1e6, (kRecordingStart + 39) * 1e6};
  Sink* played = Open(Url(std::string("recordingid=") + kRecordingId), 0, &info);
  ASSERT_TRUE(played);
  Sink& sink = *played;
  const int32_t id = m_clients.back();
  ASSERT_TRUE(sink.WaitFor([&] { return sink.frames.size() >= 20; }));
  MDC_StatusChange change{};
  change.kind = MDC_STATUS_PAUSE;
  EXPECT_EQ(MDC_ChangeStatus(id, &change), 0);
  change.kind = MDC_STATUS_RESUME;
  EXPECT_EQ(MDC_ChangeStatus(id, &change), 0);
  ASSERT_TRUE(sink.WaitForMessage(MDC_MSG_COMPLETE));
  std::lock_guard<std::mutex> lock(sink.mutex);
  EXPECT_EQ(std::set<uint32_t>(sink.frames.begin(), sink.frames.end()).size(), sink.frames.size());
  EXPECT_EQ(sink.frames.size(), 100u);
  EXPECT_EQ(sink.frames.back() - sink.frames.front(), 99u * 90000 / 25);
  EXPECT_EQ(m_server->ControlRequests(),
            (std::vector<std::string>{"PLAY clock=20240621T151800.000Z-20240621T151804.000Z", "PAUSE", "PLAY"}));
}

TEST_F(RtspServerTest, DisconnectAllAndStopEndEverySession) {
  Sink* first = Open(Url("videocodec=h264"));
  Sink* second = Open(Url("videocodec=h265"));
  ASSERT_TRUE(first && second);
  EXPECT_EQ(m_server->ClientCount(), 2);  // each open returned after PLAY was answered
  m_server->DisconnectAll();
  EXPECT_TRUE(first->WaitForMessage(MDC_MSG_CLOSED) && second->WaitForMessage(MDC_MSG_CLOSED));
  // The camera is back: a new client plays again, until Stop ends it too (twice is harmless).
  Sink* again = Open(Url("videocodec=h264"));
  ASSERT_TRUE(again);
  m_server->Stop();
  EXPECT_TRUE(again->WaitForMessage(MDC_MSG_CLOSED));
  m_server->Stop();
}

// Each RTSP fault as the media client sees it, switched on under a client
// that plays and met by one that opens; switched off, the player plays on.
TEST_F(RtspServerTest, FaultsShowToClientsAndLeaveNothingBehind) {
  using Kind = camsim::Fault::Kind;
  constexpr auto kRtsp = camsim::FaultSide::Rtsp;
  constexpr size_t kAny = SIZE_MAX;
  ASSERT_TRUE(Open(Url("videocodec=h264")));
  const auto resources = ResourcesWithoutClients();
  struct Case {
    camsim::Fault fault;
    int message;               // told to the playing client; 0: nothing, it plays on once the fault is off
    int32_t openResult;        // of a client opening while the fault is on; 1: none opens
    size_t maxBytesPerSecond;  // of the video the playing client gets while it is on
  } cases[] = {
      {{.kind = Kind::Reset, .side = kRtsp}, MDC_MSG_CLOSED, kFailed, kAny},
      {{.kind = Kind::Cut, .side = kRtsp}, MDC_MSG_CLOSED, 1, kAny},
      {{.kind = Kind::Garbage, .side = kRtsp}, MDC_MSG_CLOSED, 1, kAny},
      {{.kind = Kind::Status, .status = 503, .side = kRtsp}, 0, int32_t(MDC_ERR_STATUS), kAny},
      {{.kind = Kind::Delay, .delay = kSettle, .side = kRtsp}, 0, 0, kAny},
      {{.kind = Kind::Freeze, .side = kRtsp}, 0, 1, 0},
      {{.kind = Kind::Slow, .bytesPerSecond = 4000, .side = kRtsp}, 0, 1, 4000 * 3 / 2},
      {{.kind = Kind::Freeze, .side = camsim::FaultSide::Http}, 0, 0, kAny},  // not for this side
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(camsim::KindName(c.fault.kind)) + " " + camsim::SideName(c.fault.side));
    Sink* playing = Open(Url("videocodec=h264"));
    ASSERT_TRUE(playing && playing->WaitForPackets(25));
    const int fault = m_server->Faults().Add("", c.fault);
    EXPECT_TRUE(c.message == 0 || playing->WaitForMessage(c.message));
    const auto opening = std::chrono::steady_clock::now();
    if (c.openResult != 1) Open(Url("videocodec=h264"), c.openResult);
    // A delayed camera answers each of OPTIONS, DESCRIBE, SETUP and PLAY late.
    EXPECT_TRUE(c.fault.kind != Kind::Delay || std::chrono::steady_clock::now() - opening >= 4 * kSettle);
    if (c.message == 0) {
      auto bytes = [&] {
        std::lock_guard<std::mutex> lock(playing->mutex);
        return playing->videoBytes;
      };
      std::this_thread::sleep_for(kSettle);
      const size_t before = bytes();
      std::this_thread::sleep_for(4 * kSettle);
      const size_t got = bytes() - before;
      EXPECT_TRUE(c.maxBytesPerSecond == kAny ? got > 0 : got <= c.maxBytesPerSecond * 2) << got;
      m_server->Faults().Remove(fault);
      const size_t after = bytes();
      EXPECT_TRUE(playing->WaitFor([&] { return playing->videoBytes > after + 20000; }));
      EXPECT_TRUE(playing->messages.empty());
    }
    m_server->Faults().Remove(fault);
  }
  auto left = ResourcesWithoutClients();
  // The server's pipelines end their streaming threads a while after their clients left.
  for (int i = 0; i < 20 && left.second > resources.second; ++i) left = ResourcesWithoutClients();
  EXPECT_LE(left.first, resources.first);    // descriptors
  EXPECT_LE(left.second, resources.second);  // threads
}

}  // namespace
