#include "protocol/RtspUrl.h"

#include <algorithm>
#include <cctype>

namespace mdclient {
namespace {

bool IsHostNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '.' || c == '_';
}

// host[:port] or [v6][:port]; fills host and port.
bool ParseAuthority(std::string_view text, std::string* host, uint16_t* port) {
  std::string_view portText;
  if (!text.empty() && text.front() == '[') {
    size_t close = text.find(']');
    if (close == std::string_view::npos || close == 1) return false;
    std::string_view inner = text.substr(1, close - 1);
    for (char c : inner) {
      if (std::isxdigit(static_cast<unsigned char>(c)) == 0 && c != ':' && c != '.') return false;
    }
    *host = std::string(inner);
    std::string_view rest = text.substr(close + 1);
    if (!rest.empty()) {
      if (rest.front() != ':') return false;
      portText = rest.substr(1);
      if (portText.empty()) return false;
    }
  } else {
    size_t colon = text.find(':');
    std::string_view name = text.substr(0, colon);
    if (name.empty()) return false;
    for (char c : name) {
      if (!IsHostNameChar(c)) return false;
    }
    *host = std::string(name);
    if (colon != std::string_view::npos) {
      portText = text.substr(colon + 1);
      if (portText.empty()) return false;
    }
  }
  *port = 554;
  if (!portText.empty()) {
    if (portText.size() > 5) return false;
    uint32_t value = 0;
    for (char c : portText) {
      if (c < '0' || c > '9') return false;
      value = value * 10 + static_cast<uint32_t>(c - '0');
    }
    if (value == 0 || value > 65535) return false;
    *port = static_cast<uint16_t>(value);
  }
  return true;
}

bool Fail(std::string* error, const char* reason) {
  if (error != nullptr) *error = reason;
  return false;
}

bool HasBlankOrControl(std::string_view text) {
  for (char c : text) {
    if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7f) return true;
  }
  return false;
}

// Where the user info ends: the last '@' that is followed by a valid
// host[:port] and then the path or the query. The plug-in always writes a
// path, so its passwords may hold '/', '?', '#' and '@' as they are. Without
// such an '@' the authority runs to the first '/', '?' or '#' and the host
// follows its last '@', if any.
size_t UserInfoEnd(std::string_view rest, size_t* authorityEnd) {
  for (size_t end = rest.size(); end > 0;) {
    const size_t at = rest.rfind('@', end - 1);
    if (at == std::string_view::npos) break;
    end = at;
    const size_t hostEnd = rest.find_first_of("/?@", at + 1);
    if (hostEnd == std::string_view::npos || rest[hostEnd] == '@') continue;
    std::string host;
    uint16_t port = 0;
    if (ParseAuthority(rest.substr(at + 1, hostEnd - at - 1), &host, &port)) {
      *authorityEnd = hostEnd;
      return at;
    }
  }
  *authorityEnd = std::min(rest.find_first_of("/?#"), rest.size());
  return rest.substr(0, *authorityEnd).rfind('@');
}

}  // namespace

std::optional<RtspUrl> ParseRtspUrl(std::string_view text, std::string* error) {
  constexpr std::string_view kScheme = "rtsp://";
  if (text.size() < kScheme.size()) {
    Fail(error, "not an rtsp:// URL");
    return std::nullopt;
  }
  for (size_t i = 0; i < kScheme.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != kScheme[i]) {
      Fail(error, "not an rtsp:// URL");
      return std::nullopt;
    }
  }
  for (char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
      Fail(error, "URL contains control characters");
      return std::nullopt;
    }
  }
  std::string_view rest = text.substr(kScheme.size());
  RtspUrl url;
  size_t authorityEnd = 0;
  const size_t at = UserInfoEnd(rest, &authorityEnd);
  const size_t hostStart = at == std::string_view::npos ? 0 : at + 1;
  if (at != std::string_view::npos) {
    // Taken as written: the plug-in inserts user and password unencoded.
    std::string_view userInfo = rest.substr(0, at);
    size_t colon = userInfo.find(':');
    url.user = std::string(userInfo.substr(0, colon));
    if (colon != std::string_view::npos) url.password = std::string(userInfo.substr(colon + 1));
    url.hasCredentials = true;
  }
  url.authority = std::string(rest.substr(hostStart, authorityEnd - hostStart));
  if (!ParseAuthority(url.authority, &url.host, &url.port)) {
    Fail(error, "invalid host or port");
    return std::nullopt;
  }
  std::string_view tail = rest.substr(authorityEnd);
  if (HasBlankOrControl(tail)) {
    Fail(error, "URL path contains blanks");
    return std::nullopt;
  }
  if (tail.empty()) {
    url.pathAndQuery = "/";
  } else if (tail.front() == '?') {
    url.pathAndQuery = "/" + std::string(tail);
  } else if (tail.front() == '#') {
    url.pathAndQuery = "/";
  } else {
    url.pathAndQuery = std::string(tail);
  }
  size_t fragment = url.pathAndQuery.find('#');
  if (fragment != std::string::npos) url.pathAndQuery.resize(fragment);
  return url;
}

std::string RedactUrl(std::string_view text) {
  std::optional<RtspUrl> url = ParseRtspUrl(text);
  return url ? url->RequestUri() : std::string("<invalid url>");
}

}  // namespace mdclient
