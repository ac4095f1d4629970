// Text.h - the few text helpers the protocol readers share.
#pragma once

#include <cctype>
#include <cstddef>
#include <string>
#include <string_view>

namespace mdclient {

inline bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != std::tolower(static_cast<unsigned char>(prefix[i]))) {
      return false;
    }
  }
  return true;
}

inline bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && StartsWithIgnoreCase(a, b);
}

// Blanks around a header value; a stray CR at the end goes too.
inline std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

// A camera's bytes as a log line may hold them: a short prefix, anything but
// printable ASCII written \xHH, and the full size when it was cut. A camera
// that sends binary must not fill the platform's log with it.
inline std::string LogSafe(std::string_view bytes, size_t limit = 80) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < bytes.size() && i < limit; ++i) {
    const unsigned char c = static_cast<unsigned char>(bytes[i]);
    if (c >= 0x20 && c < 0x7f && c != '\\') {
      out.push_back(static_cast<char>(c));
    } else {
      out += {'\\', 'x', kHex[c >> 4], kHex[c & 15]};
    }
  }
  if (bytes.size() > limit) out += "... (" + std::to_string(bytes.size()) + " bytes)";
  return out;
}

}  // namespace mdclient
