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

Bytes AnnexB(const std::vector<Bytes>& nals) {
  Bytes out;
  for (const Bytes& nal : nals) {
    out.insert(out.end(), {0, 0, 0, 1});
    out.insert(out.end(), nal.begin(), nal.end());
  }
  return out;
}

// Feeds payloads through a depacketizer and returns the elementary stream it wrote.
class VideoHarness {
 public:
  VideoHarness(Codec codec, bool don = false) : depacketizer_(codec, don) {
    assembler_.Begin(0, true);
    depacketizer_.BeginAccessUnit();
  }
  DepacketizeResult Push(const Bytes& payload) {
    const char* reason = "";
    return depacketizer_.Push(payload.data(), payload.size(), assembler_, &reason);
  }
  Bytes Output() { return Bytes(assembler_.payloadStart(), assembler_.payloadStart() + assembler_.payloadSize()); }
  VideoDepacketizer& depacketizer() { return depacketizer_; }

 private:
  VideoDepacketizer depacketizer_;
  PesAssembler assembler_;
};

std::vector<Bytes> FuA(const Bytes& nal, size_t chunk) {
  std::vector<Bytes> out;
  for (size_t offset = 1; offset < nal.size(); offset += chunk) {
    const size_t size = std::min(chunk, nal.size() - offset);
    Bytes p = {
        static_cast<uint8_t>((nal[0] & 0xE0) | 28),
        static_cast<uint8_t>((offset == 1 ? 0x80 : 0) | (offset + size == nal.size() ? 0x40 : 0) | (nal[0] & 0x1F))};
    p.insert(p.end(), nal.begin() + static_cast<long>(offset), nal.begin() + static_cast<long>(offset + size));
    out.push_back(p);
  }
  return out;
}

TEST(H264DepacketizerTest, RejectsBrokenFragmentsAndAggregates) {
  const Bytes slice = Nal({0x41}, 3000, 9);
  const std::vector<Bytes> fragments = FuA(slice, 1000);
  {
    VideoHarness h(Codec::kH264);  // lost start
    EXPECT_EQ(h.Push(fragments[1]), DepacketizeResult::kMalformed);
  }
  {
    VideoHarness h(Codec::kH264);  // lost end: the unit stays open
    ASSERT_EQ(h.Push(fragments[0]), DepacketizeResult::kOk);
    ASSERT_EQ(h.Push(fragments[1]), DepacketizeResult::kOk);
    EXPECT_TRUE(h.depacketizer().fragmentOpen());
    EXPECT_EQ(h.Push(fragments[0]), DepacketizeResult::kMalformed);  // a new start while open
  }
  const std::vector<Bytes> malformed = {
      {},                              // empty
      {0x7C, 0xC1, 0x00},              // FU-A with start and end
      {0x7C, 0x80},                    // FU-A without data
      {0x78, 0x00, 0x05, 0x67},        // STAP-A size beyond the packet
      {0x78, 0x00, 0x00, 0x67, 0x00},  // STAP-A zero size
      {0x79, 0x00, 0x00},              // STAP-B (interleaved mode)
      {0x60},                          // type 0
  };
  for (const Bytes& payload : malformed) {
    VideoHarness h(Codec::kH264);
    EXPECT_EQ(h.Push(payload), DepacketizeResult::kMalformed) << payload.size();
  }
}

TEST(H265DepacketizerTest, HandlesApAndFuWithDonFields) {
  const Bytes vps = Nal({0x40, 0x01}, 20, 1), sps = Nal({0x42, 0x01}, 30, 2), idr = Nal({0x26, 0x01}, 2500, 3);
  VideoHarness h(Codec::kH265, /*don=*/true);
  Bytes ap = {0x60, 0x01, 0x00, 0x07};  // AP header, DONL
  ap.insert(ap.end(), {0x00, static_cast<uint8_t>(vps.size())});
  ap.insert(ap.end(), vps.begin(), vps.end());
  ap.push_back(0x01);  // DOND
  ap.insert(ap.end(), {0x00, static_cast<uint8_t>(sps.size())});
  ap.insert(ap.end(), sps.begin(), sps.end());
  ASSERT_EQ(h.Push(ap), DepacketizeResult::kOk);
  for (size_t offset = 2; offset < idr.size(); offset += 1000) {
    const size_t size = std::min<size_t>(1000, idr.size() - offset);
    Bytes fu = {static_cast<uint8_t>(49 << 1), 0x01,
                static_cast<uint8_t>((offset == 2 ? 0x80 : 0) | (offset + size == idr.size() ? 0x40 : 0) | 19)};
    if (offset == 2) fu.insert(fu.end(), {0x00, 0x08});  // DONL only in the first fragment
    fu.insert(fu.end(), idr.begin() + static_cast<long>(offset), idr.begin() + static_cast<long>(offset + size));
    ASSERT_EQ(h.Push(fu), DepacketizeResult::kOk);
  }
  EXPECT_EQ(h.Output(), AnnexB({vps, sps, idr}));
  EXPECT_TRUE(h.depacketizer().flags().keyFrame);
  EXPECT_FALSE(h.depacketizer().parameterSets().CarriedBy(h.depacketizer().flags()));  // no PPS in this unit

  VideoHarness bad(Codec::kH265);
  EXPECT_EQ(bad.Push({0x26, 0x00, 0xAA}), DepacketizeResult::kMalformed);              // TID 0
  EXPECT_EQ(bad.Push({0x64, 0x01, 0xAA}), DepacketizeResult::kMalformed);              // PACI
  EXPECT_EQ(bad.Push({0x60, 0x01, 0x00, 0x01, 0x40}), DepacketizeResult::kMalformed);  // AP unit shorter than a header
}

