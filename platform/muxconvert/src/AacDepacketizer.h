// AacDepacketizer.h - RFC 3640 (mpeg4-generic) AAC payloads to access units,
// and the ADTS header that MPEG program streams carry AAC in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "SdpParser.h"
#include "VideoDepacketizer.h"  // DepacketizeResult

namespace muxc {

// What an ADTS header needs from the AudioSpecificConfig.
struct AdtsConfig {
  int profile = 1;  // audio object type - 1 (AAC LC: 1)
  int sampleRateIndex = 0;
  int channelConfig = 0;
  uint32_t sampleRate = 0;  // of the AAC core (before SBR)
};

constexpr size_t kAdtsHeaderSize = 7;
constexpr size_t kMaxAdtsFrame = 8191;  // 13-bit frame length

// False when the config cannot be expressed in ADTS (explicit odd rates, channel config 0, object type > 4).
bool ParseAudioSpecificConfig(const std::vector<uint8_t>& config, AdtsConfig* out);
void WriteAdtsHeader(uint8_t* out, const AdtsConfig& config, size_t accessUnitSize);

class AacDepacketizer {
 public:
  explicit AacDepacketizer(const AacParams& params) : params_(params) {}

  // Splits one payload into access units and calls onUnit(data, size, ordinal)
  // for each complete one (ordinal: position within the packet). A unit
  // larger than the payload is collected over the following packets until the
  // marker bit or its full size.
  template <typename OnUnit>
  DepacketizeResult Push(const uint8_t* payload, size_t size, bool marker, OnUnit&& onUnit, const char** reason);

  // Drops a partly collected unit (its last fragment never came).
  void Reset() { fragmentOpen_ = false; }
  // After a loss: fragments are dropped until a unit starts cleanly.
  void Resync() {
    fragmentOpen_ = false;
    resyncing_ = true;
  }
  bool fragmentOpen() const { return fragmentOpen_; }

 private:
  struct Header {
    size_t size;
  };
  // Reads the AU-header section; returns the offset of the AU data section or 0 on error.
  size_t ReadHeaders(const uint8_t* payload, size_t size, const char** reason);

  AacParams params_;
  static constexpr size_t kMaxUnitsPerPacket = 256;
  Header headers_[kMaxUnitsPerPacket];
  size_t headerCount_ = 0;
  bool fragmentOpen_ = false;
  bool resyncing_ = false;
  size_t fragmentExpected_ = 0;
  std::vector<uint8_t> fragment_;
};

template <typename OnUnit>
DepacketizeResult AacDepacketizer::Push(const uint8_t* payload, size_t size, bool marker, OnUnit&& onUnit,
                                        const char** reason) {
  const size_t dataOffset = ReadHeaders(payload, size, reason);
  if (dataOffset == 0) {
    fragmentOpen_ = false;
    return DepacketizeResult::kMalformed;
  }
  const uint8_t* data = payload + dataOffset;
  size_t available = size - dataOffset;
  if (headerCount_ == 1 && (fragmentOpen_ || headers_[0].size > available)) {
    // One unit spread over several packets.
    if (resyncing_) {
      resyncing_ = !marker;  // the unit after this one starts cleanly
      return DepacketizeResult::kOk;
    }
    if (!fragmentOpen_) {
      fragmentOpen_ = true;
      fragmentExpected_ = headers_[0].size;
      fragment_.clear();
    }
    if (fragment_.size() + available > kMaxAdtsFrame) {
      fragmentOpen_ = false;
      *reason = "AAC fragmented access unit too large";
      return DepacketizeResult::kMalformed;
    }
    fragment_.insert(fragment_.end(), data, data + available);
    if (marker || fragment_.size() >= fragmentExpected_) {
      fragmentOpen_ = false;
      onUnit(fragment_.data(), fragment_.size(), size_t{0});
    }
    return DepacketizeResult::kOk;
  }
  if (fragmentOpen_) {
    fragmentOpen_ = false;
    *reason = "AAC fragment continued by a packet of several units";
    return DepacketizeResult::kMalformed;
  }
  resyncing_ = false;
  size_t total = 0;
  for (size_t i = 0; i < headerCount_; ++i) total += headers_[i].size;  // at most 256 * 2^32: no overflow
  if (total > available) {
    *reason = "AAC access unit sizes exceed the payload";
    return DepacketizeResult::kMalformed;
  }
  for (size_t i = 0; i < headerCount_; ++i) {
    onUnit(data, headers_[i].size, i);
    data += headers_[i].size;
  }
  return DepacketizeResult::kOk;
}

}  // namespace muxc
