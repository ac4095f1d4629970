#include "PsWriter.h"

#include <array>

namespace muxc {
namespace {

constexpr uint64_t kTimestampMask = (uint64_t{1} << 33) - 1;

void WriteStartCode(uint8_t* out, uint8_t code) {
  out[0] = 0x00;
  out[1] = 0x00;
  out[2] = 0x01;
  out[3] = code;
}

void WriteU16(uint8_t* out, size_t value) {
  out[0] = static_cast<uint8_t>(value >> 8);
  out[1] = static_cast<uint8_t>(value);
}

constexpr std::array<uint32_t, 256> MakeCrcTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t crc = i << 24;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x80000000u) ? (crc << 1) ^ 0x04C11DB7u : crc << 1;
    table[i] = crc;
  }
  return table;
}
constexpr std::array<uint32_t, 256> kCrcTable = MakeCrcTable();

// Rate bound and marker bits shared by the pack and system headers: 22 bits then a marker.
void WriteRate(uint8_t* out, uint32_t rate, bool leadingMarker) {
  if (leadingMarker) {  // system header: marker, 22 bits, marker
    out[0] = static_cast<uint8_t>(0x80 | (rate >> 15));
    out[1] = static_cast<uint8_t>(rate >> 7);
    out[2] = static_cast<uint8_t>((rate << 1) | 0x01);
  } else {  // pack header: 22 bits, two markers
    out[0] = static_cast<uint8_t>(rate >> 14);
    out[1] = static_cast<uint8_t>(rate >> 6);
    out[2] = static_cast<uint8_t>((rate << 2) | 0x03);
  }
}

}  // namespace

size_t WritePackHeader(uint8_t* out, uint64_t scr90k) {
  const uint64_t scr = scr90k & kTimestampMask;
  WriteStartCode(out, 0xBA);
  // '01' SCR[32..30] 1 SCR[29..15] 1 SCR[14..0] 1 SCR_ext(9 bits, 0) 1
  out[4] = static_cast<uint8_t>(0x44 | ((scr >> 27) & 0x38) | ((scr >> 28) & 0x03));
  out[5] = static_cast<uint8_t>(scr >> 20);
  out[6] = static_cast<uint8_t>(((scr >> 12) & 0xF8) | 0x04 | ((scr >> 13) & 0x03));
  out[7] = static_cast<uint8_t>(scr >> 5);
  out[8] = static_cast<uint8_t>(((scr << 3) & 0xF8) | 0x04);
  out[9] = 0x01;
  WriteRate(out + 10, kMuxRate, false);
  out[13] = 0xF8;  // reserved bits, no stuffing
  return kPackHeaderSize;
}

size_t WriteSystemHeader(uint8_t* out, const PsStream* streams, size_t count) {
  size_t audio = 0, video = 0;
  for (size_t i = 0; i < count; ++i) (streams[i].streamId >= kVideoStreamId ? video : audio)++;
  WriteStartCode(out, 0xBB);
  WriteU16(out + 4, SystemHeaderSize(count) - 6);
  WriteRate(out + 6, kMuxRate, true);
  out[9] = static_cast<uint8_t>(audio << 2);     // audio_bound, fixed 0, CSPS 0
  out[10] = static_cast<uint8_t>(0x20 | video);  // no audio/video lock, marker, video_bound
  out[11] = 0x7F;                                // no packet rate restriction, reserved
  uint8_t* entry = out + 12;
  for (size_t i = 0; i < count; ++i, entry += 3) {
    const bool isVideo = streams[i].streamId >= kVideoStreamId;
    // '11', buffer bound scale (1: 1024-byte units for video, 0: 128-byte units for audio), 13-bit bound
    const uint16_t bound = isVideo ? 1024 : 32;
    entry[0] = streams[i].streamId;
    entry[1] = static_cast<uint8_t>(0xC0 | (isVideo ? 0x20 : 0x00) | (bound >> 8));
    entry[2] = static_cast<uint8_t>(bound);
  }
  return SystemHeaderSize(count);
}

