#include "AacDepacketizer.h"

namespace muxc {
namespace {

constexpr uint32_t kSampleRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                       22050, 16000, 12000, 11025, 8000,  7350};

class BitReader {
 public:
  BitReader(const uint8_t* data, size_t bits) : data_(data), bits_(bits) {}
  bool Read(int count, uint32_t* value) {
    if (count < 0 || count > 32 || position_ + static_cast<size_t>(count) > bits_) return false;
    uint64_t result = 0;
    for (int i = 0; i < count; ++i, ++position_) {
      result = (result << 1) | ((data_[position_ >> 3] >> (7 - (position_ & 7))) & 1);
    }
    *value = static_cast<uint32_t>(result);
    return true;
  }
  size_t position() const { return position_; }

 private:
  const uint8_t* data_;
  size_t bits_;
  size_t position_ = 0;
};

bool ReadSampleRateIndex(BitReader& reader, int* index) {
  uint32_t value = 0;
  if (!reader.Read(4, &value)) return false;
  if (value == 15) {  // explicit rate: usable only if it matches a table entry
    uint32_t rate = 0;
    if (!reader.Read(24, &rate)) return false;
    for (int i = 0; i < 13; ++i) {
      if (kSampleRates[i] == rate) {
        *index = i;
        return true;
      }
    }
    return false;
  }
  if (value > 12) return false;
  *index = static_cast<int>(value);
  return true;
}

bool ReadObjectType(BitReader& reader, uint32_t* type) {
  if (!reader.Read(5, type)) return false;
  if (*type == 31) {
    uint32_t extension = 0;
    if (!reader.Read(6, &extension)) return false;
    *type = 32 + extension;
  }
  return true;
}

}  // namespace

bool ParseAudioSpecificConfig(const std::vector<uint8_t>& config, AdtsConfig* out) {
  BitReader reader(config.data(), config.size() * 8);
  uint32_t objectType = 0, channels = 0;
  int rateIndex = 0;
  if (!ReadObjectType(reader, &objectType) || !ReadSampleRateIndex(reader, &rateIndex) || !reader.Read(4, &channels)) {
    return false;
  }
  if (objectType == 5 || objectType == 29) {  // explicit SBR/PS: the core follows
    int extensionIndex = 0;
    if (!ReadSampleRateIndex(reader, &extensionIndex) || !ReadObjectType(reader, &objectType)) return false;
  }
  if (objectType < 1 || objectType > 4 || channels < 1 || channels > 7) return false;
  out->profile = static_cast<int>(objectType) - 1;
  out->sampleRateIndex = rateIndex;
  out->channelConfig = static_cast<int>(channels);
  out->sampleRate = kSampleRates[rateIndex];
  return true;
}

void WriteAdtsHeader(uint8_t* out, const AdtsConfig& config, size_t accessUnitSize) {
  const size_t frameLength = accessUnitSize + kAdtsHeaderSize;
  out[0] = 0xFF;
  out[1] = 0xF1;  // MPEG-4, layer 0, no CRC
  out[2] = static_cast<uint8_t>((config.profile << 6) | (config.sampleRateIndex << 2) | (config.channelConfig >> 2));
  out[3] = static_cast<uint8_t>(((config.channelConfig & 3) << 6) | ((frameLength >> 11) & 0x03));
  out[4] = static_cast<uint8_t>(frameLength >> 3);
  out[5] = static_cast<uint8_t>(((frameLength & 7) << 5) | 0x1F);  // buffer fullness 0x7FF: variable rate
  out[6] = 0xFC;
}

size_t AacDepacketizer::ReadHeaders(const uint8_t* payload, size_t size, const char** reason) {
  headerCount_ = 0;
  if (size < 2) {
    *reason = "AAC payload too short";
    return 0;
  }
  const size_t headerBits = static_cast<size_t>(payload[0]) << 8 | payload[1];
  const size_t headerBytes = (headerBits + 7) / 8;
  if (headerBits == 0 || 2 + headerBytes > size) {
    *reason = "AAC AU-headers-length beyond the payload";
    return 0;
  }
  BitReader reader(payload + 2, headerBits);
  while (reader.position() < headerBits) {
    if (headerCount_ == kMaxUnitsPerPacket) {
      *reason = "too many AAC access units in one packet";
      return 0;
    }
    uint32_t auSize = 0, ignored = 0, flag = 0;
    const int indexLength = headerCount_ == 0 ? params_.indexLength : params_.indexDeltaLength;
    bool ok = reader.Read(params_.sizeLength, &auSize) && reader.Read(indexLength, &ignored);
    if (ok && params_.ctsDeltaLength > 0) {
      ok = reader.Read(1, &flag) && (flag == 0 || reader.Read(params_.ctsDeltaLength, &ignored));
    }
    if (ok && params_.dtsDeltaLength > 0) {
      ok = reader.Read(1, &flag) && (flag == 0 || reader.Read(params_.dtsDeltaLength, &ignored));
    }
    ok = ok && reader.Read(params_.randomAccessIndication, &ignored) &&
         reader.Read(params_.streamStateIndication, &ignored);
    if (!ok) {
      *reason = "AAC AU header truncated";
      return 0;
    }
    headers_[headerCount_++].size = auSize;
  }
  size_t offset = 2 + headerBytes;
  if (params_.auxiliaryDataSizeLength > 0) {
    const size_t auxBytesAvailable = size - offset;
    BitReader aux(payload + offset, auxBytesAvailable * 8);
    uint32_t auxBits = 0;
    if (!aux.Read(params_.auxiliaryDataSizeLength, &auxBits) ||
        (params_.auxiliaryDataSizeLength + static_cast<size_t>(auxBits) + 7) / 8 > auxBytesAvailable) {
      *reason = "AAC auxiliary section beyond the payload";
      return 0;
    }
    offset += (params_.auxiliaryDataSizeLength + static_cast<size_t>(auxBits) + 7) / 8;
  }
  return offset;
}

}  // namespace muxc
