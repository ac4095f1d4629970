// Text.h - the few text helpers the protocol readers share.
#pragma once

#include <cctype>
#include <cstddef>
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

}  // namespace mdclient
