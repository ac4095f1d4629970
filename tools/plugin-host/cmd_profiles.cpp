// plugin-host profiles: the camera's stream profiles as the platform lists
// them (the JSON command "ProfileList" through TransMethod), with the one the
// recording schedule records.
//   profiles
//   profile set NAME    the profile scheduled recording uses ("SetProfile"); the
//                       plan on the camera is written again so that it records it
#include <rapidjson/document.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "HostCommand.h"

namespace {

constexpr size_t kResponseBytes = 256 * 1024;

struct Session {
  HostContext& context;
  DeviceInstance device;
  const PluginTransMethodTable* commands = nullptr;
  bool open = false;

  explicit Session(HostContext& c) : context(c), device(c.plugin) {}
  ~Session() {
    if (open) context.plugin.Query<PluginCommonTable>("common")->CloseDevice(device.Handle());
  }
  // 0 when the camera is open, else the exit code (the reason given to Fail).
  int Open() {
    commands = context.plugin.Query<PluginTransMethodTable>("transmethod");
    if (commands == nullptr) return context.Fail(1, "the plug-in has no \"transmethod\" table");
    if (device.Handle() == nullptr) return context.Fail(1, "the plug-in could not create a device object");
    if (!OpenCamera(context, device.Handle())) return 2;
    open = true;
    return 0;
  }
  int32_t Command(const std::string& request, std::string& answer) {
    std::vector<char> response(kResponseBytes, '\0');
    uint32_t length = 0;
    const int32_t result = commands->TransMethod(device.Handle(), request.c_str(),
                                                 static_cast<uint32_t>(request.size()), response.data(), &length);
    answer.assign(response.data(), std::min<size_t>(length, response.size()));
    return result;
  }
};

int PrintProfiles(Session& session) {
  std::string answer;
  const int32_t result = session.Command("{\"method\":\"ProfileList\"}", answer);
  if (result != 0) return session.context.Fail(3, "ProfileList returned %d; the plug-in's log says why", result);
  rapidjson::Document json;
  json.Parse(answer.c_str());
  if (json.HasParseError() || !json.IsObject() || !json.HasMember("List") || !json["List"].IsArray() ||
      json["List"].Empty() || !json["List"][0].IsObject() || !json["List"][0].HasMember("Profiles") ||
      !json["List"][0]["Profiles"].IsArray()) {
    return session.context.Fail(3, "the profile list is not understood: %s", answer.c_str());
  }
  auto text = [](const rapidjson::Value& v, const char* key) {
    return v.HasMember(key) && v[key].IsString() ? std::string(v[key].GetString()) : std::string();
  };
  auto number = [](const rapidjson::Value& v, const char* key) {
    return v.HasMember(key) && v[key].IsInt64() ? static_cast<long long>(v[key].GetInt64()) : -1LL;
  };
  std::printf("  %-16s %-6s %-11s %-5s %s\n", "name", "codec", "size", "fps", "records");
  for (const auto& profile : json["List"][0]["Profiles"].GetArray()) {
    if (!profile.IsObject()) continue;
    // The answer's "High" holds the width and "Width" the height.
    const long long width = number(profile, "High"), height = number(profile, "Width");
    const std::string size = width < 0 ? "-" : std::to_string(width) + "x" + std::to_string(height);
    const long long fps = number(profile, "FrameRateLimit");
    const std::string name = text(profile, "ProfileToken");
    std::printf("  %-16s %-6s %-11s %-5s %s\n", name.empty() ? "(default)" : name.c_str(),
                text(profile, "Encode").c_str(), size.c_str(), fps < 0 ? "-" : std::to_string(fps).c_str(),
                number(profile, "RecordEnable") == 1 ? "yes" : "");
  }
  return 0;
}

int RunProfiles(HostContext& context) {
  Session session(context);
  if (int code = session.Open()) return code;
  return PrintProfiles(session);
}

int RunProfileSet(HostContext& context) {
  const std::string name = context.arguments.empty() ? std::string() : context.arguments.front();
  if (name.empty()) return context.Fail(64, "profile set NAME");
  for (char c : name) {
    if (c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20) return context.Fail(64, "profile set: bad name");
  }
  Session session(context);
  if (int code = session.Open()) return code;
  std::string answer;
  const int32_t result =
      session.Command("{\"method\":\"SetProfile\",\"params\":{\"ProfileToken\":\"" + name + "\"}}", answer);
  if (result != 1) return context.Fail(3, "SetProfile returned %d", result);
  // The choice lives in this device object only: write the plan again so the camera records with it.
  const auto* record = context.plugin.Query<PluginRecordTable>("record");
  RecordConfigInfo plan{};
  if (record->GetRecordConfig(session.device.Handle(), &plan) != 0) {
    return context.Fail(3, "GetRecordConfig failed; the plug-in's log says why");
  }
  if (plan.enabled == 0) {
    std::printf("recording profile %s chosen; no recording is planned, so nothing on the camera changes\n",
                name.c_str());
  } else {
    const int32_t written = record->SetRecordConfig(session.device.Handle(), &plan);
    if (written != 0) return context.Fail(3, "SetRecordConfig returned %d", written);
    std::printf("recording profile %s chosen and the plan written again\n", name.c_str());
  }
  return PrintProfiles(session);
}

const HostCommandRegistration kProfiles({"profiles", "profiles",
                                         "the stream profiles: name, codec, size, frame rate, which one records",
                                         RunProfiles});
const HostCommandRegistration kProfileSet({"profile set", "profile set NAME",
                                           "chooses the stream profile that scheduled recording uses", RunProfileSet});

}  // namespace
