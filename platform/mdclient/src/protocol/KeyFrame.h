// KeyFrame.h - where a decoder can join a video stream, read from RTP
// packets alone. A consumer that fell behind resumes there, so what it gets
// next decodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace mdclient {

enum class VideoCodec { kOther, kH264, kH265 };

// From an SDP rtpmap encoding name ("H264", "H265"); any other is kOther.
VideoCodec VideoCodecOf(std::string_view encoding);

// Follows one video stream's RTP packets in order and answers, per packet,
// whether a key frame begins with it: the first packet of an access unit
// (after any delimiter, SEI or PPS) that carries an IDR picture or a sequence
// parameter set (H.264 types 5 and 7; H.265 IRAP types 16-21, VPS and SPS),
// whole, first of an aggregation or as the start of a fragment. For kOther
// every access unit is a key frame.
class KeyFrameDetector {
 public:
  explicit KeyFrameDetector(VideoCodec codec = VideoCodec::kOther) : m_codec(codec) {}
  bool StartsKeyFrame(const uint8_t* packet, size_t size);
  // The packet just read ended an access unit (marker bit), or began one
  // after a unit that ended without it: a whole picture is ready.
  bool AtUnitBoundary() const { return m_boundary; }

 private:
  VideoCodec m_codec;
  bool m_seenAny = false;
  bool m_lastMarker = false;
  uint32_t m_lastTimestamp = 0;
  bool m_leading = false;  // only delimiters and SEI seen so far in this access unit
  bool m_boundary = false;
};

}  // namespace mdclient
