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
  std::string user;      // as written in the URL, never percent-decoded
  std::string password;  // as written in the URL, never percent-decoded
  bool hasCredentials = false;
  std::string host;  // IPv6 without brackets
  uint16_t port = 554;
  std::string authority;     // host[:port] as written, without credentials
  std::string pathAndQuery;  // always starts with '/'

  // rtsp://host[:port]/path?query: what request lines carry and logs show.
  std::string RequestUri() const { return "rtsp://" + authority + pathAndQuery; }
};

// rtsp://[user[:password]@]host[:port][/path][?query]. User and password are
// taken as written: the user up to the first ':', the password up to the last
// '@' that is followed by a valid host[:port] and then '/' or '?', so the
// password may hold any printable character ('@', ':', '/', '?', '#', '%',
// blanks). A URL without a path ends its authority at the first '/', '?' or
// '#'. An '@' in the path or query must be written %40. On failure returns
// nullopt and, when given, sets *error to a reason free of credentials.
std::optional<RtspUrl> ParseRtspUrl(std::string_view text, std::string* error = nullptr);

// The URL with any credentials removed, for logs; "<invalid url>" when it
// cannot be parsed.
std::string RedactUrl(std::string_view text);

}  // namespace mdclient
