// plugin-host events: subscribes to the camera's alarms through the plug-in,
// has a simulated camera (the embedded one, or a camera-sim started apart)
// post motion alarms to the plug-in's event port, and prints each alarm as it
// arrives and a summary.
//   events [--seconds N] [--count N]
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "HostCommand.h"
#include "HostControl.h"

namespace {

std::atomic<bool> g_interrupted{false};

void OnInterrupt(int) { g_interrupted = true; }

struct AlarmSink {
  std::string camera;
  std::atomic<int> received{0};

  static int32_t NETCAM_CALL OnAlarm(PluginDeviceHandle, uint32_t type, uint32_t value, const void* record, intptr_t,
                                     void* user) {
    auto* sink = static_cast<AlarmSink*>(user);
    const auto* alarm = static_cast<const PluginAlarmRecord*>(record);
    const int32_t* t = alarm->localTime;  // microseconds, seconds, minutes, hours, day, month 0-11, years since 1900
    const char* kind = alarm->alarmKind == PLUGIN_ALARM_KIND_MOTION ? "motion" : "other";
    std::printf("alarm %d: %04d-%02d-%02d %02d:%02d:%02d.%06d from %s, %s (kind %d, type %" PRIu32 ", value %" PRIu32
                ")\n",
                sink->received.load() + 1, t[6] + 1900, t[5] + 1, t[4], t[3], t[2], t[1], t[0], sink->camera.c_str(),
                kind, alarm->alarmKind, type, value);
    std::fflush(stdout);
    ++sink->received;
    return 0;
  }
};

// The port the plug-in listens on, from the Setup.xml it reads (next to the
// module, in the platform's install layout); 0 when there is none.
uint16_t EventPort(const std::string& pluginPath, std::string& setupPath) {
  const size_t slash = pluginPath.find_last_of("/\\");
  const std::string directory = slash == std::string::npos ? "." : pluginPath.substr(0, slash);
  setupPath = directory + "/../../META_INFO/extdev_axis.d/runtime_script/Setup.xml";
  std::ifstream file(setupPath);
  std::stringstream text;
  text << file.rdbuf();
  const std::string xml = text.str();
  std::smatch match;
  if (!std::regex_search(xml, match, std::regex(R"(<Event>\s*([0-9]+)\s*</Event>)"))) return 0;
  const long port = std::strtol(match[1].str().c_str(), nullptr, 10);
  return port > 0 && port < 65536 ? static_cast<uint16_t>(port) : 0;
}

// A camera-sim started apart answers its control path with 200 and posts
// alarms when asked there; a real camera answers 404 and posts on its own.
AlarmTrigger SeparateSimulator(const CameraTarget& camera) {
  std::string answer;
  if (CameraRequest(camera, "/camera-sim/alarm", nullptr, &answer) != 200) return {};
  return [camera](const std::string& eventUrl) {
    std::string reply;
    return CameraRequest(camera, "/camera-sim/alarm", &eventUrl, &reply) == 200;
  };
}

int RunEvents(HostContext& context) {
  const double seconds = std::atof(context.Option("seconds", "5").c_str());
  const int count = std::atoi(context.Option("count", "10").c_str());
  if (seconds <= 0 || count <= 0) return context.Fail(64, "events: --seconds > 0, --count > 0");
  const auto* control = context.plugin.Query<PluginControlTable>("control");
  if (control == nullptr) return context.Fail(1, "the plug-in has no \"control\" table");
  std::string setupPath;
  const uint16_t port = EventPort(context.plugin.Path(), setupPath);
  if (port == 0) {
    return context.Fail(1, "no event port: %s is missing or has no <Configs><AxisPort><Event>", setupPath.c_str());
  }
  const std::string eventUrl = "http://127.0.0.1:" + std::to_string(port) + "/axis/uploadalarm/motiondetection";
  DeviceInstance device(context.plugin);
  if (device.Handle() == nullptr) return context.Fail(1, "the plug-in could not create a device object");
  if (!OpenCamera(context, device.Handle())) return 2;

  AlarmSink sink;
  sink.camera = context.camera.host;
  if (control->SetEventCallBack(device.Handle(), &AlarmSink::OnAlarm, &sink) != 0)
    return context.Fail(3, "SetEventCallBack failed; the plug-in's log says why");
  std::printf("subscribed; alarms go to %s\n", eventUrl.c_str());
  const AlarmTrigger postAlarm = context.camera.postAlarm ? context.camera.postAlarm : SeparateSimulator(context.camera);
  if (!postAlarm)
    std::printf("waiting %.0f s for the camera's own notifications (its HTTP action must post to that URL)\n", seconds);

  g_interrupted = false;
  auto previousInt = std::signal(SIGINT, OnInterrupt);
  const auto started = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  };
  int posted = 0, answered = 0;
  while (!g_interrupted && elapsed() < seconds) {
    // The simulated camera posts the alarms evenly over the time given.
    if (postAlarm && posted < count && elapsed() >= posted * seconds / count) {
      ++posted;
      answered += postAlarm(eventUrl) ? 1 : 0;
      continue;
    }
    if (postAlarm && posted == count && sink.received >= count) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const double took = elapsed();
  control->SetEventCallBack(device.Handle(), nullptr, nullptr);
  std::signal(SIGINT, previousInt);
  const int received = sink.received;
  std::printf("received %d alarm(s) in %.1f s (%.1f per second)", received, took, took > 0 ? received / took : 0.0);
  if (postAlarm) std::printf("; the camera posted %d, %d answered", posted, answered);
  std::printf("\n");
  const auto* common = context.plugin.Query<PluginCommonTable>("common");
  common->CloseDevice(device.Handle());
  if (!postAlarm) return received > 0 ? 0 : context.Fail(4, "no alarm arrived in %.0f s", seconds);
  if (answered != posted) return context.Fail(4, "%d of %d alarm posts were not answered", posted - answered, posted);
  if (received != posted) return context.Fail(4, "%d alarm(s) posted but %d delivered", posted, received);
  return 0;
}

const HostCommandRegistration kEvents({"events", "events [--seconds N] [--count N]",
                                       "subscribe to alarms, have the simulated camera post them, print each",
                                       RunEvents});

}  // namespace
