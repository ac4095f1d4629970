#include "protocol/Sdp.h"

#include <cctype>

#include "protocol/Text.h"

namespace mdclient {
namespace {

MediaKind KindOf(std::string_view type) {
  if (type == "video") return MediaKind::kVideo;
  if (type == "audio") return MediaKind::kAudio;
  return MediaKind::kMetadata;
}

}  // namespace

SessionDescription ParseSessionDescription(std::string_view sdp) {
  SessionDescription description;
  while (!sdp.empty()) {
    size_t end = sdp.find('\n');
    std::string_view line = sdp.substr(0, end);
    sdp.remove_prefix(end == std::string_view::npos ? sdp.size() : end + 1);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
    if (line.size() < 2 || line[1] != '=') continue;
    if (line[0] == 'm') {
      std::string_view type =
          line.substr(2, line.find(' ') == std::string_view::npos ? std::string_view::npos : line.find(' ') - 2);
      SdpMedium medium;
      medium.type = std::string(type);
      medium.kind = KindOf(type);
      description.media.push_back(std::move(medium));
    } else if (line[0] == 'a' && StartsWithIgnoreCase(line.substr(2), "rtpmap:") && !description.media.empty()) {
      // a=rtpmap:<payload type> <encoding name>/<clock rate>[/<channels>]
      std::string_view value = line.substr(2 + 7);
      const size_t blank = value.find(' ');
      int type = 0;
      for (char c : value.substr(0, blank)) {
        type = c >= '0' && c <= '9' && type < 128 ? type * 10 + (c - '0') : 1000;
      }
      if (blank == 0 || blank == std::string_view::npos || type > 127) continue;
      std::string_view encoding = Trim(value.substr(blank + 1));
      description.media.back().formats.push_back({type, std::string(encoding.substr(0, encoding.find('/')))});
    } else if (line[0] == 'a' && StartsWithIgnoreCase(line.substr(2), "control:")) {
      std::string_view value = line.substr(2 + 8);
      while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
      if (description.media.empty()) {
        description.sessionControl = std::string(value);
      } else {
        description.media.back().control = std::string(value);
      }
    }
  }
  return description;
}

std::string ResolveControlUrl(std::string_view base, std::string_view control) {
  if (StartsWithIgnoreCase(control, "rtsp://") || StartsWithIgnoreCase(control, "rtsps://")) {
    return std::string(control);
  }
  if (control.empty() || control == "*") return std::string(base);
  std::string url(base);
  if (!url.empty() && url.back() != '/' && control.front() != '/') url.push_back('/');
  if (!url.empty() && url.back() == '/' && control.front() == '/') control.remove_prefix(1);
  url.append(control);
  return url;
}

}  // namespace mdclient
