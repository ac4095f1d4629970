// Live video end to end: the plug-in's RTSP session to the simulated camera,
// repackaging, and the stream blocks the platform receives.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>

#include "LogCapture.h"
#include "LoopbackAddress.h"
#include "StreamRecorder.h"
#include "camera_sim/Camera.h"
#include "netcam_plugin.h"
#include "session/axis_device_object_implement.h"

namespace {

std::string RunCommand(const std::string& command) {
  std::string output;
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>&1").c_str(), "r"), pclose);
  if (!pipe) return "popen failed";
  std::array<char, 4096> buffer{};
  size_t read = 0;
  while ((read = fread(buffer.data(), 1, buffer.size(), pipe.get())) > 0) output.append(buffer.data(), read);
  return output;
}

std::string WriteTempFile(const std::string& name, const std::string& bytes) {
  const std::string path = ::testing::TempDir() + "/" + std::to_string(getpid()) + "_" + name;
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return path;
}

class LiveStream : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!netcam_test::CanBindPrivilegedPorts()) GTEST_SKIP() << "RTSP on port 554 needs root or unshare -rn";
    camsim::CameraConfig config;
    config.address = netcam_test::UniqueLoopbackAddress(554);
    config.rtspPort = 554;
    m_camera = std::make_unique<camsim::Camera>(config);
    std::string error;
    ASSERT_TRUE(m_camera->Start(&error)) << error;
    m_device = DeviceObject_CreateInstance();
    ASSERT_NE(m_device, nullptr);
  }
  void TearDown() override {
    if (m_device != nullptr) DeviceObject_DestroyInstance(m_device);
  }

  PluginStreamRequest Request(const char* params, int32_t channel = 0) {
    PluginStreamRequest request{};
    request.address = m_camera->Config().address.c_str();
    request.port = m_camera->HttpPort();
    request.channel = channel;
    request.user = m_camera->Config().user.c_str();
    request.password = m_camera->Config().password.c_str();
    request.params = params;
    return request;
  }

  std::unique_ptr<camsim::Camera> m_camera;
  PluginDeviceHandle m_device = nullptr;
  StreamRecorder m_recorder;
};

struct CodecCase {
  const char* params;
  const char* codecInUrl;
  const char* ffprobeCodec;
};

class LiveStreamCodec : public LiveStream, public ::testing::WithParamInterface<CodecCase> {};

}  // namespace

TEST_P(LiveStreamCodec, BlocksArriveInOrderAndFormAPlayableProgramStream) {
  const CodecCase& codec = GetParam();
  LogCapture log;
  PluginStreamRequest request = Request(codec.params);
  ASSERT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &m_recorder), 0) << log.All();
  ASSERT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_DATA, 75)) << log.All();
  DeviceObject_StopStream(m_device);

  const std::vector<int32_t> types = m_recorder.Types();
  ASSERT_GE(types.size(), 3u);
  EXPECT_EQ(types[0], PLUGIN_STREAM_INFO);
  EXPECT_EQ(types[1], PLUGIN_STREAM_HEAD);
  for (size_t i = 2; i < types.size(); ++i) ASSERT_EQ(types[i], PLUGIN_STREAM_DATA) << "block " << i;
  EXPECT_FALSE(m_recorder.BadBlock());
  EXPECT_FALSE(m_recorder.BadHandle());

  // The fixed description, whatever the camera's codec.
  const PluginStreamInfo info = m_recorder.Info();
  EXPECT_STREQ(info.mediaKind, "video");
  EXPECT_STREQ(info.encodingName, "MP4V-ES");
  EXPECT_EQ(info.payloadType, 96);
  EXPECT_EQ(info.clockRate, 90000);
  EXPECT_GT(info.headerLength, 0u);
  EXPECT_LT(info.headerLength, 256u);
  EXPECT_EQ(info.field1604, 1);

  const std::string file = WriteTempFile(std::string("live_") + codec.codecInUrl + ".mpg", m_recorder.Stream());
  EXPECT_EQ(RunCommand("ffmpeg -nostdin -v error -i '" + file + "' -f null -"), "");
  const std::string probe = RunCommand(
      "ffprobe -v error -count_frames -select_streams v:0 -show_entries "
      "stream=codec_name,nb_read_frames -of default=nw=1 '" +
      file + "'");
  EXPECT_NE(probe.find(std::string("codec_name=") + codec.ffprobeCodec), std::string::npos) << probe;
  const size_t frames = std::strtoul(probe.substr(probe.find("nb_read_frames=") + 15).c_str(), nullptr, 10);
  // One payload unit per access unit: every delivered frame decodes.
  EXPECT_EQ(frames, m_recorder.Count(PLUGIN_STREAM_DATA)) << probe;

  const std::string expectedUrl = "url[rtsp://" + m_camera->Config().address +
                                  ":554/axis-media/media.amp?videocodec=" + codec.codecInUrl + "&camera=1]";
  EXPECT_TRUE(log.Contains("]StartStream begin, " + expectedUrl)) << log.All();
  const std::vector<std::string> described = m_camera->RtspRequests();
  ASSERT_EQ(described.size(), 1u);
  EXPECT_EQ(described[0], std::string("/axis-media/media.amp?videocodec=") + codec.codecInUrl + "&camera=1");
  EXPECT_EQ(log.All().find(":" + m_camera->Config().password + "@"), std::string::npos) << "password in the log";
  std::remove(file.c_str());
}

