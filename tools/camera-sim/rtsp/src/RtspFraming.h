// RtspFraming.h - where the units of an RTSP byte stream over TCP begin and
// end: interleaved frames ('$', channel, 16-bit length, payload) and RTSP
// messages (start line, headers up to a blank line, Content-Length bytes of
// body). The fault relay needs the boundaries to hold, drop, cut or slip
// bytes in between without breaking the framing it passes on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace camsim {

struct StreamPiece {
  size_t length = 0;      // bytes of the input in this piece (at least 1)
  bool frame = false;     // of an interleaved frame; else of a message
  bool starts = false;    // begins its unit
  bool ends = false;      // completes its unit
  size_t unitLength = 0;  // a frame's whole size when its header is in this piece; else 0
};

class StreamFramer {
 public:
  // The next piece of `data` (size > 0).
  StreamPiece Next(const char* data, size_t size);

 private:
  enum class State { Between, FrameHeader, FrameBody, MessageHead, MessageBody };
  State m_state = State::Between;
  uint8_t m_header[4] = {};
  size_t m_headerFill = 0;
  size_t m_left = 0;   // bytes left in the frame payload or message body
  std::string m_head;  // the message head so far (bounded)
};

// The path of a request's URL ("DESCRIBE rtsp://host:554/axis-media/media.amp?x RTSP/1.0"
// gives "/axis-media/media.amp"), and its CSeq (-1 when absent).
std::string RequestPath(const std::string& request);
int RequestCSeq(const std::string& request);

}  // namespace camsim
