// PTZ responsiveness as an operator feels it on the joystick: PTZControl
// (start of a pan) until the camera has the move, median and 99th percentile
// over N commands against the simulated camera, against the same two requests
// (position query, then the move) made by the curl command line, each with a
// fresh connection and Digest, as the plug-in makes them.
//   ptz_control_bench [--rounds 200]
// Target: at most 1.2x the curl command line.
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "camera_sim/Camera.h"
#include "evlog.h"
#include "session/axis_device_object_implement.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

double Milliseconds(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::milli>(to - from).count();
}

double Percentile(std::vector<double> values, double p) {
  std::sort(values.begin(), values.end());
  const size_t index =
      std::min(values.size() - 1, static_cast<size_t>(p * static_cast<double>(values.size() - 1) + 0.5));
  return values[index];
}

// One curl process per request: a fresh connection, the Digest challenge and the answer.
bool Curl(const std::string& url, const std::string& credentials) {
  std::vector<std::string> args = {"curl", "-s", "-f", "-o", "/dev/null", "--digest", "-u", credentials, url};
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawnp(&pid, "curl", nullptr, nullptr, argv.data(), environ) != 0) return false;
  int status = 0;
  return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  int rounds = 200;
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], "--rounds") == 0) rounds = std::max(1, std::atoi(argv[++i]));
  }
  // Not the platform's logger: every real position answer ends in CR LF, whose empty last piece is logged.
  evlog_set_level(EVLOG_ERROR + 1);
  std::unique_ptr<camsim::Camera> camera;
  for (int host = 2; host < 255 && !camera; ++host) {
    camsim::CameraConfig config;
    config.address = "127.0.0." + std::to_string(host);
    config.rtspPort = 0;
    camera = std::make_unique<camsim::Camera>(config);
    if (!camera->Start()) camera.reset();
  }
  if (!camera) {
    std::fprintf(stderr, "ptz_control_bench: the camera simulator did not start\n");
    return 1;
  }
  const camsim::CameraConfig& config = camera->Config();
  DeviceLoginParam login{};
  std::snprintf(login.ip, sizeof login.ip, "%s", config.address.c_str());
  login.port = camera->HttpPort();
  std::snprintf(login.user, sizeof login.user, "%s", config.user.c_str());
  std::snprintf(login.password, sizeof login.password, "%s", config.password.c_str());
  CPlgDeviceObjectImplement device;
  if (device.OpenDevice(&login) != 0) {
    std::fprintf(stderr, "ptz_control_bench: the plug-in could not open the simulated camera\n");
    return 1;
  }
  const std::string base = "http://" + config.address + ":" + std::to_string(camera->HttpPort());
  const std::string credentials = config.user + ":" + config.password;

  std::vector<double> plugin, curl;
  for (int round = 0; round < rounds; ++round) {
    // Interleaved, so that a busy moment of the shared machine hits both alike.
    const PtzControlInput start{0, 24, 0, 5, 0}, stop{0, 24, 1, 5, 0};
    Clock::time_point begin = Clock::now();
    if (device.PTZControl(1, &start, sizeof start, 0) != 0) {
      std::fprintf(stderr, "ptz_control_bench: PTZControl failed\n");
      return 1;
    }
    plugin.push_back(Milliseconds(begin, Clock::now()));
    device.PTZControl(1, &stop, sizeof stop, 0);

    begin = Clock::now();
    if (!Curl(base + "/axis-cgi/com/ptz.cgi?query=position", credentials) ||
        !Curl(base + "/axis-cgi/com/ptz.cgi?continuouspantiltmove=50,0", credentials)) {
      std::fprintf(stderr, "ptz_control_bench: curl failed (is it installed?)\n");
      return 1;
    }
    curl.push_back(Milliseconds(begin, Clock::now()));
    device.PTZControl(1, &stop, sizeof stop, 0);
  }
  const double pluginMedian = Percentile(plugin, 0.5), pluginP99 = Percentile(plugin, 0.99);
  const double curlMedian = Percentile(curl, 0.5), curlP99 = Percentile(curl, 0.99);
  std::printf("PTZ start of a pan until the camera has the move, %d commands\n", rounds);
  std::printf("  PTZControl:           median %7.3f ms  p99 %7.3f ms\n", pluginMedian, pluginP99);
  std::printf("  curl command line:    median %7.3f ms  p99 %7.3f ms\n", curlMedian, curlP99);
  std::printf("  ratio (PTZControl / curl): median %.2fx  p99 %.2fx  (target: at most 1.2x)\n",
              pluginMedian / curlMedian, pluginP99 / curlP99);
  return 0;
}
