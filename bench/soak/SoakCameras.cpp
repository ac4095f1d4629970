#include "SoakCameras.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include "camera_sim/Camera.h"

namespace {

// One write a line: lines from several threads never interleave (under PIPE_BUF).
void Report(int fd, const std::string& line) {
  const std::string text = line + "\n";
  if (::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    // The parent is gone; the hold pipe will tell us to stop.
  }
}

[[noreturn]] void RunCameras(const SoakCameraPlan& plan, int reports, int hold) {
  ::setenv("NETCAM_LOG_FILE", plan.logFile.c_str(), 1);
  ::signal(SIGPIPE, SIG_IGN);
  std::vector<std::unique_ptr<camsim::Camera>> cameras;
  for (size_t i = 0; i < plan.addresses.size(); ++i) {
    camsim::CameraConfig config;
    config.address = plan.addresses[i];
    config.httpPort = 80;
    config.rtspPort = 554;
    config.serial = "SOAK" + std::to_string(1000 + i) + "0000";
    config.eventUrl = plan.eventUrl;
    cameras.push_back(std::make_unique<camsim::Camera>(config));
    std::string error;
    if (!cameras.back()->Start(&error)) {
      Report(reports, "failed " + config.address + ": " + error);
      ::_exit(1);
    }
  }
  Report(reports, "ready");
  for (size_t i = 0; i < cameras.size(); ++i) {
    camsim::RandomFaults faults;
    faults.seed = plan.seed + static_cast<uint32_t>(i);
    faults.perMinute = plan.faultsPerMinute;
    faults.kinds = plan.kinds;
    faults.onEpisode = [reports, i](const camsim::FaultEpisode& episode, bool ended) {
      Report(reports, "episode " + std::to_string(i) + (ended ? " end " : " begin ") +
                          std::to_string(SteadyMilliseconds()) + " " + camsim::KindName(episode.fault.kind) + " " +
                          camsim::SideName(episode.fault.side) + " " + episode.Describe());
    };
    cameras[i]->StartRandomFaults(std::move(faults));
  }

  // Alarms, each camera on its own thread: a post the plug-in leaves unanswered
  // holds only that camera's next one back.
  std::mutex mutex;
  std::condition_variable wake;
  bool stopping = false;
  std::atomic<int> posted{0}, answered{0};
  std::vector<std::thread> posters;
  for (size_t i = 0; i < cameras.size(); ++i) {
    posters.emplace_back([&, i] {
      std::mt19937 random(plan.seed * 31 + static_cast<uint32_t>(i));
      std::uniform_int_distribution<int> jitter(plan.alarmSeconds * 500, plan.alarmSeconds * 1500);
      std::unique_lock<std::mutex> lock(mutex);
      while (!wake.wait_for(lock, std::chrono::milliseconds(jitter(random)), [&] { return stopping; })) {
        lock.unlock();
        ++posted;
        if (cameras[i]->PostMotionAlarm()) ++answered;
        lock.lock();
      }
    });
  }
  char byte = 0;
  while (::read(hold, &byte, 1) > 0) {
  }
  {
    std::lock_guard<std::mutex> lock(mutex);
    stopping = true;
  }
  wake.notify_all();
  for (std::thread& poster : posters) poster.join();
  Report(reports, "alarms " + std::to_string(posted.load()) + " " + std::to_string(answered.load()));
  for (auto& camera : cameras) camera->Stop();
  ::_exit(0);
}

}  // namespace

int64_t SteadyMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

SoakCameraProcess StartSoakCameras(const SoakCameraPlan& plan) {
  int reportPipe[2], holdPipe[2];
  SoakCameraProcess process;
  if (::pipe(reportPipe) != 0 || ::pipe(holdPipe) != 0) return process;
  process.pid = ::fork();
  if (process.pid == 0) {
    ::close(reportPipe[0]);
    ::close(holdPipe[1]);
    RunCameras(plan, reportPipe[1], holdPipe[0]);
  }
  ::close(reportPipe[1]);
  ::close(holdPipe[0]);
  process.reports = reportPipe[0];
  process.hold = holdPipe[1];
  return process;
}
