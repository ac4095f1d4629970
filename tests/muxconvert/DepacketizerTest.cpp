// The AAC depacketizer path the decoded sessions cannot reach: units
// fragmented over several packets, and a loss in the middle of one.
#include <gtest/gtest.h>

#include <vector>

#include "AacDepacketizer.h"

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
