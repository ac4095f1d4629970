#include "RtpPacket.h"

namespace muxc {

RtpError ParseRtp(const uint8_t* data, size_t size, RtpView* out) {
  constexpr size_t kFixedHeader = 12;
  if (data == nullptr || size < kFixedHeader) return RtpError::kTooShort;
  if ((data[0] >> 6) != 2) return RtpError::kBadVersion;
  const bool padding = (data[0] & 0x20) != 0;
  const bool extension = (data[0] & 0x10) != 0;
  const size_t csrcCount = data[0] & 0x0F;
  size_t offset = kFixedHeader + 4 * csrcCount;
  if (offset > size) return RtpError::kCsrcBeyondPacket;
  if (extension) {
    if (offset + 4 > size) return RtpError::kExtensionBeyondPacket;
    const size_t words = static_cast<size_t>(data[offset + 2]) << 8 | data[offset + 3];
    offset += 4 + 4 * words;
    if (offset > size) return RtpError::kExtensionBeyondPacket;
  }
  size_t end = size;
  if (padding) {
    const size_t padLength = data[size - 1];
    if (padLength == 0 || padLength > size - offset) return RtpError::kBadPadding;
    end -= padLength;
  }
  out->marker = (data[1] & 0x80) != 0;
  out->payloadType = data[1] & 0x7F;
  out->sequence = static_cast<uint16_t>(data[2] << 8 | data[3]);
  out->timestamp = static_cast<uint32_t>(data[4]) << 24 | static_cast<uint32_t>(data[5]) << 16 |
                   static_cast<uint32_t>(data[6]) << 8 | data[7];
  out->ssrc = static_cast<uint32_t>(data[8]) << 24 | static_cast<uint32_t>(data[9]) << 16 |
              static_cast<uint32_t>(data[10]) << 8 | data[11];
  out->payload = data + offset;
  out->payloadSize = end - offset;
  return RtpError::kNone;
}

const char* RtpErrorText(RtpError error) {
  switch (error) {
    case RtpError::kNone:
      return "ok";
    case RtpError::kTooShort:
      return "shorter than the RTP header";
    case RtpError::kBadVersion:
      return "RTP version is not 2";
    case RtpError::kCsrcBeyondPacket:
      return "CSRC list runs past the packet";
    case RtpError::kExtensionBeyondPacket:
      return "header extension runs past the packet";
    case RtpError::kBadPadding:
      return "padding longer than the payload";
  }
  return "unknown";
}

}  // namespace muxc
