#include "schedule/StreamProfiles.h"

#include <climits>
#include <cstdlib>

#include "RapidJsonProto.h"

namespace schedule {

namespace {

// Base 10 as far as the digits go; clamped rather than wrapped.
int32_t Number(const std::string& text) {
  const long long value = std::strtoll(text.c_str(), nullptr, 10);
  return static_cast<int32_t>(value > INT32_MAX ? INT32_MAX : value < INT32_MIN ? INT32_MIN : value);
}

void ReadParameters(const std::string& parameters, StreamProfileEntry& entry) {
  size_t begin = 0;
  while (begin <= parameters.size()) {
    size_t end = parameters.find('&', begin);
    if (end == std::string::npos) end = parameters.size();
    const std::string piece = parameters.substr(begin, end - begin);
    begin = end + 1;
    const size_t equals = piece.find('=');
    if (equals == std::string::npos) continue;
    const std::string key = piece.substr(0, equals);
    const std::string value = piece.substr(equals + 1);
    if (key == "videocodec") {
      entry.codec = value;
    } else if (key == "fps") {
      entry.frameRate = Number(value);
    } else if (key == "resolution") {
      const size_t x = value.find('x');
      entry.firstSize = Number(value.substr(0, x));
      if (x != std::string::npos) entry.secondSize = Number(value.substr(x + 1));
    }
  }
}

}  // namespace

bool ParseStreamProfiles(const std::string& answer, std::vector<StreamProfileEntry>& entries) {
  Tarn::Proto::CRapidJsonProto json;
  if (!json.set_str(answer)) return false;
  const size_t count = json.GetArraySize("/data/streamProfile");
  for (size_t i = 0; i < count; ++i) {
    const std::string base = "/data/streamProfile[" + std::to_string(i + 1) + "]";
    StreamProfileEntry entry;
    entry.name = json.GetString(base + "/name", "");
    ReadParameters(json.GetString(base + "/parameters", ""), entry);
    entries.push_back(std::move(entry));
  }
  StreamProfileEntry fixed;
  fixed.codec = "H264";
  entries.push_back(fixed);
  return true;
}

// "High" carries the width and "Width" the height: the platform reads them so.
void WriteProfileList(const std::vector<StreamProfileEntry>& entries, const std::string& recordProfile,
                      Tarn::Proto::IProto& response) {
  const std::string path = "/List[1]";
  response.SetString(path, "");
  Tarn::Proto::ProtoNode* node = response.GetNode(path);
  for (const StreamProfileEntry& entry : entries) {
    Tarn::Proto::ProtoNode* profile = response.AppendObject(node, "Profiles");
    response.SetString(profile, "Encode", entry.codec);
    response.SetInt(profile, "FrameRateLimit", entry.frameRate);
    response.SetInt(profile, "High", entry.firstSize);
    response.SetString(profile, "ProfileToken", entry.name);
    response.SetInt(profile, "Width", entry.secondSize);
    response.SetInt(profile, "RecordEnable", entry.name == recordProfile ? 1 : 0);
  }
  response.SetString(node, "VideoSourcesToken", "1");
}

}  // namespace schedule
