// FaultOption.h - the program's --fault option, KIND[:SIDE][,key=value...],
// read into a fault (or a random plan) and handed to the camera.
#pragma once

#include <chrono>
#include <string>

#include "camera_sim/Camera.h"

namespace camsim {

struct FaultOption {
  bool random = false;
  RandomFaults plan;  // when random
  std::string path;   // the path prefix the fault matches ("" for all)
  Fault fault;
  std::chrono::milliseconds at{0};      // switched on this long after the start
  std::chrono::milliseconds length{0};  // and off again this long after (0: stays on)
};

// False with `error` saying what is wrong with `text`.
bool ParseFaultOption(const std::string& text, FaultOption* option, std::string* error);
// Switches the fault on (now or when its time comes) or starts the random plan.
void ApplyFaultOption(Camera& camera, const FaultOption& option);

// The option's part of the program's --help.
extern const char* const kFaultOptionHelp;

}  // namespace camsim
