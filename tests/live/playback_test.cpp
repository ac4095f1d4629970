// Playback of the simulated camera's recordings through the plug-in: the span
// as the RTSP clock range, the end of the span, pause and resume, failures.
#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <random>
#include <thread>

#include "LogCapture.h"
#include "LoopbackAddress.h"
#include "StreamRecorder.h"
#include "camera_sim/Camera.h"
#include "session/axis_device_object_implement.h"

namespace {

std::string RunCommand(const std::string& command) {
  std::string output(4096, '\0');
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>&1").c_str(), "r"), pclose);
  output.resize(pipe ? fread(output.data(), 1, output.size(), pipe.get()) : 0);
  return output;
}

// UTC seconds as the platform's time record; the zoned form shares its leading fields.
PluginTime Utc(int64_t seconds) {
  const std::time_t t = static_cast<std::time_t>(seconds);
  std::tm f{};
  gmtime_r(&t, &f);
  return PluginTime{f.tm_year + 1900, f.tm_mon + 1, f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec, {}};
}

class Playback : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!netcam_test::CanBindPrivilegedPorts()) GTEST_SKIP() << "RTSP on port 554 needs root or unshare -rn";
    camsim::CameraConfig config;
    config.address = netcam_test::UniqueLoopbackAddress(554);
    m_camera = std::make_unique<camsim::Camera>(config);
    std::string error;
    ASSERT_TRUE(m_camera->Start(&error)) << error;
    m_camera->SetRecordings({{"REC1", m_start, m_start + 3600, "h264"}});
    m_request = {0, 0, 0, m_camera->HttpPort(), 0, 0, m_camera->Config().address.c_str(), "root", "pass", "", 0, 0};
  }
  void TearDown() override { DeviceObject_DestroyInstance(m_device); }

  // Plays [from, to) seconds into the recording through the basic entry point.
  int32_t Play(int64_t from, int64_t to) {
    const PluginTime start = Utc(m_start + from), end = Utc(m_start + to);
    const PluginPlaybackCondition condition{&m_request, &start, &end, 0, 0, 0};
    return DeviceObject_StartPlayBack(m_device, &condition, &StreamRecorder::Callback, &m_recorder);
  }

  const int64_t m_start = static_cast<int64_t>(std::time(nullptr)) - 7200;
  std::unique_ptr<camsim::Camera> m_camera;
  PluginStreamRequest m_request{};
  PluginDeviceHandle m_device = DeviceObject_CreateInstance();
  StreamRecorder m_recorder;
};

TEST_F(Playback, PlaysTheSpanAsAClockRangeIntoADecodableStream) {
  // The extended entry point, in a zone two hours east of UTC.
  PluginTime utcFrom = Utc(m_start + 7320), utcTo = Utc(m_start + 7324);
  PluginZonedTime from{}, to{};
  std::memcpy(&from, &utcFrom, 24);
  std::memcpy(&to, &utcTo, 24);
  from.zoneHours = to.zoneHours = 2;
  const PluginPlaybackConditionEx condition{&m_request, &from, &to, 0, 0, 0};
  ASSERT_EQ(DeviceObject_StartPlayBackEx(m_device, &condition, &StreamRecorder::Callback, &m_recorder), 0);
  EXPECT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_END, 1));  // the camera ends the range
  DeviceObject_StopPlayBack(m_device);

  char range[64];
  const PluginTime a = Utc(m_start + 120), b = Utc(m_start + 124);
  std::snprintf(range, sizeof range, "PLAY clock=%04d%02d%02dT%02d%02d%02d.000Z-%04d%02d%02dT%02d%02d%02d.000Z", a.year,
                a.month, a.day, a.hour, a.minute, a.second, b.year, b.month, b.day, b.hour, b.minute, b.second);
  EXPECT_EQ(m_camera->RtspControlRequests(), std::vector<std::string>{range});
  EXPECT_EQ(m_camera->RtspRequests(), std::vector<std::string>{"/axis-media/media.amp?recordingid=REC1"});
  const std::string file = ::testing::TempDir() + "/" + std::to_string(getpid()) + "_playback.mpg";
  std::ofstream(file, std::ios::binary) << m_recorder.Stream();
  EXPECT_EQ(RunCommand("ffmpeg -nostdin -v error -i '" + file + "' -f null -"), "");
  // From the key frame at or before the span's start (one a second): the four seconds, plus at most one interval.
  const double seconds =
      std::atof(RunCommand("ffprobe -v error -show_entries format=duration -of csv=p=0 " + file).c_str());
  EXPECT_TRUE(seconds >= 3.5 && seconds <= 5.1) << seconds;
  std::remove(file.c_str());
}

TEST_F(Playback, EndCheckSendsEndOncePastTheEndAndAgainUntilStopped) {
  auto* device = static_cast<CPlgDeviceObjectImplement*>(m_device);
  const PluginTime from = Utc(m_start + 60), to = Utc(m_start + 90);
  const PluginPlaybackCondition condition{&m_request, &from, &to, 0, 0, 0};
  PluginGlobalTime start{}, end{}, report{};
  std::memcpy(&start, &from, 24);
  std::memcpy(&end, &to, 24);  // far ahead of the stream: only the reports below pass it
  ASSERT_EQ(device->StartPlayBack(&condition, &StreamRecorder::Callback, &m_recorder, &start, &end), 0);
  for (const auto& [plusSeconds, ends] : {std::pair{-1, 0u}, {0, 0u}, {1, 1u}, {2, 2u}}) {
    report = end;
    report.second += plusSeconds;
    CPlgDeviceObjectImplement::CheckFileEnd(device, &report);
    EXPECT_EQ(m_recorder.Count(PLUGIN_STREAM_END), ends) << plusSeconds;
  }
  device->StopPlayBack();

  // Through the stream itself: an end a second after the start is passed while the camera still plays.
  m_recorder.Reset();
  end = start;
  ASSERT_EQ(device->StartPlayBack(&condition, &StreamRecorder::Callback, &m_recorder, &start, &end), 0);
  EXPECT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_END, 3));
}

