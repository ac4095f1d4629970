// PesAssembler.h - builds one output unit in a single buffer: elementary
// stream bytes are copied once, straight into their final place between PES
// headers that are filled in when the unit is complete, and the unit's pack
// header (plus system header, map, parameter sets) goes into room kept in
// front. The buffer only grows, so steady state allocates nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "PsWriter.h"

namespace muxc {

class PesAssembler {
 public:
  // Starts a unit; `prefixRoom` bytes are kept free in front of the first PES
  // header, which carries PTS and DTS when `withDts`, else PTS only.
  void Begin(size_t prefixRoom, bool withDts);

  void Append(const uint8_t* data, size_t size) {
    if (size <= segmentRoom_ && writePos_ + size <= buffer_.size()) {
      std::memcpy(buffer_.data() + writePos_, data, size);
      writePos_ += size;
      segmentRoom_ -= size;
      payloadSize_ += size;
      return;
    }
    AppendSplitting(data, size);
  }

  size_t payloadSize() const { return payloadSize_; }
  // The first elementary stream byte (for headers patched in after the fact).
  uint8_t* payloadStart() { return buffer_.data() + pesStart_ + firstHeaderSize_; }

  // Writes every PES header; PES packets after the first carry no timestamps.
  void Finish(uint8_t streamId, uint64_t pts);

  // Room for `size` bytes directly before the PES packets (the whole prefix at once).
  uint8_t* Prepend(size_t size);

  const uint8_t* data() const { return buffer_.data() + unitStart_; }
  size_t size() const { return writePos_ - unitStart_; }

  // Largest PES payloads, keeping PES_packet_length within 16 bits.
  size_t firstPesPayloadLimit() const { return kMaxPesPacketLength - (firstHeaderSize_ - 6); }
  static constexpr size_t kNextPesPayloadLimit = kMaxPesPacketLength - (kPesHeaderSizeNoTimestamps - 6);

 private:
  void AppendSplitting(const uint8_t* data, size_t size);
  void EnsureCapacity(size_t needed);

  std::vector<uint8_t> buffer_;
  size_t unitStart_ = 0;
  size_t pesStart_ = 0;
  size_t firstHeaderSize_ = kPesHeaderSizePtsDts;
  bool withDts_ = true;
  size_t writePos_ = 0;
  size_t segmentRoom_ = 0;
  size_t payloadSize_ = 0;
};

}  // namespace muxc
