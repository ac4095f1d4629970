// The C interface end to end with synthetic NAL units: argument and state
// errors, malformed packets, loss, key-frame gating, stream times, re-entrancy.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>
#include <vector>

#include "MediaTools.h"
#include "MuxConvert.h"
#include "PsWriter.h"
#include "RtpTestPacketizer.h"

// Counting allocations on this thread: every replaceable form goes through malloc/free.
namespace {
thread_local bool g_countAllocations = false;
std::atomic<int> g_allocations{0};
}  // namespace

// GCC 12 at -O2 takes these replacements' malloc/free pairing for a mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  if (g_countAllocations) ++g_allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (g_countAllocations) ++g_allocations;
  return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

namespace netcam_test {
namespace {

constexpr int32_t kOk = 0;
const int32_t kInvalidArg = static_cast<int32_t>(MUXC_ERR_INVALID_ARG);
const int32_t kState = static_cast<int32_t>(MUXC_ERR_STATE);
const int32_t kBadPacket = static_cast<int32_t>(MUXC_ERR_BAD_PACKET);
const int32_t kUnsupported = static_cast<int32_t>(MUXC_ERR_UNSUPPORTED);

const Bytes kSps = {0x67, 0x42, 0xC0, 0x1E, 0xD9, 0x00, 0xA0, 0x47, 0xFE, 0xC8};
const Bytes kPps = {0x68, 0xCE, 0x3C, 0x80};

Bytes Body(uint8_t header, size_t size, uint8_t seed) {
  Bytes nal = {header, 0x88};  // 0x88: first_mb_in_slice 0
  for (size_t i = 2; i < size; ++i) nal.push_back(static_cast<uint8_t>(seed * 31 + i));
  return nal;
}
VideoAccessUnit KeyFrame(size_t size = 3000, bool withSets = false) {
  VideoAccessUnit unit;
  if (withSets) unit.nalUnits = {kSps, kPps};
  unit.nalUnits.push_back(Body(0x65, size, 1));
  unit.keyFrame = true;
  return unit;
}
VideoAccessUnit Picture(size_t size = 1500, uint8_t seed = 2) {
  VideoAccessUnit unit;
  unit.nalUnits = {Body(0x41, size, seed)};
  return unit;
}

// H.264 video and AAC-hbr audio (48 kHz mono).
std::string H264Sdp() {
  return VideoSdp(VideoCodec::kH264, {kSps, kPps}) +
         "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/48000/1\r\na=fmtp:97 mode=AAC-hbr; config=1188; "
         "sizeLength=13; indexLength=3; indexDeltaLength=3\r\n";
}

int32_t Feed(MUXC_HANDLE handle, const Bytes& packet) {
  return MUXC_InputData(handle, 0, packet.data(), static_cast<int32_t>(packet.size()));
}

class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    collector.keepUnits = true;
    handle = StartSession(H264Sdp(), &collector);
    ASSERT_NE(handle, nullptr);
  }
  void TearDown() override {
    if (handle != nullptr) MUXC_Release(handle);
  }
  void Send(const VideoAccessUnit& unit, uint32_t ticks) {
    for (const Bytes& packet : packetizer.Packetize(unit, ticks)) ASSERT_EQ(Feed(handle, packet), kOk);
  }
  std::vector<PsPacket> Parse(const Bytes& unit) {
    bool ok = false;
    auto packets = ReadProgramStream(unit, &ok);
    EXPECT_TRUE(ok);
    return packets;
  }
  Bytes VideoBytes(const Bytes& unit) {
    Bytes out;
    for (const PsPacket& p : Parse(unit)) {
      if (p.startCode == 0xE0) out.insert(out.end(), p.body.begin(), p.body.end());
    }
    return out;
  }

  OutputCollector collector;
  MUXC_HANDLE handle = nullptr;
  VideoRtpPacketizer packetizer{VideoCodec::kH264, {96, 0x1234ABCD, 65500, 0xFFFF0000, /*maxPayload=*/1000, true}};
};