size_t WriteProgramStreamMap(uint8_t* out, const PsStream* streams, size_t count) {
  const size_t total = ProgramStreamMapSize(count);
  WriteStartCode(out, 0xBC);
  WriteU16(out + 4, total - 6);
  out[6] = 0xE0;         // current_next_indicator, reserved, version 0
  out[7] = 0xFF;         // reserved, marker
  WriteU16(out + 8, 0);  // program_stream_info_length
  WriteU16(out + 10, 4 * count);
  uint8_t* entry = out + 12;
  for (size_t i = 0; i < count; ++i, entry += 4) {
    entry[0] = streams[i].streamType;
    entry[1] = streams[i].streamId;
    WriteU16(entry + 2, 0);
  }
  const uint32_t crc = Crc32Mpeg2(out, total - 4);
  entry[0] = static_cast<uint8_t>(crc >> 24);
  entry[1] = static_cast<uint8_t>(crc >> 16);
  entry[2] = static_cast<uint8_t>(crc >> 8);
  entry[3] = static_cast<uint8_t>(crc);
  return total;
}

void WritePesTimestamp(uint8_t* out, uint8_t prefix, uint64_t timestamp) {
  const uint64_t ts = timestamp & kTimestampMask;
  out[0] = static_cast<uint8_t>((prefix << 4) | ((ts >> 29) & 0x0E) | 0x01);
  out[1] = static_cast<uint8_t>(ts >> 22);
  out[2] = static_cast<uint8_t>(((ts >> 14) & 0xFE) | 0x01);
  out[3] = static_cast<uint8_t>(ts >> 7);
  out[4] = static_cast<uint8_t>(((ts << 1) & 0xFE) | 0x01);
}

uint64_t ReadPesTimestamp(const uint8_t* in) {
  return (static_cast<uint64_t>(in[0] & 0x0E) << 29) | (static_cast<uint64_t>(in[1]) << 22) |
         (static_cast<uint64_t>(in[2] & 0xFE) << 14) | (static_cast<uint64_t>(in[3]) << 7) | (in[4] >> 1);
}

size_t WritePesHeaderPtsDts(uint8_t* out, uint8_t streamId, size_t payloadSize, uint64_t pts, uint64_t dts) {
  WriteStartCode(out, streamId);
  WriteU16(out + 4, payloadSize + kPesHeaderSizePtsDts - 6);
  out[6] = 0x84;  // '10', data_alignment_indicator
  out[7] = 0xC0;  // PTS and DTS
  out[8] = 10;
  WritePesTimestamp(out + 9, 0x3, pts);
  WritePesTimestamp(out + 14, 0x1, dts);
  return kPesHeaderSizePtsDts;
}

size_t WritePesHeaderPts(uint8_t* out, uint8_t streamId, size_t payloadSize, uint64_t pts) {
  WriteStartCode(out, streamId);
  WriteU16(out + 4, payloadSize + kPesHeaderSizePts - 6);
  out[6] = 0x84;
  out[7] = 0x80;  // PTS only
  out[8] = 5;
  WritePesTimestamp(out + 9, 0x2, pts);
  return kPesHeaderSizePts;
}

size_t WritePesHeaderNoTimestamps(uint8_t* out, uint8_t streamId, size_t payloadSize) {
  WriteStartCode(out, streamId);
  WriteU16(out + 4, payloadSize + kPesHeaderSizeNoTimestamps - 6);
  out[6] = 0x80;
  out[7] = 0x00;
  out[8] = 0;
  return kPesHeaderSizeNoTimestamps;
}

uint32_t Crc32Mpeg2(const uint8_t* data, size_t size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < size; ++i) crc = (crc << 8) ^ kCrcTable[((crc >> 24) ^ data[i]) & 0xFF];
  return crc;
}

}  // namespace muxc
