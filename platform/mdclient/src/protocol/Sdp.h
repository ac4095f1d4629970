// Sdp.h - the part of an SDP description a client needs for SETUP: each
// medium's type, control URL and payload formats, and the session-level
// (aggregate) control.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mdclient {

enum class MediaKind { kVideo, kAudio, kMetadata };

struct SdpMedium {
  std::string type;  // "video", "audio", "application", ...
  MediaKind kind = MediaKind::kMetadata;
  std::string control;  // a=control value as written; may be empty
  struct PayloadFormat {
    int type = -1;
    std::string encoding;  // a=rtpmap encoding name as written, e.g. "H264"
  };
  std::vector<PayloadFormat> formats;
};

struct SessionDescription {
  std::string sessionControl;  // session-level a=control ("*", absolute, relative or empty)
  std::vector<SdpMedium> media;
};

SessionDescription ParseSessionDescription(std::string_view sdp);

// Resolves a control attribute against the base URL the way RTSP servers
// expect it: absolute URLs stay, "*" and "" mean the base itself, anything
// else is appended to the base with one '/'.
std::string ResolveControlUrl(std::string_view base, std::string_view control);

}  // namespace mdclient
