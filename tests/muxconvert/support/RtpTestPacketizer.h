// RtpTestPacketizer.h - turns elementary streams made by ffmpeg into the RTP
// packets and SDP a camera would send: H.264 (RFC 6184 single NAL, STAP-A,
// FU-A), H.265 (RFC 7798 single, AP, FU) and AAC (RFC 3640 AAC-hbr).
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
};

struct VideoAccessUnit {
  std::vector<Bytes> nalUnits;  // without start codes
  bool keyFrame = false;
};

// NAL units of an Annex-B byte stream, start codes removed.
std::vector<Bytes> SplitAnnexB(const Bytes& stream);
// Groups NAL units into access units (AUD, parameter sets/SEI after a picture,
// or a slice that starts a new picture begin a new unit).
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
  void AddPacket(std::vector<Bytes>& out, const Bytes& payload, uint32_t timestamp);
  void Fragment(std::vector<Bytes>& out, const Bytes& nal, uint32_t timestamp);

  VideoCodec codec_;
  RtpStreamOptions options_;
  uint16_t sequence_;
};

struct AdtsStream {
  Bytes audioSpecificConfig;
  uint32_t sampleRate = 0;
  int channels = 0;
  std::vector<Bytes> accessUnits;  // raw AAC frames, ADTS headers removed
};
// Reads an ADTS file; an empty result (no units) on malformed input.
AdtsStream ParseAdts(const Bytes& stream);

class AacRtpPacketizer {
 public:
  explicit AacRtpPacketizer(RtpStreamOptions options) : options_(options) { sequence_ = options.firstSequence; }
  // Up to `unitsPerPacket` units per packet (all share one packet's timestamp,
  // 1024 samples apart); a unit larger than the payload limit is fragmented.
  // `firstUnitTicks` is in samples of the audio clock. Marker on every packet
  // except non-final fragments.
  std::vector<Bytes> Packetize(const std::vector<Bytes>& units, size_t unitsPerPacket, uint32_t firstUnitTicks);

 private:
  RtpStreamOptions options_;
  uint16_t sequence_;
};

std::string Base64(const Bytes& data);
std::string Hex(const Bytes& data);

// SDP texts as cameras send them (CRLF line ends, a=control per medium).
std::string SdpSessionHeader();
std::string H264SdpMedia(uint8_t payloadType, const std::vector<Bytes>& parameterSets, int packetizationMode = 1);
std::string H265SdpMedia(uint8_t payloadType, const Bytes& vps, const Bytes& sps, const Bytes& pps);
std::string AacSdpMedia(uint8_t payloadType, uint32_t sampleRate, int channels, const Bytes& config);

}  // namespace netcam_test
