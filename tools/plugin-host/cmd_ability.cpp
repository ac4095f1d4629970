// plugin-host ability: the ability document the plug-in answers for the
// platform's only ability command (14, video and picture).
#include <cstdio>
#include <vector>

#include "HostControl.h"

namespace {

int RunAbility(HostContext& context) {
  OpenedCamera camera(context);
  if (!camera.Open()) return 2;
  const char request[] = "<Params><Command>14</Command></Params>";
  std::vector<char> buffer(4096, '\0');
  // The document comes without a terminator: one byte is kept back for it.
  const int32_t result = context.plugin.Query<PluginCommonTable>("common")->GetDeviceAbility(
      camera.Handle(), request, sizeof request - 1, buffer.data(), static_cast<int32_t>(buffer.size() - 1));
  if (result != 0) return context.Fail(3, "GetDeviceAbility returned %d; the plug-in's log says why", result);
  std::printf("%s\n", buffer.data());
  return 0;
}

const HostCommandRegistration kAbility({"ability", "ability", "the camera's ability document (command 14)",
                                        RunAbility});

}  // namespace
