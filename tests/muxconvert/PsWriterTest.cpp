#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "MediaTools.h"
#include "PesAssembler.h"
#include "PsWriter.h"

namespace muxc {
namespace {

TEST(PsWriterTest, PesTimestampLayoutAndRoundTrip) {
  uint8_t out[5];
  WritePesTimestamp(out, 0x2, 90000);  // the classic one-second PTS
  EXPECT_EQ(std::vector<uint8_t>(out, out + 5), (std::vector<uint8_t>{0x21, 0x00, 0x05, 0xBF, 0x21}));
  for (uint64_t value :
       {uint64_t{0}, uint64_t{1}, uint64_t{0x1FFFFFFFF}, uint64_t{0x123456789}, uint64_t{0x100000000}}) {
    WritePesTimestamp(out, 0x3, value);
    EXPECT_EQ(out[0] >> 4, 0x3);
    EXPECT_EQ(out[0] & 1, 1);  // marker bits
    EXPECT_EQ(out[2] & 1, 1);
    EXPECT_EQ(out[4] & 1, 1);
    EXPECT_EQ(ReadPesTimestamp(out), value & 0x1FFFFFFFF);
  }
  WritePesTimestamp(out, 0x1, 0x200000005);  // beyond 33 bits wraps
  EXPECT_EQ(ReadPesTimestamp(out), 5u);
}

TEST(PsWriterTest, PackHeaderCarriesScrAndMarkers) {
  uint8_t out[kPackHeaderSize];
  ASSERT_EQ(WritePackHeader(out, 0x1ABCDEF01), kPackHeaderSize);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 4), (std::vector<uint8_t>{0, 0, 1, 0xBA}));
  EXPECT_EQ(out[4] & 0xC4, 0x44);  // '01' prefix, marker
  EXPECT_EQ(out[6] & 0x04, 0x04);
  EXPECT_EQ(out[8] & 0x04, 0x04);
  EXPECT_EQ(out[9] & 0x01, 0x01);
  EXPECT_EQ(out[12] & 0x03, 0x03);
  const uint64_t scr = (uint64_t{out[4] & 0x38u} << 27) | (uint64_t{out[4] & 0x03u} << 28) | (uint64_t{out[5]} << 20) |
                       (uint64_t{out[6] & 0xF8u} << 12) | (uint64_t{out[6] & 0x03u} << 13) | (uint64_t{out[7]} << 5) |
                       (out[8] >> 3);
  EXPECT_EQ(scr, 0x1ABCDEF01u);
  EXPECT_EQ(((out[10] << 14) | (out[11] << 6) | (out[12] >> 2)), static_cast<int>(kMuxRate));
}

TEST(PsWriterTest, ProgramStreamMapHasValidCrc) {
  EXPECT_EQ(Crc32Mpeg2(reinterpret_cast<const uint8_t*>("123456789"), 9), 0x0376E6E7u);  // CRC-32/MPEG-2 check value
  const PsStream streams[] = {{kVideoStreamId, kStreamTypeH265}, {kAudioStreamId, kStreamTypeAac}};
  uint8_t map[ProgramStreamMapSize(2)];
  ASSERT_EQ(WriteProgramStreamMap(map, streams, 2), sizeof(map));
  EXPECT_EQ(map[3], 0xBC);
  EXPECT_EQ((map[4] << 8 | map[5]) + 6, static_cast<int>(sizeof(map)));
  EXPECT_EQ(map[12], kStreamTypeH265);
  EXPECT_EQ(map[13], kVideoStreamId);
  EXPECT_EQ(map[16], kStreamTypeAac);
  EXPECT_EQ(Crc32Mpeg2(map, sizeof(map)), 0u);  // CRC over data plus its CRC is zero
  map[13] ^= 1;
  EXPECT_NE(Crc32Mpeg2(map, sizeof(map)), 0u);
}

// Payload sizes around the split points of one 16-bit PES_packet_length.
class PesSplitTest : public ::testing::TestWithParam<size_t> {};

TEST_P(PesSplitTest, SplitsBelowSixtyFourKibAndKeepsEveryByte) {
  const size_t size = GetParam();
  std::vector<uint8_t> payload(size);
  std::iota(payload.begin(), payload.end(), 0);
  PesAssembler assembler;
  assembler.Begin(kPackHeaderSize, true);
  for (size_t offset = 0; offset < size; offset += 1000) {  // appends straddle the split points
    assembler.Append(payload.data() + offset, std::min<size_t>(1000, size - offset));
  }
  assembler.Finish(kVideoStreamId, 123456);
  WritePackHeader(assembler.Prepend(kPackHeaderSize), 0);

  bool ok = false;
  const auto packets =
      netcam_test::ReadProgramStream(std::vector<uint8_t>(assembler.data(), assembler.data() + assembler.size()), &ok);
  ASSERT_TRUE(ok);
  ASSERT_GE(packets.size(), 2u);
  EXPECT_EQ(packets[0].startCode, 0xBA);
  std::vector<uint8_t> joined;
  for (size_t i = 1; i < packets.size(); ++i) {
    EXPECT_EQ(packets[i].startCode, kVideoStreamId);
    EXPECT_EQ(packets[i].hasPts, i == 1) << "only the first PES is timed";
    EXPECT_EQ(packets[i].hasDts, i == 1);
    joined.insert(joined.end(), packets[i].body.begin(), packets[i].body.end());
  }
  EXPECT_EQ(packets[1].pts, 123456u);
  EXPECT_EQ(packets[1].dts, 123456u);
  EXPECT_EQ(joined, payload);
  const size_t firstLimit = assembler.firstPesPayloadLimit();
  const size_t expectedPes = size <= firstLimit ? 1
                                                : 1 + (size - firstLimit + PesAssembler::kNextPesPayloadLimit - 1) /
                                                          PesAssembler::kNextPesPayloadLimit;
  EXPECT_EQ(packets.size() - 1, expectedPes);
}

INSTANTIATE_TEST_SUITE_P(Sizes, PesSplitTest, ::testing::Values(1, 65522, 65523, 65535, 65536, 200000, 1000000));

TEST(PesAssemblerTest, PrependMovesDataWhenTheRoomIsShort) {
  PesAssembler assembler;
  assembler.Begin(4, false);
  const uint8_t data[] = {1, 2, 3};
  assembler.Append(data, sizeof(data));
  assembler.Finish(kAudioStreamId, 9);
  uint8_t* prefix = assembler.Prepend(kPackHeaderSize + 100);
  std::fill(prefix, prefix + kPackHeaderSize + 100, 0xAB);
  ASSERT_EQ(assembler.size(), kPackHeaderSize + 100 + kPesHeaderSizePts + sizeof(data));
  EXPECT_EQ(assembler.data()[kPackHeaderSize + 100 + 3], kAudioStreamId);
  EXPECT_EQ(assembler.data()[assembler.size() - 1], 3);
}

}  // namespace
}  // namespace muxc
