// SoakCameras.h - the soak's simulated cameras, in a child process of their
// own so that nothing of them is measured with the plug-in: each on its own
// loopback address (HTTP 80, RTSP 554), with random fault episodes and motion
// alarms posted to the plug-in's event centre.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "camera_sim/Fault.h"

struct SoakCameraPlan {
  std::vector<std::string> addresses;
  std::string eventUrl;                    // the plug-in's alarm endpoint
  uint32_t seed = 1;                       // camera i runs its random faults with seed + i
  double faultsPerMinute = 1;              // fault episodes a minute, per camera
  std::vector<camsim::Fault::Kind> kinds;  // the kinds episodes pick from; empty: all the random ones
  int alarmSeconds = 10;                   // each camera posts an alarm about this often
  std::string logFile;                     // the cameras' log
};

// The child's lines on `reports`, one write each:
//   ready | failed REASON
//   episode CAMERA begin|end MILLISECONDS KIND SIDE DESCRIPTION   (steady clock, shared by both processes)
//   alarms POSTED ANSWERED                                         (once the cameras were told to stop)
struct SoakCameraProcess {
  pid_t pid = -1;
  int reports = -1;  // read end
  int hold = -1;     // closing it stops the cameras
};

// Forks the child; call it before the process starts any thread.
SoakCameraProcess StartSoakCameras(const SoakCameraPlan& plan);
// Milliseconds of the monotonic clock, the same in both processes.
int64_t SteadyMilliseconds();
