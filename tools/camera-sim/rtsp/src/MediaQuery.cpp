#include "MediaQuery.h"

#include <cctype>
#include <cstdlib>

namespace camsim {
namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string PercentDecode(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      int high = HexValue(text[i + 1]);
      int low = HexValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
        continue;
      }
    }
    out.push_back(text[i] == '+' ? ' ' : text[i]);
  }
  return out;
}

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
    std::string key = Lower(PercentDecode(pair.substr(0, eq)));
    std::string value = eq == std::string::npos ? std::string() : PercentDecode(pair.substr(eq + 1));
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