TEST(ApiTest, RefusesBadArgumentsAndEnforcesTheLifecycle) {
  const std::string sdp = H264Sdp();
  const MUXC_CreateParam good{1, static_cast<int32_t>(sdp.size()), sdp.c_str(), 2, 0};
  const struct {
    int32_t version;
    MUXC_CreateParam param;
    int32_t expected;
  } cases[] = {
      {2, good, kUnsupported},
      {1, {2, good.sdpLength, good.sdp, 2, 0}, kUnsupported},  // source kind
      {1, {1, good.sdpLength, good.sdp, 1, 0}, kUnsupported},  // target format
      {1, {1, good.sdpLength, nullptr, 2, 0}, kInvalidArg},
      {1, {1, 23, "m=audio 0 RTP/AVP 0 8\r\n", 2, 0}, static_cast<int32_t>(MUXC_ERR_NO_MEDIA)},  // G.711 only
      {1, {1, 4, "  \r\n", 2, 0}, static_cast<int32_t>(MUXC_ERR_BAD_SDP)},
  };
  for (const auto& c : cases) {
    MUXC_HANDLE handle = reinterpret_cast<MUXC_HANDLE>(0x1);
    EXPECT_EQ(MUXC_CreateEx(&handle, c.version, &c.param), c.expected);
    EXPECT_EQ(handle, nullptr);
  }
  EXPECT_EQ(MUXC_CreateEx(nullptr, 1, &good), kInvalidArg);
  MUXC_HANDLE handle = nullptr;
  EXPECT_EQ(MUXC_CreateEx(&handle, 1, nullptr), kInvalidArg);
  const uint8_t byte = 0;
  EXPECT_EQ(MUXC_SetGlobalTime(nullptr, nullptr), kInvalidArg);
  EXPECT_EQ(MUXC_RegisterModifyGlobalTimeCallBack(nullptr, nullptr, nullptr), kInvalidArg);
  EXPECT_EQ(MUXC_RegisterOutputDataCallBack(nullptr, nullptr, nullptr), kInvalidArg);
  EXPECT_EQ(MUXC_Start(nullptr, 0, 0), kInvalidArg);
  EXPECT_EQ(MUXC_InputData(nullptr, 0, &byte, 1), kInvalidArg);
  EXPECT_EQ(MUXC_Stop(nullptr), kInvalidArg);
  EXPECT_EQ(MUXC_Release(nullptr), kInvalidArg);

  OutputCollector collector;
  ASSERT_EQ(MUXC_CreateEx(&handle, 1, &good), kOk);
  const Bytes packet = MakeRtpPacket(96, true, 1, 0, 1, kPps.data(), kPps.size());
  EXPECT_EQ(Feed(handle, packet), kState);  // before Start
  MUXC_GlobalTime february30{2023, 2, 30, 0, 0, 0, 0, 0};
  EXPECT_EQ(MUXC_SetGlobalTime(handle, &february30), kInvalidArg);
  EXPECT_EQ(MUXC_SetGlobalTime(handle, nullptr), kInvalidArg);
  ASSERT_EQ(MUXC_RegisterOutputDataCallBack(handle, &OutputCollector::OnUnit, &collector), kOk);
  ASSERT_EQ(MUXC_Start(handle, 0, 0), kOk);
  EXPECT_EQ(MUXC_Start(handle, 0, 0), kState);
  EXPECT_EQ(MUXC_InputData(handle, 1, packet.data(), static_cast<int32_t>(packet.size())), kUnsupported);
  EXPECT_EQ(MUXC_InputData(handle, 0, packet.data(), 0), kInvalidArg);
  EXPECT_EQ(MUXC_InputData(handle, 0, nullptr, 10), kInvalidArg);
  EXPECT_EQ(Feed(handle, packet), kOk);
  ASSERT_EQ(MUXC_Stop(handle), kOk);
  EXPECT_EQ(Feed(handle, packet), kState);
  EXPECT_EQ(MUXC_Stop(handle), kState);
  EXPECT_EQ(MUXC_Start(handle, 0, 0), kState);
  EXPECT_EQ(MUXC_RegisterOutputDataCallBack(handle, &OutputCollector::OnUnit, &collector), kState);
  EXPECT_EQ(MUXC_Release(handle), kOk);
  EXPECT_EQ(collector.headerUnits, 1);
  EXPECT_EQ(collector.payloadUnits, 0);
}

