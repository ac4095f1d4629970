// RtpTestPacketizer.h - turns elementary streams made by ffmpeg into the RTP
// packets and SDP a camera would send: H.264 (RFC 6184 single NAL, STAP-A,
// FU-A), H.265 (RFC 7798 single, AP, FU, with or without DON) and AAC (RFC 3640 AAC-hbr).
// Test-side only; deliberately independent of the code under test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace netcam_test {

using Bytes = std::vector<uint8_t>;

enum class VideoCodec { kH264, kH265 };

struct RtpStreamOptions {
  uint8_t payloadType = 96;
  uint32_t ssrc = 0x1234ABCD;
  uint16_t firstSequence = 65500;        // wraps soon: exercises 16-bit wrap
  uint32_t firstTimestamp = 0xFFFF0000;  // wraps soon: exercises 32-bit wrap
  size_t maxPayload = 1400;              // RTP payload bytes per packet
  bool aggregate = true;                 // STAP-A / AP for runs of small NAL units
  bool donFields = false;                // H.265: DONL/DOND in every NAL unit (sprop-max-don-diff > 0)
};

struct VideoAccessUnit {
  std::vector<Bytes> nalUnits;  // without start codes
  bool keyFrame = false;
};

// NAL units of an Annex-B byte stream, start codes removed.
std::vector<Bytes> SplitAnnexB(const Bytes& stream);
// Groups NAL units into access units, for encoders that write one slice per
// picture (as ours are told to): any NAL unit after a slice starts a new unit.
std::vector<VideoAccessUnit> GroupAccessUnits(VideoCodec codec, const std::vector<Bytes>& nalUnits);

// Builds a 12-byte RTP header followed by `payload`.
Bytes MakeRtpPacket(uint8_t payloadType, bool marker, uint16_t sequence, uint32_t timestamp, uint32_t ssrc,
                    const uint8_t* payload, size_t payloadSize);

class VideoRtpPacketizer {
 public:
  VideoRtpPacketizer(VideoCodec codec, RtpStreamOptions options) : codec_(codec), options_(options) {
    sequence_ = options.firstSequence;
  }
  // Packets of one access unit; `ticks` (90 kHz) is added to the first timestamp. Marker on the last.
  std::vector<Bytes> Packetize(const VideoAccessUnit& unit, uint32_t ticks);

 private:
  VideoCodec codec_;
  RtpStreamOptions options_;
  uint16_t sequence_;
  uint16_t don_ = 0;  // H.265 decoding order number of the next NAL unit
};

class AacRtpPacketizer {
 public:
  explicit AacRtpPacketizer(RtpStreamOptions options) : options_(options) { sequence_ = options.firstSequence; }
  // One packet of `units` (AAC-hbr, marker set), or fragments of a single unit larger than the payload
  // limit (marker on the last). `firstUnitTicks` is in samples of the audio clock.
  std::vector<Bytes> Packetize(const std::vector<Bytes>& units, uint32_t firstUnitTicks);

 private:
  RtpStreamOptions options_;
  uint16_t sequence_;
};

// An SDP text as cameras send it (CRLF line ends, a=control) with one video medium, payload type 96,
// carrying `parameterSets` (VPS, SPS, PPS for H.265) when there are any.
std::string VideoSdp(VideoCodec codec, const std::vector<Bytes>& parameterSets, bool donFields = false);

}  // namespace netcam_test
