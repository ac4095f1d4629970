// 64 concurrent live streams from one simulated camera through the plug-in,
// against ffmpeg copying the same streams (the anchor, measured in the same run):
//   - CPU time per stream over the same steady window (target: a quarter or less of ffmpeg's)
//   - resident memory per stream
//   - time from StartStream to the first DATA block
//
// usage: live_streams_bench [--streams N] [--seconds S] [--codec h264|h265]
// Needs root (the camera's RTSP port is 554); runs the camera in its own process.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ProcessStats.h"
#include "evlog.h"
#include "netcam_plugin.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

pid_t Spawn(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

struct StreamProbe {
  Clock::time_point started;
  std::atomic<int64_t> firstDataMicros{-1};
  std::atomic<uint64_t> dataBlocks{0};

  static int32_t OnBlock(void*, int32_t type, const PluginStreamBlock*, void* user) {
    auto* probe = static_cast<StreamProbe*>(user);
    if (type == PLUGIN_STREAM_DATA && probe->dataBlocks++ == 0) {
      probe->firstDataMicros =
          std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - probe->started).count();
    }
    return 0;
  }
};

bool WaitForPort(const std::string& address) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string probe = "exec 3<>/dev/tcp/" + address + "/554 2>/dev/null";
    if (std::system(("bash -c '" + probe + "'").c_str()) == 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  int streams = 64;
  double seconds = 10;
  std::string codec = "h264";
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string name = argv[i];
    if (name == "--streams") streams = std::atoi(argv[i + 1]);
    if (name == "--seconds") seconds = std::atof(argv[i + 1]);
    if (name == "--codec") codec = argv[i + 1];
  }
  evlog_set_level(EVLOG_WARN);  // the measurement, not the per-stream log lines
  if (geteuid() != 0) {
    std::printf("live_streams_bench: skipped (needs root for the camera's RTSP port 554)\n");
    return 0;
  }
  const std::string address = "127.0.77." + std::to_string(2 + getpid() % 250);
  pid_t camera = Spawn({CAMERA_SIM_PATH, "--address", address, "--http-port", "0", "--rtsp-port", "554"});
  if (camera < 0 || !WaitForPort(address)) {
    std::fprintf(stderr, "live_streams_bench: the camera simulator did not start on %s\n", address.c_str());
    if (camera > 0) kill(camera, SIGTERM);
    return 1;
  }
  const std::string url = "rtsp://root:pass@" + address + ":554/axis-media/media.amp?videocodec=" + codec + "&camera=1";
  std::printf("%d live %s streams from %s, %.0f s steady window each\n", streams, codec.c_str(), address.c_str(),
              seconds);

  // --- the plug-in ---
  DeviceObject_Init(nullptr);
  const double rssBefore = bench::ResidentMegabytes();
  std::vector<PluginDeviceHandle> devices;
  std::vector<std::unique_ptr<StreamProbe>> probes;
  const std::string params = "videoencoding=" + codec;
  int started = 0;
  for (int i = 0; i < streams; ++i) {
    devices.push_back(DeviceObject_CreateInstance());
    probes.push_back(std::make_unique<StreamProbe>());
    PluginStreamRequest request{};
    request.address = address.c_str();
    request.channel = 0;
    request.user = "root";
    request.password = "pass";
    request.params = params.c_str();
    probes.back()->started = Clock::now();
    if (DeviceObject_StartStream(devices.back(), &request, &StreamProbe::OnBlock, probes.back().get()) == 0) ++started;
  }
  std::this_thread::sleep_for(std::chrono::seconds(3));  // every stream past its first key frame
  const double pluginCpu0 = bench::ProcessCpuSeconds(0);
  const auto window0 = Clock::now();
  uint64_t blocks0 = 0;
  for (auto& probe : probes) blocks0 += probe->dataBlocks;
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  const double pluginCpu = bench::ProcessCpuSeconds(0) - pluginCpu0;
  const double window = std::chrono::duration<double>(Clock::now() - window0).count();
  uint64_t blocks1 = 0;
  for (auto& probe : probes) blocks1 += probe->dataBlocks;
  const double rssDuring = bench::ResidentMegabytes();
  std::vector<double> firstData;
  for (auto& probe : probes)
    if (probe->firstDataMicros >= 0) firstData.push_back(static_cast<double>(probe->firstDataMicros) / 1000.0);
  for (PluginDeviceHandle device : devices) {
    DeviceObject_StopStream(device);
    DeviceObject_DestroyInstance(device);
  }
  DeviceObject_Fini();
  std::sort(firstData.begin(), firstData.end());

  // --- the anchor: ffmpeg copying the same streams ---
  std::vector<pid_t> ffmpegs;
  for (int i = 0; i < streams; ++i) {
    ffmpegs.push_back(Spawn({"/usr/bin/ffmpeg", "-nostdin", "-loglevel", "quiet", "-rtsp_transport", "tcp", "-i", url,
                             "-c", "copy", "-f", "mpeg", "-y", "/dev/null"}));
  }
  std::this_thread::sleep_for(std::chrono::seconds(3));
  double ffmpegCpu0 = 0;
  for (pid_t pid : ffmpegs) ffmpegCpu0 += bench::ProcessCpuSeconds(pid);
  const auto anchor0 = Clock::now();
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  double ffmpegCpu1 = 0;
  for (pid_t pid : ffmpegs) ffmpegCpu1 += bench::ProcessCpuSeconds(pid);
  const double anchorWindow = std::chrono::duration<double>(Clock::now() - anchor0).count();
  for (pid_t pid : ffmpegs) kill(pid, SIGKILL);
  for (pid_t pid : ffmpegs) waitpid(pid, nullptr, 0);
  kill(camera, SIGTERM);
  waitpid(camera, nullptr, 0);

  const double pluginPerStream = pluginCpu / window / started;
  const double ffmpegPerStream = (ffmpegCpu1 - ffmpegCpu0) / anchorWindow / streams;
  std::printf("streams started:           %d of %d\n", started, streams);
  std::printf("frames delivered:          %.1f per stream per second\n",
              static_cast<double>(blocks1 - blocks0) / window / std::max(started, 1));
  std::printf("plug-in CPU per stream:    %.4f core (%.2f%% of a core)\n", pluginPerStream, pluginPerStream * 100);
  std::printf("ffmpeg -c copy per stream: %.4f core (%.2f%% of a core)\n", ffmpegPerStream, ffmpegPerStream * 100);
  std::printf("ratio plug-in / ffmpeg:    %.3f (target <= 0.25)\n",
              ffmpegPerStream > 0 ? pluginPerStream / ffmpegPerStream : 0.0);
  std::printf("memory per stream:         %.2f MB resident\n", (rssDuring - rssBefore) / std::max(started, 1));
  if (!firstData.empty()) {
    std::printf("StartStream to first DATA: median %.0f ms, max %.0f ms\n", firstData[firstData.size() / 2],
                firstData.back());
  }
  return started == streams ? 0 : 1;
}