TEST_F(SessionTest, HeaderUnitDescribesTheStreams) {
  ASSERT_EQ(collector.units.size(), 1u);
  const Bytes& header = collector.units[0];
  EXPECT_LT(header.size(), 256u);
  auto packets = Parse(header);
  ASSERT_EQ(packets.size(), 3u);
  for (int k = 0; k < 3; ++k) ASSERT_EQ(packets[k].startCode, 0xBA + k);  // pack, system header, map
  const Bytes& map = packets[2].body;
  ASSERT_EQ(map.size(), 24u);  // two streams: H.264 on 0xE0, AAC on 0xC0
  EXPECT_EQ(Bytes(map.begin() + 12, map.begin() + 18), (Bytes{0x1B, 0xE0, 0, 0, 0x0F, 0xC0}));
  EXPECT_EQ(muxc::Crc32Mpeg2(map.data(), map.size()), 0u);  // data plus its CRC-32/MPEG-2 gives zero
}

TEST_F(SessionTest, StartsAtTheFirstKeyFrameWithParameterSetsInFront) {
  Send(Picture(), 0);  // joined mid-GOP: cannot be decoded
  Send(Picture(), 3600);
  Send(KeyFrame(), 7200);
  Send(Picture(), 10800);
  ASSERT_EQ(collector.payloadUnits, 2);
  auto first = Parse(collector.units[1]);
  ASSERT_GE(first.size(), 5u);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(first[k].startCode, 0xBA + k);  // pack, system header, map
  Bytes expected;
  for (const Bytes& nal : {kSps, kPps, KeyFrame().nalUnits[0]}) {
    expected.insert(expected.end(), {0, 0, 0, 1});
    expected.insert(expected.end(), nal.begin(), nal.end());
  }
  EXPECT_EQ(VideoBytes(collector.units[1]), expected);
  EXPECT_TRUE(first[3].hasPts && first[3].hasDts);
  EXPECT_EQ(first[3].pts, first[3].dts);

  auto second = Parse(collector.units[2]);  // a plain picture: pack header and PES only
  ASSERT_EQ(second.size(), 2u);
  EXPECT_EQ(second[1].pts - first[3].pts, 3600u);

  Send(KeyFrame(3000, /*withSets=*/true), 14400);  // carries its own sets: no copies in front
  ASSERT_EQ(collector.payloadUnits, 3);
  EXPECT_EQ(VideoBytes(collector.units[3]).size(), 4 + kSps.size() + 4 + kPps.size() + 4 + 3000);
}

TEST_F(SessionTest, SequenceGapDropsOnlyTheBrokenUnits) {
  Send(KeyFrame(), 0);
  std::vector<Bytes> broken = packetizer.Packetize(Picture(2500), 3600);
  ASSERT_EQ(broken.size(), 3u);
  ASSERT_EQ(Feed(handle, broken[0]), kOk);
  ASSERT_EQ(Feed(handle, broken[2]), kOk);  // middle fragment lost
  Send(Picture(800, 3), 7200);
  std::vector<Bytes> tailLost = packetizer.Packetize(Picture(2500, 4), 10800);
  ASSERT_EQ(Feed(handle, tailLost[0]), kOk);
  ASSERT_EQ(Feed(handle, tailLost[1]), kOk);  // the marker packet never arrives
  std::vector<Bytes> next = packetizer.Packetize(Picture(800, 5), 14400);
  next.insert(next.begin() + 0, tailLost[0]);  // a late duplicate is ignored
  for (const Bytes& packet : next) ASSERT_EQ(Feed(handle, packet), kOk);
  Send(Picture(800, 6), 18000);
  // Emitted: the key frame, the picture after the first loss, and the one after the unit that followed the
  // second loss (that unit's start cannot be told from lost packets, so it goes too).
  ASSERT_EQ(collector.payloadUnits, 3);
  const Bytes last = Picture(800, 6).nalUnits[0];
  const Bytes video = VideoBytes(collector.units.back());
  EXPECT_TRUE(std::equal(last.begin(), last.end(), video.begin() + 4));
}

