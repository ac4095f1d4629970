#include "HostCommand.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

std::map<std::string, HostCommandInfo>& HostCommands() {
  static std::map<std::string, HostCommandInfo> commands;
  return commands;
}

HostCommandRegistration::HostCommandRegistration(HostCommandInfo info) {
  std::string name = info.name;
  HostCommands().emplace(std::move(name), std::move(info));
}

DeviceLoginParam HostContext::LoginParam() const {
  DeviceLoginParam login{};
  std::strncpy(login.ip, camera.host.c_str(), sizeof login.ip - 1);
  login.port = camera.httpPort;
  std::strncpy(login.user, camera.user.c_str(), sizeof login.user - 1);
  std::strncpy(login.password, camera.password.c_str(), sizeof login.password - 1);
  return login;
}

int HostContext::Fail(int exitCode, const char* format, ...) {
  char reason[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(reason, sizeof reason, format, args);
  va_end(args);
  std::fprintf(stderr, "plugin-host: %s\n", reason);
  if (failure.empty()) failure = reason;
  return exitCode;
}

bool OpenCamera(HostContext& context, PluginDeviceHandle handle) {
  const auto* common = context.plugin.Query<PluginCommonTable>("common");
  if (common == nullptr) {
    context.Fail(1, "the plug-in has no \"common\" table");
    return false;
  }
  const DeviceLoginParam login = context.LoginParam();
  const int32_t result = common->OpenDevice(handle, &login);
  std::printf("open %s:%u as %s: %s\n", context.camera.host.c_str(), context.camera.httpPort,
              context.camera.user.c_str(), result == 0 ? "ok" : "FAILED");
  if (result != 0) {
    context.Fail(2, "OpenDevice returned %d: the camera could not be opened; the plug-in's log says why", result);
  }
  return result == 0;
}
