// MediaLoop.h - captured interleaved media played again and again as one
// endless stream: each channel's RTP sequence numbers and timestamps go on
// across the loops as a camera's would, and each frame says when it is due.
// No I/O here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace camsim {

class MediaLoop {
 public:
  // `media`: '$' frames as captured; `loop` false plays them once.
  MediaLoop(const std::string& media, bool loop);

  bool Empty() const { return m_frames.empty(); }
  size_t Frames() const { return m_frames.size(); }
  double Length() const { return m_length; }  // seconds one pass lasts
  // The next frame to send, its RTP fields rewritten; false at the end of a
  // stream played once. `dueSeconds` counts from the first frame.
  bool Next(std::string* frame, double* dueSeconds);

 private:
  struct Frame {
    uint8_t channel;
    std::string bytes;  // with its 4-byte interleaved header
    double at;          // seconds after the first frame of the capture
    bool rtp;           // else RTCP
  };
  struct Channel {
    uint16_t firstSeq = 0, lastSeq = 0;
    uint32_t firstTime = 0, lastTime = 0;
    uint32_t step = 0;  // between two pictures, to follow the last with the first again
    bool seen = false;
  };

  std::vector<Frame> m_frames;
  std::map<uint8_t, Channel> m_channels;
  double m_length = 0;  // seconds one pass lasts
  bool m_loop;
  size_t m_next = 0;
  uint64_t m_pass = 0;
};

}  // namespace camsim