TEST_F(Playback, PauseResumeAndScaleActOnTheRunningSession) {
  LogCapture log;
  ASSERT_EQ(Play(300, 360), 0);
  ASSERT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_DATA, 5));
  ASSERT_EQ(DeviceObject_PauseStream(m_device), 0);
  EXPECT_EQ(DeviceObject_PauseStream(m_device), 0);  // no second request
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const size_t whilePaused = m_recorder.Count(PLUGIN_STREAM_DATA);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_EQ(m_recorder.Count(PLUGIN_STREAM_DATA), whilePaused);
  ASSERT_EQ(DeviceObject_ResumeStream(m_device), 0);
  EXPECT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_DATA, whilePaused + 5));
  EXPECT_EQ(DeviceObject_SetStreamScale(m_device, 1.00001), 0);
  EXPECT_TRUE(log.Contains("]The speed is consistent, no need to set, clientid[")) << log.All();
  EXPECT_EQ(DeviceObject_SetStreamScale(m_device, 2.0), 0);
  const std::vector<std::string> controls = m_camera->RtspControlRequests();  // the speed never reaches the camera
  ASSERT_EQ(controls.size(), 3u);
  EXPECT_EQ(controls[1], "PAUSE");
  EXPECT_EQ(controls[2], "PLAY");
}

TEST_F(Playback, FailuresAreRefusedWithTheirReason) {
  LogCapture log;
  EXPECT_EQ(Play(-7000, -6000), -1);
  EXPECT_TRUE(log.Contains("]No record segment found.[")) << log.All();
  m_camera->InjectFault("/axis-cgi/record/", {camsim::Fault::Kind::Status, 500});
  EXPECT_EQ(Play(60, 70), -1);
  EXPECT_TRUE(log.Contains("]GetRecordingList failed.[")) << log.All();
  m_camera->ClearScripts();
  DeviceObject_StopPlayBack(m_device);
  EXPECT_EQ(m_recorder.Types().size(), 0u);

  // The camera goes away mid-playback: END, then a clean stop.
  ASSERT_EQ(Play(60, 600), 0);
  ASSERT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_DATA, 3));
  m_camera->Stop();
  EXPECT_TRUE(m_recorder.WaitFor(PLUGIN_STREAM_END, 1));
  DeviceObject_StopPlayBack(m_device);
  EXPECT_TRUE(log.Contains("]StopPlayBack end, clientid[")) << log.All();
}

TEST_F(Playback, NoBlockAfterStopReturns) {
  std::mt19937 random(4711);
  for (int cycle = 0; cycle < 100; ++cycle) {
    m_recorder.Reset();
    ASSERT_EQ(Play(10 + cycle, 40 + cycle), 0) << cycle;
    m_recorder.WaitFor(PLUGIN_STREAM_HEAD, 1, std::chrono::seconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 120));
    DeviceObject_StopPlayBack(m_device);
    m_recorder.MarkStopped();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(m_recorder.AfterStop(), 0);
}

// Credentials as users type them reach the camera unchanged, live and playback, and the password never
// the log. The recording list goes over HTTP, which takes up to 15 characters: the punctuation comes in
// three pieces. A user may hold anything but ':', which ends it in the URL.
TEST_F(Playback, AnyPrintableCredentialsOpenLiveAndPlayback) {
  for (const auto& [user, password] : std::vector<std::pair<std::string, std::string>>{{"root", "pa%41ss"},
                                                                                       {"root", "100%"},
                                                                                       {"root", "with blank"},
                                                                                       {"root", "1234/abc"},
                                                                                       {"root", "x?y=z#w"},
                                                                                       {"root", "a@b:c/d@e"},
                                                                                       {"root", " !\"#$%&'()*"},
                                                                                       {"root", "+,-./:;<=>?"},
                                                                                       {"root", "@[\\]^_`{|}~"},
                                                                                       {"o p%@/#?", "p@ss:w/rd"}}) {
    LogCapture log;
    camsim::CameraConfig config;
    config.address = netcam_test::UniqueLoopbackAddress(554);
    config.user = user;
    config.password = password;
    camsim::Camera camera(config);
    ASSERT_TRUE(camera.Start());
    camera.SetRecordings({{"REC1", m_start, m_start + 3600, "h264"}});
    PluginStreamRequest request = m_request;
    request.address = config.address.c_str();
    request.port = camera.HttpPort();
    request.user = user.c_str();
    request.password = password.c_str();
    StreamRecorder live, played;
    EXPECT_EQ(DeviceObject_StartStream(m_device, &request, &StreamRecorder::Callback, &live), 0) << password;
    EXPECT_TRUE(live.WaitFor(PLUGIN_STREAM_DATA, 1)) << password;
    DeviceObject_StopStream(m_device);
    const PluginTime start = Utc(m_start + 60), end = Utc(m_start + 90);
    const PluginPlaybackCondition condition{&request, &start, &end, 0, 0, 0};
    EXPECT_EQ(DeviceObject_StartPlayBack(m_device, &condition, &StreamRecorder::Callback, &played), 0) << password;
    EXPECT_TRUE(played.WaitFor(PLUGIN_STREAM_DATA, 1)) << password;
    DeviceObject_StopPlayBack(m_device);
    EXPECT_EQ(log.All().find(password), std::string::npos) << password;
  }
}

}  // namespace
