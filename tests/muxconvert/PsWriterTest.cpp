#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "MediaTools.h"
#include "PesAssembler.h"
#include "PsWriter.h"

namespace muxc {
namespace {

// The classic one-second PTS, and 33-bit wrap of larger values.
TEST(PsWriterTest, PesTimestampLayout) {
  uint8_t out[5];
  WritePesTimestamp(out, 0x2, 90000);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 5), (std::vector<uint8_t>{0x21, 0x00, 0x05, 0xBF, 0x21}));
  WritePesTimestamp(out, 0x1, 0x200000005);
  EXPECT_EQ(ReadPesTimestamp(out), 5u);
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
    EXPECT_TRUE(packets[i].hasPts == (i == 1) && packets[i].hasDts == (i == 1)) << "only the first PES is timed";
    joined.insert(joined.end(), packets[i].body.begin(), packets[i].body.end());
  }
  EXPECT_TRUE(packets[1].pts == 123456u && packets[1].dts == 123456u);
  EXPECT_EQ(joined, payload);
  const size_t beyondFirst = size - std::min(size, assembler.firstPesPayloadLimit()),
               next = PesAssembler::kNextPesPayloadLimit;
  EXPECT_EQ(packets.size() - 1, 1 + (beyondFirst + next - 1) / next);
}

INSTANTIATE_TEST_SUITE_P(Sizes, PesSplitTest, ::testing::Values(1, 65522, 65523, 65535, 65536, 200000, 1000000));

}  // namespace
}  // namespace muxc