INSTANTIATE_TEST_SUITE_P(Codecs, LiveStreamCodec,
                         ::testing::Values(CodecCase{"foo=1&videoencoding=h264&bar=2", "h264", "h264"},
                                           CodecCase{"videoencoding=h265", "h265", "hevc"},
                                           CodecCase{"videoencoding=&x=y", "h264", "h264"}),
                         [](const auto& param) {
                           return std::string(param.param.codecInUrl) + std::to_string(param.index);
                         });

TEST_F(LiveStream, ChannelSelectsTheCameraNumber) {
  PluginStreamRequest request = Request("videoencoding=h264", 2);
  ASSERT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &m_recorder), 0);
  DeviceObject_StopStream(m_device);
  const std::vector<std::string> described = m_camera->RtspRequests();
  ASSERT_EQ(described.size(), 1u);
  EXPECT_EQ(described[0], "/axis-media/media.amp?videocodec=h264&camera=3");
}

TEST_F(LiveStream, PausedStreamDeliversNoData) {
  PluginStreamRequest request = Request("");
  ASSERT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &m_recorder), 0);
  ASSERT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_DATA, 5));
  ASSERT_EQ(DeviceObject_PauseStream(m_device), 0);
  EXPECT_EQ(DeviceObject_PauseStream(m_device), 0);  // already paused
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const size_t whilePaused = m_recorder.Count(PLUGIN_STREAM_DATA);
  // A unit the repackager had in flight when the pause landed is held back too.
  const uint8_t payload[] = {0x00, 0x00, 0x01, 0xBA};
  const MUXC_OutputUnit late{payload, sizeof payload, 2};
  CPlgDeviceObjectImplement::TransDataFun(&late, static_cast<CPlgDeviceObjectImplement*>(m_device));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_EQ(m_recorder.Count(PLUGIN_STREAM_DATA), whilePaused);

  ASSERT_EQ(DeviceObject_ResumeStream(m_device), 0);
  EXPECT_EQ(DeviceObject_ResumeStream(m_device), 0);  // not paused any more
  EXPECT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_DATA, whilePaused + 5));
  DeviceObject_StopStream(m_device);
}

TEST_F(LiveStream, NoBlockAfterStopReturns) {
  std::mt19937 random(12345);
  std::uniform_int_distribution<int> delayMs(0, 120);
  for (int cycle = 0; cycle < 200; ++cycle) {
    m_recorder.Reset();
    PluginStreamRequest request = Request(cycle % 2 == 0 ? "videoencoding=h264" : "videoencoding=h265");
    ASSERT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &m_recorder), 0) << cycle;
    m_recorder.WaitFor(PLUGIN_STREAM_HEAD, 1, std::chrono::seconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(delayMs(random)));
    DeviceObject_StopStream(m_device);
    m_recorder.MarkStopped();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(m_recorder.AfterStop(), 0);
}

TEST_F(LiveStream, CameraGoneMidStreamEndsTheStream) {
  LogCapture log;
  PluginStreamRequest request = Request("");
  ASSERT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &m_recorder), 0);
  ASSERT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_DATA, 3));
  m_camera->Stop();
  EXPECT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_END, 1)) << log.All();
  DeviceObject_StopStream(m_device);  // waits for the callback, which logs after it delivered END
  EXPECT_TRUE(log.Contains("]Send stream data callback[PLUGIN_STREAM_END], clientid[")) << log.All();
  EXPECT_EQ(m_recorder.Count(PLUGIN_STREAM_END), 1u);
}

TEST_F(LiveStream, WrongCredentialsAndUnreachableCamerasFailToStart) {
  LogCapture log;
  PluginStreamRequest request = Request("");
  request.password = "wrong";
  EXPECT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &m_recorder), -1);
  EXPECT_TRUE(log.Contains("]MDC_Open failed, err[")) << log.All();
  EXPECT_EQ(log.All().find("wrong"), std::string::npos) << "password in the log";

  const std::string nowhere = netcam_test::UniqueLoopbackAddress(554);
  request = Request("");
  request.address = nowhere.c_str();
  EXPECT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &m_recorder), -1);
  EXPECT_EQ(m_recorder.Types().size(), 0u);

  EXPECT_EQ(DeviceObject_StartStream(m_device, &request, nullptr, &m_recorder), -1);
  EXPECT_TRUE(log.Contains("]Input parma error, nullptr == pstDevice || nullptr == pfnDataCB![")) << log.All();
  DeviceObject_StopStream(m_device);  // idle: logs begin and end, returns
  EXPECT_TRUE(log.Contains("]StopStream end, clientid[-1]")) << log.All();
}

// A second start without a stop overwrites the client id and loses no session: both are closed by the destroy.
TEST_F(LiveStream, EverySessionOpenedIsClosedByDestroyInstance) {
  LogCapture log;
  PluginStreamRequest request = Request("");
  ASSERT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &m_recorder), 0);
  ASSERT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &m_recorder), 0);
  ASSERT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_DATA, 5));
  DeviceObject_DestroyInstance(std::exchange(m_device, nullptr));
  m_recorder.MarkStopped();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_EQ(m_recorder.AfterStop(), 0);
  EXPECT_EQ(log.Matching(": playing rtsp://").size(), 2u) << log.All();
  EXPECT_EQ(log.Matching(": closed rtsp://").size(), 2u) << log.All();
}
