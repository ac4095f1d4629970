// plugin-host tour: discovery, then every capability command the host knows,
// each against the same camera; prints one line per step and a summary.
#include <cstdio>
#include <string>
#include <vector>

#include "HostCommand.h"

namespace {

// The order of the tour; commands not built into this host are skipped.
const std::vector<std::string> kTourOrder = {"info", "live"};

// Short, self-contained settings for each step of the tour.
std::map<std::string, std::string> TourOptions(const std::string& command) {
  if (command == "live") return {{"seconds", "3"}, {"output", "tour-live.mpg"}, {"codec", "h264"}};
  return {};
}

int PrintDiscovery(HostContext& context) {
  const ZPLUGIN_Interface& record = context.plugin.Record();
  std::printf("plug-in version %s\n", record.GetVersion());
  std::printf("advertised keys:");
  for (const char* const* key = record.GetInterfaceKeys(); *key != nullptr; ++key) std::printf(" %s", *key);
  std::printf("\n");
  int missing = 0;
  for (const char* key : {"common", "stream", "record", "talk", "talk_ex", "params", "ptz", "control", "status", "log",
                          "transmethod", "ntp"}) {
    const void* table = nullptr;
    if (record.QueryInterface(nullptr, key, &table) != 0 || table == nullptr) {
      std::printf("  table %-12s MISSING\n", key);
      ++missing;
    }
  }
  std::printf("discovery: %s\n", missing == 0 ? "all 12 tables answer" : "tables missing");
  return missing == 0 ? 0 : 1;
}

int RunTour(HostContext& context) {
  int failures = 0;
  std::printf("== discovery\n");
  if (PrintDiscovery(context) != 0) ++failures;
  for (const std::string& name : kTourOrder) {
    auto found = HostCommands().find(name);
    if (found == HostCommands().end()) continue;
    std::printf("== %s\n", name.c_str());
    HostContext step{context.plugin, context.camera, TourOptions(name)};
    const int result = found->second.run(step);
    std::printf("-- %s: %s\n", name.c_str(), result == 0 ? "ok" : "FAILED");
    if (result != 0) ++failures;
  }
  std::printf("tour: %s (%d failed)\n", failures == 0 ? "ok" : "FAILED", failures);
  return failures == 0 ? 0 : 1;
}

const HostCommandRegistration kTour({"tour", "tour", "discovery, then every capability against one camera",
                                     RunTour});

}  // namespace
