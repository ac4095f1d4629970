// Time from StartPlayBack to the first DATA block, against live StartStream to
// its first DATA block on the same simulated camera, measured in the same run.
//   playback_start_bench [--rounds N]        needs root (RTSP on port 554)
// Target: playback at most 1.2x live.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "HostTime.h"
#include "camera_sim/Camera.h"
#include "evlog.h"
#include "netcam_plugin.h"

namespace {

using Clock = std::chrono::steady_clock;

// Notes when the first DATA block of a stream arrives.
struct FirstData {
  std::mutex mutex;
  std::condition_variable arrived;
  bool seen = false;
  Clock::time_point at;

  static int32_t OnBlock(void*, int32_t type, const PluginStreamBlock*, void* user) {
    auto* self = static_cast<FirstData*>(user);
    if (type != PLUGIN_STREAM_DATA) return 0;
    std::lock_guard<std::mutex> lock(self->mutex);
    if (!self->seen) {
      self->seen = true;
      self->at = Clock::now();
      self->arrived.notify_all();
    }
    return 0;
  }
  // Seconds from `start` to the first DATA block; negative when none came.
  double Wait(Clock::time_point start) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!arrived.wait_for(lock, std::chrono::seconds(20), [&] { return seen; })) return -1;
    return std::chrono::duration<double>(at - start).count();
  }
};

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  int rounds = 20;
  if (argc == 3 && std::strcmp(argv[1], "--rounds") == 0) rounds = std::atoi(argv[2]);
  if (rounds <= 0) {
    std::fprintf(stderr, "usage: playback_start_bench [--rounds N]\n");
    return 2;
  }
  // The plug-in's and the simulator's information lines would swamp the figures.
  if (std::getenv("NETCAM_LOG_LEVEL") == nullptr) evlog_set_level(EVLOG_WARN);
  camsim::CameraConfig config;
  config.address = "127.0.98." + std::to_string(2 + getpid() % 250);
  camsim::Camera camera(config);
  std::string error;
  if (!camera.Start(&error)) {
    std::fprintf(stderr, "playback_start_bench: the simulated camera did not start (RTSP on 554 needs root): %s\n",
                 error.c_str());
    return 1;
  }
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  camera.SetRecordings({{"20240621_151725_95E7_B8A44F9D7D55", now - 7200, now - 3600, "h264"}});
  DeviceObject_Init(nullptr);
  PluginDeviceHandle device = DeviceObject_CreateInstance();
  PluginStreamRequest request{};
  request.address = config.address.c_str();
  request.port = camera.HttpPort();
  request.user = config.user.c_str();
  request.password = config.password.c_str();
  request.params = "videoencoding=h264";

  std::vector<double> live, playback;
  for (int round = 0; round < rounds; ++round) {
    FirstData liveData;
    auto start = Clock::now();
    if (DeviceObject_StartStream(device, &request, &FirstData::OnBlock, &liveData) == 0) {
      const double seconds = liveData.Wait(start);
      if (seconds >= 0) live.push_back(seconds);
    }
    DeviceObject_StopStream(device);

    FirstData playbackData;
    const PluginTime from = ToPluginTime(now - 7000 + round * 60), to = ToPluginTime(now - 6990 + round * 60);
    const PluginPlaybackCondition condition{&request, &from, &to, 0, 0, 0};
    start = Clock::now();
    if (DeviceObject_StartPlayBack(device, &condition, &FirstData::OnBlock, &playbackData) == 0) {
      const double seconds = playbackData.Wait(start);
      if (seconds >= 0) playback.push_back(seconds);
    }
    DeviceObject_StopPlayBack(device);
  }
  DeviceObject_DestroyInstance(device);
  DeviceObject_Fini();
  if (live.empty() || playback.empty()) {
    std::fprintf(stderr, "playback_start_bench: no DATA arrived (%zu live, %zu playback rounds)\n", live.size(),
                 playback.size());
    return 1;
  }
  const double liveMedian = Median(live), playbackMedian = Median(playback);
  std::printf("live StartStream to first DATA:   %7.1f ms (median of %zu)\n", liveMedian * 1e3, live.size());
  std::printf("StartPlayBack to first DATA:      %7.1f ms (median of %zu; includes the recording list request)\n",
              playbackMedian * 1e3, playback.size());
  const double ratio = playbackMedian / liveMedian;
  std::printf("ratio: %.2fx live (target: at most 1.2x) %s\n", ratio, ratio <= 1.2 ? "ok" : "MISSED");
  return 0;
}
