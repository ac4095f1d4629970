// RtpPacket.h - RFC 3550 fixed header parsing with every length checked
// against the packet, and 32-bit timestamp / 16-bit sequence unwrapping.
#pragma once

#include <cstddef>
#include <cstdint>

namespace muxc {

struct RtpView {
  bool marker = false;
  uint8_t payloadType = 0;
  uint16_t sequence = 0;
  uint32_t timestamp = 0;
  uint32_t ssrc = 0;
  const uint8_t* payload = nullptr;
  size_t payloadSize = 0;  // without padding; may be 0
};

enum class RtpError { kNone, kTooShort, kBadVersion, kCsrcBeyondPacket, kExtensionBeyondPacket, kBadPadding };

RtpError ParseRtp(const uint8_t* data, size_t size, RtpView* out);
const char* RtpErrorText(RtpError error);

// RTCP shares the channel on some servers (RFC 5761); its packet types 200-204
// land where an RTP marker bit plus payload type 72-76 would be.
inline bool LooksLikeRtcp(const uint8_t* data, size_t size) { return size >= 2 && data[1] >= 200 && data[1] <= 204; }

// Extends a wrapping 32-bit RTP timestamp to 64 bits relative to the first one seen.
class TimestampUnwrapper {
 public:
  int64_t Extend(uint32_t timestamp) {
    if (!started_) {
      started_ = true;
      last_ = timestamp;
      extended_ = 0;
      return 0;
    }
    extended_ += static_cast<int32_t>(timestamp - last_);
    last_ = timestamp;
    return extended_;
  }
  bool started() const { return started_; }

 private:
  bool started_ = false;
  uint32_t last_ = 0;
  int64_t extended_ = 0;
};

}  // namespace muxc
