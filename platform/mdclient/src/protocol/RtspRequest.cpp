#include "protocol/RtspRequest.h"

#include <cctype>
#include <cmath>
#include <cstdio>

#include "kor.h"
#include "protocol/Text.h"

namespace mdclient {
namespace {

bool ParseSmallNumber(std::string_view text, int* value) {
  if (text.empty() || text.size() > 6) return false;
  int number = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    number = number * 10 + (c - '0');
  }
  *value = number;
  return true;
}

bool FormatClock(double micros, char* out, size_t size) {
  auto totalMillis = static_cast<int64_t>(std::floor(micros / 1000.0));
  const int64_t seconds = totalMillis / 1000;
  int millis = static_cast<int>(totalMillis % 1000);
  const kor::CivilTime utc = kor::CivilFromUnixSeconds(seconds);
  if (utc.year < 0 || utc.year > 9999) return false;
  int written = std::snprintf(out, size, "%04d%02d%02dT%02d%02d%02d.%03dZ", static_cast<int>(utc.year), utc.month,
                              utc.day, utc.hour, utc.minute, utc.second, millis);
  return written > 0 && static_cast<size_t>(written) < size;
}

}  // namespace

std::string FormatRequest(std::string_view method, std::string_view uri, int cseq, std::string_view extraHeaders) {
  std::string request;
  request.reserve(method.size() + uri.size() + extraHeaders.size() + 96);
  request.append(method).append(" ").append(uri).append(" RTSP/1.0\r\n");
  request.append("CSeq: ").append(std::to_string(cseq)).append("\r\n");
  request.append("User-Agent: netcam MDClient/1.0\r\n");
  request.append(extraHeaders);
  request.append("\r\n");
  return request;
}

std::optional<SessionHeader> ParseSessionHeader(std::string_view value) {
  SessionHeader header;
  size_t semicolon = value.find(';');
  header.id = std::string(Trim(value.substr(0, semicolon)));
  if (header.id.empty()) return std::nullopt;
  while (semicolon != std::string_view::npos) {
    value.remove_prefix(semicolon + 1);
    semicolon = value.find(';');
    std::string_view parameter = Trim(value.substr(0, semicolon));
    size_t equals = parameter.find('=');
    if (equals == std::string_view::npos) continue;
    int timeout = 0;
    if (EqualsIgnoreCase(Trim(parameter.substr(0, equals)), "timeout") &&
        ParseSmallNumber(Trim(parameter.substr(equals + 1)), &timeout) && timeout > 0) {
      header.timeoutSeconds = timeout;
    }
  }
  return header;
}

std::optional<InterleavedChannels> ParseInterleaved(std::string_view transport) {
  // Only the first transport of a list matters: it is the one chosen.
  transport = transport.substr(0, transport.find(','));
  while (!transport.empty()) {
    size_t semicolon = transport.find(';');
    std::string_view parameter = Trim(transport.substr(0, semicolon));
    transport.remove_prefix(semicolon == std::string_view::npos ? transport.size() : semicolon + 1);
    size_t equals = parameter.find('=');
    if (equals == std::string_view::npos || !EqualsIgnoreCase(parameter.substr(0, equals), "interleaved")) continue;
    std::string_view range = parameter.substr(equals + 1);
    size_t dash = range.find('-');
    InterleavedChannels channels;
    if (!ParseSmallNumber(range.substr(0, dash), &channels.rtp) || channels.rtp > 255) return std::nullopt;
    channels.rtcp = channels.rtp + 1;
    if (dash != std::string_view::npos &&
        (!ParseSmallNumber(range.substr(dash + 1), &channels.rtcp) || channels.rtcp > 255)) {
      return std::nullopt;
    }
    return channels;
  }
  return std::nullopt;
}

bool ListsMethod(std::string_view publicHeader, std::string_view method) {
  while (!publicHeader.empty()) {
    size_t comma = publicHeader.find(',');
    if (EqualsIgnoreCase(Trim(publicHeader.substr(0, comma)), method)) return true;
    if (comma == std::string_view::npos) break;
    publicHeader.remove_prefix(comma + 1);
  }
  return false;
}

std::optional<std::string> FormatClockRange(double startMicros, double endMicros) {
  // Beyond year 9999 the fixed-width clock format cannot hold the value.
  constexpr double kMaxMicros = 253402300799.0 * 1e6;
  if (!std::isfinite(startMicros) || !std::isfinite(endMicros) || startMicros < 0 || endMicros < 0 ||
      startMicros > kMaxMicros || endMicros > kMaxMicros) {
    return std::nullopt;
  }
  if (endMicros != 0 && endMicros < startMicros) return std::nullopt;
  char start[32];
  char end[32];
  if (!FormatClock(startMicros, start, sizeof start)) return std::nullopt;
  std::string range = std::string("clock=") + start + "-";
  if (endMicros != 0) {
    if (!FormatClock(endMicros, end, sizeof end)) return std::nullopt;
    range += end;
  }
  return range;
}

std::optional<std::string> FormatScale(double speed) {
  if (!std::isfinite(speed) || speed == 0 || std::fabs(speed) > 1e6) return std::nullopt;
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", speed);
  return std::string(text);
}

bool RtcpHasBye(const uint8_t* data, size_t size) {
  constexpr uint8_t kBye = 203;
  while (size >= 4) {
    if ((data[0] >> 6) != 2) return false;  // not RTCP version 2
    size_t length = (static_cast<size_t>((data[2] << 8) | data[3]) + 1) * 4;
    if (data[1] == kBye) return true;
    if (length > size) return false;
    data += length;
    size -= length;
  }
  return false;
}

}  // namespace mdclient