// Every layer refuses what it cannot read: RTP header, H.264 payload formats, AAC-hbr AU headers.
TEST_F(SessionTest, MalformedPacketsAreRefusedWithoutHarm) {
  uint16_t sequence = 100;  // audio first: the video sequence then runs on into the packet after the table
  auto rtp = [&](uint8_t payloadType, const Bytes& payload) {
    return MakeRtpPacket(payloadType, true, sequence++, 0, 7, payload.data(), payload.size());
  };
  Bytes sumOverrun = {0x00, 0x20, 0x00, 0x78, 0x00, 0x78};  // two AUs of 15 bytes each, 20 present
  sumOverrun.resize(26);
  Bytes sizeOverrun = {0x00, 0x20, 0x01, 0x90, 0x01, 0x90};  // 50 bytes each
  sizeOverrun.resize(26);
  const Bytes packets[] = {
      {0x80, 0xE0, 0, 1, 0, 0, 0, 0, 0, 0, 0},                                   // shorter than a header
      {0x40, 0xE0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 7, 0x65, 0x88},                    // version 1
      {0xA0, 0xE0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 7, 0x65, 3},                       // three bytes of padding in two
      {0xA0, 0xE0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 7, 0x65, 0x88, 0},                 // zero padding length
      {0x8F, 0xE0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 7, 0x65, 0x88, 0, 0, 0, 0},        // CSRCs beyond the packet
      {0x90, 0xE0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 7, 0xBE, 0xDE, 0x01, 0x00, 1, 2},  // extension beyond
      {0x80, 0xE4, 0, 1, 0, 0, 0, 0, 0, 0, 0, 7, 0x65, 0x88},                    // payload type 100: not in the SDP
      rtp(97, {0x00}),                                                           // shorter than AU-headers-length
      rtp(97, {0x00, 0x00, 0x01}),                                               // zero header bits
      rtp(97, {0x00, 0x40, 0x00, 0x20}),                                         // 64 header bits, 2 present
      rtp(97, {0x00, 0x0C, 0x00, 0x00}),                                         // 12 bits: a 16-bit header cut short
      rtp(97, sizeOverrun),
      rtp(97, sumOverrun),                      // each size fits, their sum does not (a fuzzer find)
      rtp(96, {0x78, 0x10, 0x00, 0x65}),        // STAP-A size beyond the packet
      rtp(96, {0x78, 0x00, 0x00, 0x67, 0x00}),  // STAP-A zero size
      rtp(96, {0x7C, 0xC1, 0x00}),              // FU-A with start and end
      rtp(96, {0x7C, 0x80}),                    // FU-A without data
      rtp(96, {0x79, 0x00, 0x00}),              // STAP-B (interleaved mode)
      rtp(96, {0x60}),                          // type 0
  };
  for (size_t i = 0; i < std::size(packets); ++i) EXPECT_EQ(Feed(handle, packets[i]), kBadPacket) << i;
  EXPECT_EQ(collector.payloadUnits, 0);

  // The same picture behind CSRCs, a header extension and padding is read correctly.
  const Bytes idr = KeyFrame().nalUnits[0];
  Bytes dressed = MakeRtpPacket(96, true, sequence, 0x100000, 7, nullptr, 0);
  dressed[0] = 0xB2;  // padding, extension, two CSRCs
  dressed.insert(dressed.end(), {0, 0, 0, 1, 0, 0, 0, 2, 0xBE, 0xDE, 0x00, 0x01, 9, 9, 9, 9});
  dressed.insert(dressed.end(), idr.begin(), idr.end());
  dressed.insert(dressed.end(), {0, 0, 3});
  ASSERT_EQ(Feed(handle, dressed), kOk);
  ASSERT_EQ(collector.payloadUnits, 1);
  const Bytes video = VideoBytes(collector.units.back());
  ASSERT_GE(video.size(), idr.size());
  EXPECT_TRUE(std::equal(idr.begin(), idr.end(), video.end() - static_cast<long>(idr.size())));
  EXPECT_EQ(Feed(handle, Bytes{0x81, 0xC8, 0x00, 0x01, 0, 0, 0, 7}), kOk);  // RTCP on the same channel
}

std::string Text(const MUXC_GlobalTime& t) {
  char buffer[64];
  snprintf(buffer, sizeof(buffer), "%04d-%02d-%02d %02d:%02d:%02d.%03d/%d", t.year, t.month, t.day, t.hour, t.minute,
           t.second, t.millisecond, t.dwReserved);
  return buffer;
}

struct TimeLog {
  std::vector<MUXC_GlobalTime> times;
  static void OnTime(const MUXC_GlobalTime* time, void* user) { static_cast<TimeLog*>(user)->times.push_back(*time); }
};

