// plugin-host time set [ISO-TIME|now]: sets the camera's clock through
// configuration command 23. The camera takes the six fields as its own local
// time, so "now" is this machine's local time and an ISO time is sent as written.
#include <cstdio>
#include <string>

#include "HostControl.h"
#include "kor.h"

namespace {

bool ParseFields(const std::string& text, NET_DEV_TIME& time) {
  if (text == "now") {
    KOR_ExpTime local{};
    if (KOR_ExpTimeFromTimeLocal(&local, KOR_TimeNow()) != KOR_OK) return false;
    time = {static_cast<uint32_t>(local.tm_year + 1900), static_cast<uint32_t>(local.tm_mon + 1),
            static_cast<uint32_t>(local.tm_mday),        static_cast<uint32_t>(local.tm_hour),
            static_cast<uint32_t>(local.tm_min),         static_cast<uint32_t>(local.tm_sec)};
    return true;
  }
  unsigned fields[6] = {};
  char tail = 0;
  const int read = std::sscanf(text.c_str(), "%4u-%2u-%2uT%2u:%2u:%2u%c", &fields[0], &fields[1], &fields[2],
                               &fields[3], &fields[4], &fields[5], &tail);
  if (read < 6 || (read == 7 && tail != 'Z') || fields[1] < 1 || fields[1] > 12 || fields[2] < 1 || fields[2] > 31 ||
      fields[3] > 23 || fields[4] > 59 || fields[5] > 60) {
    return false;
  }
  time = {fields[0], fields[1], fields[2], fields[3], fields[4], fields[5]};
  return true;
}

int RunTime(HostContext& context) {
  const std::vector<std::string>& args = context.arguments;
  NET_DEV_TIME time{};
  if (args.empty() || args[0] != "set" || args.size() > 2 || !ParseFields(args.size() == 2 ? args[1] : "now", time)) {
    return context.Fail(64, "usage: time set [YYYY-MM-DDTHH:MM:SS|now]");
  }
  OpenedCamera camera(context);
  if (!camera.Open()) return 2;
  const int32_t result = context.plugin.Query<PluginParamsTable>("params")->SetConfigParam(
      camera.Handle(), PLUGIN_CFG_SET_TIME, &time, sizeof time, nullptr);
  std::printf("set the camera's clock to %04u-%02u-%02u %02u:%02u:%02u: %s\n", time.year, time.month, time.day,
              time.hour, time.minute, time.second, result == 0 ? "ok" : "FAILED");
  return result == 0 ? 0 : context.Fail(3, "SetConfigParam(23) returned %d; the plug-in's log says why", result);
}

const HostCommandRegistration kTime({"time", "time set [ISO-TIME|now]",
                                     "set the camera's clock (its local time; default now)", RunTime});

}  // namespace
