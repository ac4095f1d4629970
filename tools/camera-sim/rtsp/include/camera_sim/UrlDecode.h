// UrlDecode.h - percent-decoding of URL paths and queries, shared by the
// simulator's HTTP and RTSP sides.
#pragma once

#include <string>
#include <string_view>

namespace camsim {

// "%41" becomes 'A'; a '%' without two hex digits stays as it is. In a query
// '+' stands for a blank; in a path it does not (plusIsSpace false).
inline std::string UrlDecode(std::string_view text, bool plusIsSpace = true) {
  auto hexValue = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%' && i + 2 < text.size()) {
      const int high = hexValue(text[i + 1]);
      const int low = hexValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
        continue;
      }
    }
    out.push_back(plusIsSpace && c == '+' ? ' ' : c);
  }
  return out;
}

}  // namespace camsim