// Recorded streams count from the given start across the year end and the 32-bit RTP
// timestamp wrap; live streams report the local wall clock.
TEST_F(SessionTest, GlobalTimeIsStreamTimeOrTheLiveWallClock) {
  TimeLog log;
  MUXC_GlobalTime start{2023, 12, 31, 23, 59, 59, 900, 0};
  ASSERT_EQ(MUXC_SetGlobalTime(handle, &start), kOk);
  ASSERT_EQ(MUXC_RegisterModifyGlobalTimeCallBack(handle, &TimeLog::OnTime, &log), kOk);
  // The packetizer starts at 0xFFFF0000: 90 kHz ticks wrap past 2^32 after 65536 ticks.
  for (uint32_t ticks : {0u, 3600u, 9000u, 65536u + 90000u}) {
    Send(ticks ? Picture() : KeyFrame(), ticks);
  }
  ASSERT_EQ(log.times.size(), 4u);
  EXPECT_EQ(Text(log.times[0]), "2023-12-31 23:59:59.900/0");
  EXPECT_EQ(Text(log.times[1]), "2023-12-31 23:59:59.940/0");
  EXPECT_EQ(Text(log.times[2]), "2024-01-01 00:00:00.000/0");
  EXPECT_EQ(Text(log.times[3]), "2024-01-01 00:00:01.628/0");  // 65536 + 90000 ticks = 1728.18 ms

  MUXC_Release(handle);
  handle = StartSession(H264Sdp(), &collector);
  MUXC_GlobalTime live{0, 0, 0, 0, 0, 0, 0, 1};
  ASSERT_EQ(MUXC_SetGlobalTime(handle, &live), kOk);
  ASSERT_EQ(MUXC_RegisterModifyGlobalTimeCallBack(handle, &TimeLog::OnTime, &log), kOk);
  const time_t before = time(nullptr);
  Send(KeyFrame(), 0);
  const time_t after = time(nullptr);
  ASSERT_EQ(log.times.size(), 5u);
  const MUXC_GlobalTime& t = log.times.back();
  std::tm tm{};  // the fields alone: Windows' tm has no zone members
  tm.tm_sec = t.second, tm.tm_min = t.minute, tm.tm_hour = t.hour, tm.tm_mday = t.day, tm.tm_mon = t.month - 1;
  tm.tm_year = t.year - 1900, tm.tm_isdst = -1;
  const time_t reported = mktime(&tm);
  EXPECT_TRUE(reported >= before && reported <= after && t.dwReserved == 1) << reported << " " << before;
  EXPECT_TRUE(t.millisecond >= 0 && t.millisecond <= 999);
}

// Callbacks run synchronously inside MUXC_InputData, so a callback may end the session it is called from.
TEST(ReentrancyTest, StopOrReleaseFromInsideTheCallback) {
  VideoAccessUnit unit = KeyFrame();
  unit.nalUnits.push_back(Body(0x65, 100, 3));  // one packet finishing one unit, then more
  const auto packets = VideoRtpPacketizer(VideoCodec::kH264, RtpStreamOptions()).Packetize(unit, 0);
  for (bool release : {false, true}) {
    OutputCollector collector;
    MUXC_HANDLE handle = StartSession(H264Sdp(), &collector);
    collector.onPayload = [&] { EXPECT_EQ(release ? MUXC_Release(handle) : MUXC_Stop(handle), kOk); };
    for (const Bytes& packet : packets) Feed(handle, packet);
    EXPECT_EQ(collector.payloadUnits, 1);
    if (!release) {
      EXPECT_EQ(Feed(handle, packets.back()), kState);
      EXPECT_EQ(MUXC_Release(handle), kOk);
    }
  }
}

TEST_F(SessionTest, SteadyStateAllocatesNothing) {
  auto gop = [&](uint32_t base) {
    Send(KeyFrame(40000), base);
    for (uint32_t i = 1; i < 25; ++i) Send(Picture(2000 + 300 * (i % 7), static_cast<uint8_t>(i)), base + i * 3600);
  };
  gop(0);
  gop(90000);  // buffers have grown to the largest unit
  std::vector<Bytes> packets;
  for (uint32_t i = 0; i < 25; ++i) {
    VideoAccessUnit unit = i == 0 ? KeyFrame(40000) : Picture(2000 + 300 * (i % 7), static_cast<uint8_t>(i));
    for (Bytes& p : packetizer.Packetize(unit, 180000 + i * 3600)) packets.push_back(std::move(p));
  }
  collector.keepUnits = false;
  collector.stream.reserve(collector.stream.size() + 200000);
  g_allocations = 0;
  g_countAllocations = true;
  for (const Bytes& packet : packets) Feed(handle, packet);
  g_countAllocations = false;
  EXPECT_EQ(g_allocations.load(), 0);
  EXPECT_EQ(collector.payloadUnits, 75);
}

}  // namespace
}  // namespace netcam_test
