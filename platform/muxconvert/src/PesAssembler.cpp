#include "PesAssembler.h"

#include <algorithm>

namespace muxc {

void PesAssembler::Begin(size_t prefixRoom, bool withDts) {
  withDts_ = withDts;
  firstHeaderSize_ = withDts ? kPesHeaderSizePtsDts : kPesHeaderSizePts;
  pesStart_ = prefixRoom;
  unitStart_ = prefixRoom;
  writePos_ = prefixRoom + firstHeaderSize_;
  segmentRoom_ = firstPesPayloadLimit();
  payloadSize_ = 0;
  EnsureCapacity(writePos_ + 2048);
}

void PesAssembler::EnsureCapacity(size_t needed) {
  if (needed <= buffer_.size()) return;
  buffer_.resize(std::max(needed, buffer_.size() * 2));
}

void PesAssembler::AppendSplitting(const uint8_t* data, size_t size) {
  // Worst case: a new PES header for every full segment plus one.
  EnsureCapacity(writePos_ + size + kPesHeaderSizeNoTimestamps * (size / kNextPesPayloadLimit + 2));
  while (size > 0) {
    if (segmentRoom_ == 0) {
      writePos_ += kPesHeaderSizeNoTimestamps;  // filled in by Finish
      segmentRoom_ = kNextPesPayloadLimit;
    }
    const size_t chunk = std::min(size, segmentRoom_);
    std::memcpy(buffer_.data() + writePos_, data, chunk);
    writePos_ += chunk;
    segmentRoom_ -= chunk;
    payloadSize_ += chunk;
    data += chunk;
    size -= chunk;
  }
}

void PesAssembler::Finish(uint8_t streamId, uint64_t pts) {
  uint8_t* out = buffer_.data() + pesStart_;
  size_t remaining = payloadSize_;
  size_t chunk = std::min(remaining, firstPesPayloadLimit());
  out += withDts_ ? WritePesHeaderPtsDts(out, streamId, chunk, pts, pts) : WritePesHeaderPts(out, streamId, chunk, pts);
  out += chunk;
  remaining -= chunk;
  while (remaining > 0) {
    chunk = std::min(remaining, kNextPesPayloadLimit);
    out += WritePesHeaderNoTimestamps(out, streamId, chunk);
    out += chunk;
    remaining -= chunk;
  }
}

uint8_t* PesAssembler::Prepend(size_t size) {
  unitStart_ = pesStart_;
  if (size > pesStart_) {
    // Rare: the prefix outgrew the room reserved at Begin (parameter sets changed mid-unit).
    const size_t shift = size - pesStart_;
    EnsureCapacity(writePos_ + shift);
    std::memmove(buffer_.data() + pesStart_ + shift, buffer_.data() + pesStart_, writePos_ - pesStart_);
    pesStart_ += shift;
    writePos_ += shift;
  }
  unitStart_ = pesStart_ - size;
  return buffer_.data() + unitStart_;
}

}  // namespace muxc
