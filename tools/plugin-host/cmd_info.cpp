// plugin-host info: open the camera, print what the plug-in reports of it, close.
#include <cstdio>
#include <cstring>

#include "HostCommand.h"

namespace {

// Identity through the configuration commands: 7 (firmware), 4 (serial).
void PrintIdentity(HostContext& context, PluginDeviceHandle handle) {
  const auto* params = context.plugin.Query<PluginParamsTable>("params");
  if (params == nullptr) return;
  DeviceVersionParam version{};
  if (params->GetConfigParam(handle, PLUGIN_CFG_GET_VERSION, &version, sizeof version, nullptr) == 0) {
    std::printf("  firmware: %.*s\n", static_cast<int>(sizeof version.version), version.version);
  }
  static DeviceInfoParam info;  // 93 KB: not on the stack
  std::memset(&info, 0, sizeof info);
  if (params->GetConfigParam(handle, PLUGIN_CFG_GET_DEVICE_INFO, &info, sizeof info, nullptr) == 0) {
    std::printf("  serial:   %.*s\n", static_cast<int>(sizeof info.serialNumber), info.serialNumber);
    std::printf("  disks:    %u\n", info.diskCount);
  }
}

int RunInfo(HostContext& context) {
  DeviceInstance device(context.plugin);
  if (device.Handle() == nullptr) return context.Fail(1, "the plug-in could not create a device object");
  if (!OpenCamera(context, device.Handle())) return 2;
  PrintIdentity(context, device.Handle());
  const auto* common = context.plugin.Query<PluginCommonTable>("common");
  const int32_t closed = common->CloseDevice(device.Handle());
  std::printf("close: %s\n", closed == 0 ? "ok" : "FAILED");
  return closed == 0 ? 0 : context.Fail(1, "CloseDevice returned %d", closed);
}

const HostCommandRegistration kInfo({"info", "info", "open the camera, print its identity, close it", RunInfo});

}  // namespace
