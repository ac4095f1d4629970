#include "protocol/RtspUrl.h"

#include <cctype>

namespace mdclient {
namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

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

}  // namespace

std::string PercentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && HexValue(text[i + 1]) >= 0 && HexValue(text[i + 2]) >= 0) {
      out.push_back(static_cast<char>(HexValue(text[i + 1]) * 16 + HexValue(text[i + 2])));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

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
    if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7f) {
      Fail(error, "URL contains blanks or control characters");
      return std::nullopt;
    }
  }
  std::string_view rest = text.substr(kScheme.size());
  RtspUrl url;

  // The authority normally ends at the first '/' or '?'. When that piece is
  // no valid host, the password itself holds a '/': then the host follows the
  // first '@' whose following segment is a valid host[:port].
  size_t authorityEnd = rest.find_first_of("/?");
  if (authorityEnd == std::string_view::npos) authorityEnd = rest.size();
  std::string_view authority = rest.substr(0, authorityEnd);
  size_t at = authority.rfind('@');
  size_t hostStart = 0;
  if (at != std::string_view::npos) {
    hostStart = at + 1;
  } else if (!ParseAuthority(authority, &url.host, &url.port)) {
    for (size_t candidate = rest.find('@'); candidate != std::string_view::npos;
         candidate = rest.find('@', candidate + 1)) {
      size_t end = rest.find_first_of("/?", candidate + 1);
      if (end == std::string_view::npos) end = rest.size();
      std::string_view segment = rest.substr(candidate + 1, end - candidate - 1);
      std::string host;
      uint16_t port = 0;
      if (segment.find('@') == std::string_view::npos && ParseAuthority(segment, &host, &port)) {
        at = candidate;
        hostStart = candidate + 1;
        authorityEnd = end;
        break;
      }
    }
  }
  if (at != std::string_view::npos) {
    std::string_view userInfo = rest.substr(0, at);
    size_t colon = userInfo.find(':');
    url.user = PercentDecode(userInfo.substr(0, colon));
    if (colon != std::string_view::npos) url.password = PercentDecode(userInfo.substr(colon + 1));
    url.hasCredentials = true;
  }
  url.authority = std::string(rest.substr(hostStart, authorityEnd - hostStart));
  if (!ParseAuthority(url.authority, &url.host, &url.port)) {
    Fail(error, "invalid host or port");
    return std::nullopt;
  }
  std::string_view tail = rest.substr(authorityEnd);
  if (tail.empty()) {
    url.pathAndQuery = "/";
  } else if (tail.front() == '?') {
    url.pathAndQuery = "/" + std::string(tail);
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
