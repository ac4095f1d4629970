#include "protocol/KeyFrame.h"

#include "protocol/Text.h"

namespace mdclient {
namespace {

enum class Nal { kKey, kLeading, kOther };

// The first NAL unit header a payload carries: itself, the first of an
// aggregation, or a fragment's original type when the fragment starts one.
Nal ClassifyH264(const uint8_t* payload, size_t size) {
  if (size < 1) return Nal::kOther;
  int type = payload[0] & 0x1f;
  if (type == 24) {  // STAP-A: 16-bit size, then the NAL unit
    if (size < 4) return Nal::kOther;
    type = payload[3] & 0x1f;
  } else if (type == 28) {  // FU-A
    if (size < 2 || (payload[1] & 0x80) == 0) return Nal::kOther;
    type = payload[1] & 0x1f;
  }
  if (type == 5 || type == 7) return Nal::kKey;                   // IDR slice, SPS
  if (type == 6 || type == 8 || type == 9) return Nal::kLeading;  // SEI, PPS, delimiter
  return Nal::kOther;
}

Nal ClassifyH265(const uint8_t* payload, size_t size) {
  if (size < 2) return Nal::kOther;
  int type = (payload[0] >> 1) & 0x3f;
  if (type == 48) {  // aggregation packet: 16-bit size, then the NAL unit
    if (size < 5) return Nal::kOther;
    type = (payload[4] >> 1) & 0x3f;
  } else if (type == 49) {  // fragmentation unit
    if (size < 3 || (payload[2] & 0x80) == 0) return Nal::kOther;
    type = payload[2] & 0x3f;
  }
  if ((type >= 16 && type <= 21) || type == 32 || type == 33) return Nal::kKey;  // IRAP, VPS, SPS
  if (type == 34 || type == 35 || type == 39) return Nal::kLeading;              // PPS, delimiter, SEI
  return Nal::kOther;
}

}  // namespace

VideoCodec VideoCodecOf(std::string_view encoding) {
  if (EqualsIgnoreCase(encoding, "H264")) return VideoCodec::kH264;
  if (EqualsIgnoreCase(encoding, "H265") || EqualsIgnoreCase(encoding, "HEVC")) return VideoCodec::kH265;
  return VideoCodec::kOther;
}

bool KeyFrameDetector::StartsKeyFrame(const uint8_t* packet, size_t size) {
  m_boundary = false;
  if (size < 12 || (packet[0] >> 6) != 2) return false;
  const bool marker = (packet[1] & 0x80) != 0;
  const uint32_t timestamp =
      uint32_t{packet[4]} << 24 | uint32_t{packet[5]} << 16 | uint32_t{packet[6]} << 8 | packet[7];
  const bool firstOfUnit = !m_seenAny || m_lastMarker || timestamp != m_lastTimestamp;
  // A marker ends a picture; without one, the next picture's first packet does.
  m_boundary = marker || (firstOfUnit && m_seenAny && !m_lastMarker);
  m_seenAny = true;
  m_lastMarker = marker;
  m_lastTimestamp = timestamp;
  if (firstOfUnit) m_leading = true;
  if (!m_leading) return false;

  size_t header = 12 + 4 * static_cast<size_t>(packet[0] & 0x0f);
  if ((packet[0] & 0x10) != 0 && size >= header + 4) {  // extension: 16-bit profile, 16-bit length in words
    header += 4 + 4 * (static_cast<size_t>(packet[header + 2]) << 8 | packet[header + 3]);
  } else if ((packet[0] & 0x10) != 0) {
    header = size;
  }
  if (size <= header) {
    m_leading = false;
    return false;
  }
  if (m_codec == VideoCodec::kOther) {
    m_leading = false;
    return true;
  }
  const Nal nal = m_codec == VideoCodec::kH264 ? ClassifyH264(packet + header, size - header)
                                               : ClassifyH265(packet + header, size - header);
  if (nal == Nal::kLeading) return false;
  m_leading = false;
  return nal == Nal::kKey;
}

}  // namespace mdclient
