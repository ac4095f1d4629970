// SdpParser.h - reads the media descriptions of an RTSP session's SDP: which
// payload type carries which codec, and the codec parameters the repackager
// needs (parameter sets, AAC configuration). Pure text in, records out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace muxc {

enum class MediaKind { kVideo, kAudio, kOther };
enum class Codec { kUnknown, kH264, kH265, kAac, kPcmu, kPcma };

// RFC 3640 AU-header layout (all lengths in bits).
struct AacParams {
  std::vector<uint8_t> config;  // AudioSpecificConfig
  int sizeLength = 0;
  int indexLength = 0;
  int indexDeltaLength = 0;
  int ctsDeltaLength = 0;
  int dtsDeltaLength = 0;
  int randomAccessIndication = 0;
  int streamStateIndication = 0;
  int auxiliaryDataSizeLength = 0;
};

struct SdpMedia {
  MediaKind kind = MediaKind::kOther;
  Codec codec = Codec::kUnknown;
  int payloadType = -1;
  uint32_t clockRate = 0;
  int channels = 1;
  int packetizationMode = 0;  // H.264
  int maxDonDiff = 0;         // H.265: non-zero means DONL/DOND fields are present
  // H.264: SPS/PPS in SDP order; H.265: VPS, SPS, PPS. Each without start code.
  std::vector<std::vector<uint8_t>> parameterSets;
  AacParams aac;
  std::string control;
  std::string unusableReason;  // empty when the repackager can carry this medium
};

struct SdpDescription {
  std::vector<SdpMedia> media;
};

// Larger texts are refused outright; real descriptions are a few kilobytes.
constexpr size_t kMaxSdpBytes = 64 * 1024;

enum class SdpStatus { kOk, kTooLarge, kEmpty };

// Collects every m= section. Malformed attributes make their medium unusable
// (with a reason) rather than failing the whole text.
SdpStatus ParseSdp(std::string_view text, SdpDescription* out);

// Standard base64 (padding optional). nullopt on any character outside the alphabet.
std::optional<std::vector<uint8_t>> DecodeBase64(std::string_view text);

const char* CodecName(Codec codec);

}  // namespace muxc
