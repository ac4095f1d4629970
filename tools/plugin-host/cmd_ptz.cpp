// plugin-host ptz: steers the camera as an operator's joystick does, and
// prints where the camera points before and after.
//   ptz MOVE [--speed S] [--for SECONDS]    start, wait, stop (speed 1..10, default 5; 1 s)
//   ptz preset set|goto|clear N
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "HostControl.h"

namespace {

constexpr uint32_t kPtzControlType = 1;

struct Move {
  const char* name;
  uint32_t command;
};
constexpr Move kMoves[] = {{"up", 21},       {"down", 22},      {"left", 23},       {"right", 24},   {"up-left", 25},
                           {"up-right", 26}, {"down-left", 27}, {"down-right", 28}, {"zoom-in", 11}, {"zoom-out", 12}};
constexpr Move kPresets[] = {{"set", 8}, {"clear", 9}, {"goto", 39}};

int Send(HostContext& context, PluginDeviceHandle handle, uint32_t command, int32_t action, int32_t speed,
         int32_t preset) {
  const PtzControlInput input{0, command, action, speed, preset};
  const int32_t result =
      context.plugin.Query<PluginPtzTable>("ptz")->PTZControl(handle, kPtzControlType, &input, sizeof input, 0);
  return result == 0 ? 0
                     : context.Fail(3, "PTZControl(command %u, %s) returned %d; the plug-in's log says why", command,
                                    action == 0 ? "start" : "stop", result);
}

int RunPtz(HostContext& context) {
  const std::vector<std::string>& args = context.arguments;
  const Move* move = nullptr;
  for (const Move& candidate : kMoves) {
    if (args.size() == 1 && args[0] == candidate.name) move = &candidate;
  }
  const Move* preset = nullptr;
  for (const Move& candidate : kPresets) {
    if (args.size() == 3 && args[0] == "preset" && args[1] == candidate.name) preset = &candidate;
  }
  const int number = preset != nullptr ? std::atoi(args[2].c_str()) : 0;
  const int speed = std::atoi(context.Option("speed", "5").c_str());
  const double seconds = std::atof(context.Option("for", "1").c_str());
  if ((move == nullptr && (preset == nullptr || number < 1)) || speed < 1 || speed > 10 || seconds < 0 ||
      seconds > 60) {
    return context.Fail(64,
                        "usage: ptz up|down|left|right|up-left|up-right|down-left|down-right|zoom-in|zoom-out "
                        "[--speed 1..10] [--for SECONDS], or ptz preset set|goto|clear N");
  }
  OpenedCamera camera(context);
  if (!camera.Open()) return 2;
  std::printf("position before: %s\n", CameraPtzPosition(context.camera).c_str());
  if (preset != nullptr) {
    if (const int failed = Send(context, camera.Handle(), preset->command, 0, 0, number)) return failed;
    std::printf("preset %s %d: ok\n", preset->name, number);
  } else {
    if (const int failed = Send(context, camera.Handle(), move->command, 0, speed, 0)) return failed;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    if (const int failed = Send(context, camera.Handle(), move->command, 1, speed, 0)) return failed;
    std::printf("%s at speed %d for %.1f s: ok\n", move->name, speed, seconds);
  }
  std::printf("position after:  %s\n", CameraPtzPosition(context.camera).c_str());
  return 0;
}

const HostCommandRegistration kPtz({"ptz", "ptz MOVE [--speed S] [--for SECONDS] | preset set|goto|clear N",
                                    "steer the camera (MOVE: up, down, left, right, up-left, ..., zoom-in, zoom-out)",
                                    RunPtz});

}  // namespace
