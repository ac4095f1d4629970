// MediaQuery.h - what a media.amp URL's query asks for. Pure code.
#pragma once

#include <optional>
#include <string>

namespace camsim {

struct MediaQuery {
  enum class Kind { Live, Recording };
  Kind kind = Kind::Live;
  std::string codec = "h264";  // live: "h264" or "h265"
  int camera = 1;              // live: 1-based video channel
  std::string recordingId;     // recording: the id asked for
};

// Parses "videocodec=h265&camera=2" or "recordingid=ID" (URL-encoded values
// allowed). Unknown keys are ignored as the cameras do. Returns nothing and
// fills `error` for a codec we do not serve, a bad camera number or an empty
// recording id.
std::optional<MediaQuery> ParseMediaQuery(const std::string& query, std::string* error = nullptr);

}  // namespace camsim
