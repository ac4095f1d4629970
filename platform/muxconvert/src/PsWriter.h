// PsWriter.h - MPEG-2 program stream (ISO/IEC 13818-1) headers: pack header,
// system header, program stream map and PES headers. Pure byte writers; the
// caller provides room (sizes below are exact).
#pragma once

#include <cstddef>
#include <cstdint>

namespace muxc {

constexpr uint8_t kVideoStreamId = 0xE0;
constexpr uint8_t kAudioStreamId = 0xC0;
constexpr uint8_t kStreamTypeAac = 0x0F;
constexpr uint8_t kStreamTypeH264 = 0x1B;
constexpr uint8_t kStreamTypeH265 = 0x24;

constexpr size_t kPackHeaderSize = 14;
constexpr size_t kPesHeaderSizeNoTimestamps = 9;
constexpr size_t kPesHeaderSizePts = 14;
constexpr size_t kPesHeaderSizePtsDts = 19;
constexpr size_t kMaxPesPacketLength = 65535;  // the 16-bit PES_packet_length field

struct PsStream {
  uint8_t streamId;
  uint8_t streamType;
};

// At most one video and one audio stream are carried.
constexpr size_t kMaxPsStreams = 2;
constexpr size_t SystemHeaderSize(size_t streamCount) { return 12 + 3 * streamCount; }
constexpr size_t ProgramStreamMapSize(size_t streamCount) { return 16 + 4 * streamCount; }

// Mux rate in units of 50 bytes/s as written in the pack and system headers.
constexpr uint32_t kMuxRate = 50000;  // 20 Mbit/s

size_t WritePackHeader(uint8_t* out, uint64_t scr90k);
size_t WriteSystemHeader(uint8_t* out, const PsStream* streams, size_t count);
size_t WriteProgramStreamMap(uint8_t* out, const PsStream* streams, size_t count);

// `payloadSize` must keep PES_packet_length within 65535.
size_t WritePesHeaderPtsDts(uint8_t* out, uint8_t streamId, size_t payloadSize, uint64_t pts, uint64_t dts);
size_t WritePesHeaderPts(uint8_t* out, uint8_t streamId, size_t payloadSize, uint64_t pts);
size_t WritePesHeaderNoTimestamps(uint8_t* out, uint8_t streamId, size_t payloadSize);

// 33-bit timestamp in the 5-byte PES form with the 4-bit prefix (0x2 PTS only, 0x3 PTS of a pair, 0x1 DTS).
void WritePesTimestamp(uint8_t* out, uint8_t prefix, uint64_t timestamp);
uint64_t ReadPesTimestamp(const uint8_t* in);

// CRC-32/MPEG-2: polynomial 0x04C11DB7, initial 0xFFFFFFFF, no reflection, no final xor.
uint32_t Crc32Mpeg2(const uint8_t* data, size_t size);

}  // namespace muxc
