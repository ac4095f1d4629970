// RtspUrl.h - rtsp:// URL parsing. Credentials are kept apart from the
// request URI so that nothing sent in a request line or written to a log
// carries them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mdclient {

struct RtspUrl {
  std::string user;      // percent-decoded
  std::string password;  // percent-decoded
  bool hasCredentials = false;
  std::string host;  // IPv6 without brackets
  uint16_t port = 554;
  std::string authority;     // host[:port] as written, without credentials
  std::string pathAndQuery;  // always starts with '/'

  // rtsp://host[:port]/path?query: what request lines carry and logs show.
  std::string RequestUri() const { return "rtsp://" + authority + pathAndQuery; }
};

// rtsp://[user[:password]@]host[:port][/path][?query]. The password may hold
// ':' and '@' (the last '@' before the host separates them). On failure
// returns nullopt and, when given, sets *error to a reason free of
// credentials.
std::optional<RtspUrl> ParseRtspUrl(std::string_view text, std::string* error = nullptr);

// The URL with any credentials removed, for logs; "<invalid url>" when it
// cannot be parsed.
std::string RedactUrl(std::string_view text);

// %XX sequences decoded; a '%' not followed by two hex digits stays as is.
std::string PercentDecode(std::string_view text);

}  // namespace mdclient
