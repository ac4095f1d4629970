// plugin-host tour: discovery, then every capability the host knows, each
// against the same camera, and one summary table at the end: a line per
// capability, "ok" or why it failed. Run against a real camera (--camera) the
// table says what that camera and its firmware support.
#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "HostCommand.h"

namespace {

// One line of the summary: a capability, the command that exercises it and
// short, self-contained settings for it.
struct TourStep {
  std::string capability;
  std::string command;
  std::map<std::string, std::string> options;
  std::vector<std::string> arguments;
};

const std::vector<TourStep> kTourSteps = {
    {"identity", "info", {}},
    {"live H.264", "live", {{"seconds", "3"}, {"output", "tour-live.mpg"}, {"codec", "h264"}}},
    {"live H.265", "live", {{"seconds", "3"}, {"output", "tour-live-h265.mpg"}, {"codec", "h265"}}},
    {"recordings", "recordings", {}},
    {"playback", "playback", {{"output", "tour-playback.mpg"}}},
    {"calendar", "calendar", {}},
    {"schedule", "schedule", {}},
    {"schedule write", "schedule set",
     {{"day", "MO-FR\nSU"}, {"from", "08:00\n22:00"}, {"to", "18:00\n02:00"}, {"all-day", "SA"}, {"pre", "2"},
      {"post", "5000"}, {"restore", "1"}}},
    {"stream profiles", "profiles", {}},
    {"recording profile", "profile set", {}, {"Quality"}},
    {"alarm events", "events", {{"seconds", "3"}, {"count", "5"}}},
    // Device control; the PTZ steps end where they began (preset 99 is borrowed), the NTP change is undone.
    {"work status", "status", {}},
    {"ability", "ability", {}},
    {"snapshot", "snapshot", {{"output", "tour-snapshot.jpg"}}},
    {"NTP settings", "ntp", {}},
    {"NTP change", "ntp", {{"restore", "1"}}, {"set", "time.example.org"}},
    {"PTZ preset set", "ptz", {}, {"preset", "set", "99"}},
    {"PTZ pan right", "ptz", {{"for", "1"}}, {"right"}},
    {"PTZ zoom in", "ptz", {{"for", "1"}}, {"zoom-in"}},
    {"PTZ zoom out", "ptz", {{"for", "0.5"}}, {"zoom-out"}},
    {"PTZ preset goto", "ptz", {}, {"preset", "goto", "99"}},
    {"PTZ preset clear", "ptz", {}, {"preset", "clear", "99"}},
    {"clock", "time", {}, {"set", "now"}},
};

// Empty when every table answers, otherwise the reason.
std::string CheckDiscovery(HostContext& context) {
  const ZPLUGIN_Interface& record = context.plugin.Record();
  std::printf("plug-in version %s\n", record.GetVersion());
  std::printf("advertised keys:");
  for (const char* const* key = record.GetInterfaceKeys(); *key != nullptr; ++key) std::printf(" %s", *key);
  std::printf("\n");
  std::string missing;
  for (const char* key : {"common", "stream", "record", "talk", "talk_ex", "params", "ptz", "control", "status", "log",
                          "transmethod", "ntp"}) {
    const void* table = nullptr;
    if (record.QueryInterface(nullptr, key, &table) != 0 || table == nullptr) missing += std::string(" ") + key;
  }
  if (missing.empty()) {
    std::printf("all 12 tables answer\n");
    return {};
  }
  return "tables missing:" + missing;
}

int RunTour(HostContext& context) {
  std::vector<std::pair<std::string, std::string>> summary;  // capability, "ok" or reason
  std::printf("== discovery\n");
  const std::string discovery = CheckDiscovery(context);
  summary.emplace_back("discovery", discovery.empty() ? "ok" : discovery);

  for (const TourStep& step : kTourSteps) {
    auto found = HostCommands().find(step.command);
    if (found == HostCommands().end()) {
      summary.emplace_back(step.capability, "not built into this host");
      continue;
    }
    std::printf("== %s (%s)\n", step.capability.c_str(), step.command.c_str());
    std::fflush(stdout);
    HostContext stepContext{context.plugin, context.camera, step.options, step.arguments};
    const int result = found->second.run(stepContext);
    std::string outcome = "ok";
    if (result != 0) {
      outcome = stepContext.failure.empty() ? "failed with exit code " + std::to_string(result) : stepContext.failure;
    }
    summary.emplace_back(step.capability, outcome);
  }

  size_t width = 0;
  for (const auto& line : summary) width = std::max(width, line.first.size());
  size_t failed = 0;
  std::printf("\n== summary\n");
  for (const auto& [capability, outcome] : summary) {
    std::printf("  %-*s  %s\n", static_cast<int>(width), capability.c_str(), outcome.c_str());
    if (outcome != "ok") ++failed;
  }
  std::printf("tour: %s, %zu of %zu capabilities ok\n", failed == 0 ? "ok" : "FAILED", summary.size() - failed,
              summary.size());
  return failed == 0 ? 0 : 1;
}

const HostCommandRegistration kTour({"tour", "tour",
                                     "discovery, then every capability against one camera, and a summary table",
                                     RunTour});

}  // namespace
