// RtspRequest.h - building RTSP requests and reading the answer headers that
// drive the session (Session, Transport, Public), plus Range and Scale text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mdclient {

// "METHOD uri RTSP/1.0\r\nCSeq: n\r\nUser-Agent: ...\r\n" + extraHeaders +
// "\r\n". extraHeaders holds complete "Name: value\r\n" lines.
std::string FormatRequest(std::string_view method, std::string_view uri, int cseq, std::string_view extraHeaders);

struct SessionHeader {
  std::string id;
  int timeoutSeconds = 60;  // RFC 2326 default when the server names none
};
// "12345678;timeout=60"; nullopt when the id is empty.
std::optional<SessionHeader> ParseSessionHeader(std::string_view value);

struct InterleavedChannels {
  int rtp = -1;
  int rtcp = -1;
};
// The interleaved=a-b (or interleaved=a) parameter of a Transport header.
std::optional<InterleavedChannels> ParseInterleaved(std::string_view transport);

// True when a Public (or Allow) header lists the method.
bool ListsMethod(std::string_view publicHeader, std::string_view method);

// "clock=YYYYMMDDTHHMMSS.fffZ-YYYYMMDDTHHMMSS.fffZ" from microseconds since
// 1970 (UTC); the end is left open when endMicros is 0. nullopt for negative,
// non-finite or reversed positions.
std::optional<std::string> FormatClockRange(double startMicros, double endMicros);

// Scale header value, e.g. "2.000", "-1.500"; nullopt for 0 and non-finite.
std::optional<std::string> FormatScale(double speed);

// True when an RTCP compound packet holds a BYE.
bool RtcpHasBye(const uint8_t* data, size_t size);

}  // namespace mdclient
