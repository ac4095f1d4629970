#include "MediaQuery.h"

#include <cctype>
#include <cstdlib>

#include "camera_sim/UrlDecode.h"

namespace camsim {
namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

bool Fail(std::string* error, const std::string& message) {
  if (error) *error = message;
  return false;
}

}  // namespace

std::optional<MediaQuery> ParseMediaQuery(const std::string& query, std::string* error) {
  MediaQuery result;
  bool sawRecording = false;
  size_t pos = 0;
  while (pos <= query.size()) {
    size_t end = query.find('&', pos);
    if (end == std::string::npos) end = query.size();
    std::string pair = query.substr(pos, end - pos);
    pos = end + 1;
    if (pair.empty()) continue;
    size_t eq = pair.find('=');
    std::string key = Lower(UrlDecode(pair.substr(0, eq)));
    std::string value = eq == std::string::npos ? std::string() : UrlDecode(pair.substr(eq + 1));
    if (key == "videocodec") {
      result.codec = Lower(value);
      if (result.codec != "h264" && result.codec != "h265") {
        Fail(error, "unsupported videocodec '" + value + "'");
        return std::nullopt;
      }
    } else if (key == "camera") {
      char* endPtr = nullptr;
      long camera = std::strtol(value.c_str(), &endPtr, 10);
      if (value.empty() || *endPtr != '\0' || camera < 1 || camera > 64) {
        Fail(error, "bad camera '" + value + "'");
        return std::nullopt;
      }
      result.camera = static_cast<int>(camera);
    } else if (key == "recordingid") {
      sawRecording = true;
      result.recordingId = value;
    }
  }
  if (sawRecording) {
    if (result.recordingId.empty()) {
      Fail(error, "empty recordingid");
      return std::nullopt;
    }
    result.kind = MediaQuery::Kind::Recording;
  }
  return result;
}

}  // namespace camsim