AacParams HbrParams() {
  AacParams params;
  params.sizeLength = 13;
  params.indexLength = 3;
  params.indexDeltaLength = 3;
  return params;
}

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

TEST(AacDepacketizerTest, SplitsUnitsAndJoinsFragments) {
  AacDepacketizer aac(HbrParams());
  std::vector<Bytes> seen;
  std::vector<size_t> ordinals;
  auto collect = [&](const uint8_t* data, size_t size, size_t ordinal) {
    seen.emplace_back(data, data + size);
    ordinals.push_back(ordinal);
  };
  const char* reason = "";
  const std::vector<Bytes> units = {Nal({0x21}, 100, 1), Nal({0x21}, 5, 2), Nal({0x21}, 300, 3)};
  const Bytes payload = AacPayload(units);
  ASSERT_EQ(aac.Push(payload.data(), payload.size(), true, collect, &reason), DepacketizeResult::kOk);
  EXPECT_EQ(seen, units);
  EXPECT_EQ(ordinals, (std::vector<size_t>{0, 1, 2}));

  seen.clear();
  const Bytes big = Nal({0x21}, 2999, 4);
  for (size_t offset = 0; offset < big.size(); offset += 1000) {
    const Bytes piece(big.begin() + static_cast<long>(offset), big.begin() + static_cast<long>(offset + 1000));
    const Bytes fragment = AacPayload({piece}, big.size());
    ASSERT_EQ(aac.Push(fragment.data(), fragment.size(), offset + 1000 == big.size(), collect, &reason),
              DepacketizeResult::kOk);
  }
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0], big);

  // After a loss, the rest of a fragmented unit is dropped; the next whole unit comes through.
  seen.clear();
  aac.Resync();
  const Bytes tail = AacPayload({Bytes(big.begin() + 2000, big.end())}, big.size());
  ASSERT_EQ(aac.Push(tail.data(), tail.size(), true, collect, &reason), DepacketizeResult::kOk);
  EXPECT_TRUE(seen.empty());
  ASSERT_EQ(aac.Push(payload.data(), payload.size(), true, collect, &reason), DepacketizeResult::kOk);
  EXPECT_EQ(seen.size(), 3u);
}

TEST(AacDepacketizerTest, RejectsInconsistentHeaders) {
  AacDepacketizer aac(HbrParams());
  auto ignore = [](const uint8_t*, size_t, size_t) {};
  const char* reason = "";
  const std::vector<Bytes> malformed = {
      {0x00},                                  // shorter than AU-headers-length
      {0x00, 0x00, 0x01},                      // zero header bits
      {0x00, 0x40, 0x00, 0x20},                // 64 header bits, 2 present
      {0x00, 0x0C, 0x00, 0x00},                // 12 bits: a 16-bit header cut short
      AacPayload({Bytes(10), Bytes(10)}, 50),  // a size beyond the payload
      AacPayload({Bytes(10), Bytes(10)}, 15),  // each size fits, their sum does not
  };
  for (const Bytes& payload : malformed) {
    EXPECT_EQ(aac.Push(payload.data(), payload.size(), true, ignore, &reason), DepacketizeResult::kMalformed)
        << payload.size();
  }
}

TEST(AacConfigTest, BuildsAdtsHeadersFromTheConfig) {
  AdtsConfig config;
  ASSERT_TRUE(ParseAudioSpecificConfig({0x11, 0x90}, &config));  // LC, 48 kHz, stereo
  EXPECT_EQ(config.profile, 1);
  EXPECT_EQ(config.sampleRate, 48000u);
  EXPECT_EQ(config.channelConfig, 2);
  uint8_t header[kAdtsHeaderSize];
  WriteAdtsHeader(header, config, 100);
  EXPECT_EQ(Bytes(header, header + 7), (Bytes{0xFF, 0xF1, 0x4C, 0x80, 0x0D, 0x7F, 0xFC}));

  ASSERT_TRUE(ParseAudioSpecificConfig({0x2B, 0x91, 0x88}, &config));  // HE-AAC: SBR over an LC core
  EXPECT_EQ(config.profile, 1);
  EXPECT_EQ(config.sampleRate, 22050u);
  EXPECT_FALSE(ParseAudioSpecificConfig({0x10, 0x00}, &config));  // channel config 0 needs a PCE
  EXPECT_FALSE(ParseAudioSpecificConfig({0x12}, &config));        // truncated
}

}  // namespace
}  // namespace muxc
