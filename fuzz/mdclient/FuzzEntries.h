// FuzzEntries.h - the bodies of the MDClient fuzz targets, in a library so
// that the unit tests replay the seed corpus through exactly the same code.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mdclient_fuzz {

// The server-to-client stream: RTSP answers and interleaved frames, fed in
// chunks whose sizes come from the first input byte; every answer is also
// read the way a session reads it (auth, Session, Transport, SDP, RTCP, key frames).
int FuzzRtspStream(const uint8_t* data, size_t size);

// rtsp:// URL parsing and redaction.
int FuzzRtspUrl(const uint8_t* data, size_t size);

}  // namespace mdclient_fuzz
