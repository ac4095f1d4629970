// camera-sim: one simulated camera in the foreground until SIGINT or SIGTERM.
#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "FaultOption.h"
#include "camera_sim/Camera.h"

namespace {

void PrintUsage() {
  std::printf(
      "usage: camera-sim --address IP [--http-port N] [--rtsp-port N] [--user U --password P]\n"
      "                  [--brand B] [--model M] [--product-number P] [--serial S] [--firmware V] [--no-ptz]\n"
      "                  [--event-url URL] [--alarm-interval SECONDS] [--state-dir DIR] [--fault FAULT]...\n"
      "       camera-sim --replay DIR --address IP [--http-port N] [--rtsp-port N] [--user U --password P]\n"
      "  --http-port 0 picks a free port; --rtsp-port 0 runs without RTSP.\n"
      "  --replay serves a capture folder (plugin-host capture) under the captured identity; without\n"
      "  --user/--password it takes any user and any password.\n"
      "  --alarm-interval posts a motion alarm to --event-url every SECONDS seconds.\n"
      "%s",
      camsim::kFaultOptionHelp);
}

bool ParsePort(const char* text, uint16_t& port) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || value < 0 || value > 65535) return false;
  port = static_cast<uint16_t>(value);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  camsim::CameraConfig config;
  config.httpPort = 80;
  long alarmInterval = 0;
  std::vector<camsim::FaultOption> faults;
  bool userGiven = false, passwordGiven = false;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--help" || option == "-h") {
      PrintUsage();
      return 0;
    }
    if (option == "--no-ptz") {
      config.hasPtz = false;
      continue;
    }
    if (i + 1 >= argc) {
      std::fprintf(stderr, "camera-sim: %s needs a value (see --help)\n", option.c_str());
      return 2;
    }
    const char* value = argv[++i];
    if (option == "--address") {
      config.address = value;
    } else if (option == "--http-port" || option == "--rtsp-port") {
      uint16_t port = 0;
      if (!ParsePort(value, port)) {
        std::fprintf(stderr, "camera-sim: %s: '%s' is not a port number\n", option.c_str(), value);
        return 2;
      }
      (option == "--http-port" ? config.httpPort : config.rtspPort) = port;
    } else if (option == "--user") {
      config.user = value;
      userGiven = true;
    } else if (option == "--password") {
      config.password = value;
      passwordGiven = true;
    } else if (option == "--replay") {
      config.replayDir = value;
    } else if (option == "--brand") {
      config.brand = value;
    } else if (option == "--model") {
      config.model = value;
    } else if (option == "--product-number") {
      config.productNumber = value;
    } else if (option == "--serial") {
      config.serial = value;
    } else if (option == "--firmware") {
      config.firmware = value;
    } else if (option == "--event-url") {
      config.eventUrl = value;
    } else if (option == "--state-dir") {
      config.stateDir = value;
    } else if (option == "--alarm-interval") {
      char* end = nullptr;
      alarmInterval = std::strtol(value, &end, 10);
      if (end == value || *end != '\0' || alarmInterval <= 0 || alarmInterval > 86400) {
        std::fprintf(stderr, "camera-sim: --alarm-interval: '%s' is not a number of seconds (1-86400)\n", value);
        return 2;
      }
    } else if (option == "--fault") {
      std::string problem;
      if (!camsim::ParseFaultOption(value, &faults.emplace_back(), &problem)) {
        std::fprintf(stderr, "camera-sim: --fault %s: %s\n", value, problem.c_str());
        return 2;
      }
    } else {
      std::fprintf(stderr, "camera-sim: unknown option %s (see --help)\n", option.c_str());
      return 2;
    }
  }
  if (!config.replayDir.empty()) {
    // A replayed camera knows only the credentials it is given.
    if (!userGiven) config.user.clear();
    if (!passwordGiven) config.password.clear();
  }
  if (alarmInterval > 0 && config.eventUrl.empty()) {
    std::fprintf(stderr, "camera-sim: --alarm-interval needs --event-url\n");
    return 2;
  }

  // Every thread started from here on inherits the blocked signals; main waits for them.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  camsim::Camera camera(config);
  std::string error;
  if (!camera.Start(&error)) {
    std::fprintf(stderr, "camera-sim: cannot start on %s: %s\n", config.address.c_str(), error.c_str());
    return 1;
  }
  for (const camsim::FaultOption& fault : faults) camsim::ApplyFaultOption(camera, fault);
  std::string line = "camera-sim: listening on http://" + config.address + ":" + std::to_string(camera.HttpPort());
  if (camera.RtspPort() != 0) line += " rtsp://" + config.address + ":" + std::to_string(camera.RtspPort());
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);

  while (true) {
    timespec timeout{alarmInterval > 0 ? alarmInterval : 3600, 0};
    const int signal = sigtimedwait(&stopSignals, nullptr, &timeout);
    if (signal == SIGINT || signal == SIGTERM) break;
    if (signal < 0 && errno == EAGAIN && alarmInterval > 0) camera.PostMotionAlarm();
  }
  camera.Stop();
  return 0;
}
