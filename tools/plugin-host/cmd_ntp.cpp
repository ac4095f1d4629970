// plugin-host ntp: prints the camera's NTP client settings; "ntp set SERVER|off"
// changes them (--restore puts the earlier settings back afterwards, as the tour does).
#include <cstdio>
#include <cstring>
#include <string>

#include "HostControl.h"

namespace {

// The only port the cameras' NTP client uses.
constexpr int32_t kNtpPort = 123;

void Print(const char* heading, const DeviceNtpConfig& config) {
  if (config.enabled == 0) {
    std::printf("%s: off (or servers from DHCP)\n", heading);
    return;
  }
  std::printf("%s: on, server %.*s, port %d, interval %d s\n", heading, static_cast<int>(sizeof config.server),
              config.server, config.port, config.interval);
}

int Set(HostContext& context, const PluginNtpTable& ntp, PluginDeviceHandle handle, const DeviceNtpConfig& config) {
  const int32_t result = ntp.SetNtpCfg(handle, &config);
  return result == 0 ? 0 : context.Fail(3, "SetNtpCfg returned %d; the plug-in's log says why", result);
}

int RunNtp(HostContext& context) {
  const std::vector<std::string>& args = context.arguments;
  const bool setting = !args.empty();
  if (setting && (args.size() != 2 || args[0] != "set" || args[1].empty() || args[1].size() >= 32)) {
    return context.Fail(64, "usage: ntp [set SERVER|off [--restore]] (a server name of at most 31 characters)");
  }
  OpenedCamera camera(context);
  if (!camera.Open()) return 2;
  const auto* ntp = context.plugin.Query<PluginNtpTable>("ntp");
  if (ntp == nullptr) return context.Fail(1, "the plug-in has no \"ntp\" table");
  DeviceNtpConfig before{};
  int32_t result = ntp->GetNtpCfg(camera.Handle(), &before);
  if (result != 0) return context.Fail(3, "GetNtpCfg returned %d; the plug-in's log says why", result);
  Print(setting ? "before" : "NTP", before);
  if (!setting) return 0;

  DeviceNtpConfig wanted{};
  wanted.enabled = args[1] == "off" ? 0 : 1;
  std::strncpy(wanted.server, args[1] == "off" ? "" : args[1].c_str(), sizeof wanted.server - 1);
  wanted.port = kNtpPort;
  if (const int failed = Set(context, *ntp, camera.Handle(), wanted)) return failed;
  DeviceNtpConfig after{};
  result = ntp->GetNtpCfg(camera.Handle(), &after);
  if (result != 0) return context.Fail(3, "GetNtpCfg returned %d after the change", result);
  Print("after", after);
  if (after.enabled != wanted.enabled) return context.Fail(3, "the camera did not take the new NTP settings");
  if (context.options.count("restore") == 0) return 0;
  // A client that took its servers from DHCP comes back as off: the plug-in cannot set DHCP.
  before.port = kNtpPort;
  if (const int failed = Set(context, *ntp, camera.Handle(), before)) return failed;
  Print("restored", before);
  return 0;
}

const HostCommandRegistration kNtp({"ntp", "ntp [set SERVER|off [--restore]]",
                                    "the camera's NTP client settings; set a server or turn it off", RunNtp});

}  // namespace
