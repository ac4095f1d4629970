// Depacketizer paths the ffmpeg-decoded packetizations cannot reach: H.265
// DON fields and refusals, AAC fragments around a loss.
#include <gtest/gtest.h>

#include <vector>

#include "AacDepacketizer.h"
#include "PesAssembler.h"
#include "VideoDepacketizer.h"

namespace muxc {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Nal(std::initializer_list<uint8_t> header, size_t bodySize, uint8_t seed) {
  Bytes nal(header);
  for (size_t i = 0; i < bodySize; ++i) nal.push_back(static_cast<uint8_t>(seed + i * 7));
  return nal;
}

AacParams HbrParams() {
  AacParams params;
  params.sizeLength = 13;
  params.indexLength = 3;
  params.indexDeltaLength = 3;
  return params;
}

// AAC-hbr payload: one 16-bit AU header per unit (13-bit size), then the units.
Bytes AacPayload(const std::vector<Bytes>& units, size_t declaredSize = 0) {
  Bytes p = {static_cast<uint8_t>((16 * units.size()) >> 8), static_cast<uint8_t>(16 * units.size())};
  for (const Bytes& u : units) {
    const size_t size = declaredSize ? declaredSize : u.size();
    p.push_back(static_cast<uint8_t>(size >> 5));
    p.push_back(static_cast<uint8_t>((size & 0x1F) << 3));
  }
  for (const Bytes& u : units) p.insert(p.end(), u.begin(), u.end());
  return p;
}

TEST(DepacketizerTest, H265ApAndFuWithDonFields) {
  const Bytes vps = Nal({0x40, 0x01}, 20, 1), sps = Nal({0x42, 0x01}, 30, 2), idr = Nal({0x26, 0x01}, 2500, 3);
  VideoDepacketizer video(Codec::kH265, /*donFields=*/true);
  PesAssembler assembler;
  assembler.Begin(0, true);
  video.BeginAccessUnit();
  const char* reason = "";
  Bytes ap = {0x60, 0x01, 0x00, 0x07, 0x00, static_cast<uint8_t>(vps.size())};  // AP header, DONL, size
  ap.insert(ap.end(), vps.begin(), vps.end());
  ap.insert(ap.end(), {0x01, 0x00, static_cast<uint8_t>(sps.size())});  // DOND, size
  ap.insert(ap.end(), sps.begin(), sps.end());
  ASSERT_EQ(video.Push(ap.data(), ap.size(), assembler, &reason), DepacketizeResult::kOk);
  for (size_t offset = 2; offset < idr.size(); offset += 1000) {
    const size_t size = std::min<size_t>(1000, idr.size() - offset);
    Bytes fu = {static_cast<uint8_t>(49 << 1), 0x01,
                static_cast<uint8_t>((offset == 2 ? 0x80 : 0) | (offset + size == idr.size() ? 0x40 : 0) | 19)};
    if (offset == 2) fu.insert(fu.end(), {0x00, 0x08});  // DONL only in the first fragment
    fu.insert(fu.end(), idr.begin() + static_cast<long>(offset), idr.begin() + static_cast<long>(offset + size));
    ASSERT_EQ(video.Push(fu.data(), fu.size(), assembler, &reason), DepacketizeResult::kOk);
  }
  Bytes expected;
  for (const Bytes* nal : {&vps, &sps, &idr}) {
    expected.insert(expected.end(), {0, 0, 0, 1});
    expected.insert(expected.end(), nal->begin(), nal->end());
  }
  EXPECT_EQ(Bytes(assembler.payloadStart(), assembler.payloadStart() + assembler.payloadSize()), expected);
  EXPECT_TRUE(video.flags().keyFrame);
  EXPECT_FALSE(video.parameterSets().CarriedBy(video.flags()));  // no PPS in this unit

  const Bytes malformed[] = {{0x26, 0x00, 0xAA}, {0x64, 0x01, 0xAA}, {0x60, 0x01, 0x00, 0x01, 0x40}};  // TID 0,
  for (const Bytes& payload : malformed) {  // PACI, AP unit shorter than a header
    VideoDepacketizer fresh(Codec::kH265, false);
    EXPECT_EQ(fresh.Push(payload.data(), payload.size(), assembler, &reason), DepacketizeResult::kMalformed);
  }
}

TEST(DepacketizerTest, AacFragmentsJoinAndALossDropsOnlyTheBrokenUnit) {
  AacDepacketizer aac(HbrParams());
  std::vector<Bytes> seen;
  auto collect = [&](const uint8_t* data, size_t size, size_t) { seen.emplace_back(data, data + size); };
  const Bytes big = Nal({0x21}, 2999, 4);
  auto pushFragment = [&](size_t offset) {
    const char* reason = "";
    const Bytes fragment = AacPayload(
        {Bytes(big.begin() + static_cast<long>(offset), big.begin() + static_cast<long>(offset + 1000))}, big.size());
    return aac.Push(fragment.data(), fragment.size(), offset + 1000 == big.size(), collect, &reason);
  };
  for (size_t offset = 0; offset < big.size(); offset += 1000) ASSERT_EQ(pushFragment(offset), DepacketizeResult::kOk);
  ASSERT_EQ(seen, std::vector<Bytes>{big});

  aac.Resync();  // a loss: the tail of a fragmented unit is dropped, the next whole units come through
  ASSERT_EQ(pushFragment(2000), DepacketizeResult::kOk);
  EXPECT_EQ(seen.size(), 1u);
  const std::vector<Bytes> units = {Nal({0x21}, 100, 1), Nal({0x21}, 5, 2)};
  const Bytes whole = AacPayload(units);
  const char* reason = "";
  ASSERT_EQ(aac.Push(whole.data(), whole.size(), true, collect, &reason), DepacketizeResult::kOk);
  EXPECT_EQ(std::vector<Bytes>(seen.begin() + 1, seen.end()), units);
}

}  // namespace
}  // namespace muxc
