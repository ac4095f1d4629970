// Only what the decoded sessions do not prove: attribute spelling and order as
// cameras vary them, media the repackager cannot carry, and hostile text.
#include <gtest/gtest.h>

#include <string>

#include "SdpParser.h"

namespace muxc {
namespace {

TEST(SdpParserTest, ReadsCameraVariants) {
  SdpDescription sdp;
  ASSERT_EQ(
      ParseSdp("m=audio 0 RTP/AVP 97\r\na=rtpmap:97 MPEG4-GENERIC/16000/1\r\na=fmtp:97 streamtype=5; "
               "config=1408; SizeLength=13; IndexLength=3; IndexDeltaLength=3; Profile=1;\r\n"
               "m=video 0 RTP/AVP 98\na=rtpmap:98 H265/90000\na=fmtp:98 sprop-pps=RAHAcvAbJA==; "
               "sprop-sps=QgEBAWAAAAMAAAMAAAMAAAMAXaAFAgPB; sprop-vps=QAEMAf//AWAAAAMAAAMA; sprop-max-don-diff=2\n",
               &sdp),
      SdpStatus::kOk);
  ASSERT_EQ(sdp.media.size(), 2u);
  const AacParams& aac = sdp.media[0].aac;
  EXPECT_EQ(aac.config, (std::vector<uint8_t>{0x14, 0x08}));
  EXPECT_TRUE(aac.sizeLength == 13 && aac.indexLength == 3 && aac.indexDeltaLength == 3);
  EXPECT_EQ(sdp.media[1].maxDonDiff, 2);
  ASSERT_EQ(sdp.media[1].parameterSets.size(), 3u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ((sdp.media[1].parameterSets[i][0] >> 1) & 0x3F, 32 + i);  // VPS, SPS, PPS

  EXPECT_EQ(DecodeBase64("aO48gA"), (std::vector<uint8_t>{0x68, 0xEE, 0x3C, 0x80}));  // padding optional
  for (const char* bad : {"aO4 8gA==", "aO48g", "aO-8"}) EXPECT_FALSE(DecodeBase64(bad)) << bad;
}

// Hostile text is bounded: too large is refused, media beyond 16 and binary noise are ignored.
TEST(SdpParserTest, BoundsHostileText) {
  SdpDescription out;
  EXPECT_EQ(ParseSdp(std::string(kMaxSdpBytes + 1, 'a'), &out), SdpStatus::kTooLarge);
  std::string many;
  for (int i = 0; i < 100; ++i) many += "m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\n";
  ASSERT_EQ(ParseSdp(many + std::string("a=rtpmap:\na=fmtp:\nm=\n=\n\x01\x02\xff\0zz", 20), &out), SdpStatus::kOk);
  EXPECT_EQ(out.media.size(), 16u);
}

TEST(SdpParserTest, TellsWhichMediaItCanCarry) {
  struct Case {
    const char* sdp;
    Codec codec;
    bool usable;
  } const cases[] = {
      {"m=video 0 RTP/AVP 26 99 96\r\na=rtpmap:99 VP8/90000\r\na=rtpmap:96 h264/90000\r\n", Codec::kH264, true},
      {"m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\na=fmtp:96 sprop-parameter-sets=Z0*AKe,,aO48gA==,A\n",
       Codec::kH264, true},                              // unreadable sets are skipped: they come in-band too
      {"m=audio 0 RTP/AVP 0\r\n", Codec::kPcmu, false},  // static payload type: known, not carried
      {"m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\na=fmtp:96 packetization-mode=2\n", Codec::kH264, false},
      {"m=audio 0 RTP/AVP 97\na=rtpmap:97 mpeg4-generic/8000\na=fmtp:97 sizelength=13\n", Codec::kAac, false},
      {"m=audio 0 RTP/AVP 97\na=rtpmap:97 mpeg4-generic/8000\na=fmtp:97 config=zz;sizelength=13\n", Codec::kAac, false},
      {"m=audio 0 RTP/AVP 97\na=rtpmap:97 mpeg4-generic/8000\na=fmtp:97 config=1408;sizelength=99\n", Codec::kAac,
       false},
      {"m=audio 0 RTP/AVP 96\na=rtpmap:96 H264/90000\n", Codec::kH264, false},  // video codec in an audio medium
      {"m=video 0 RTP/AVP 96\na=rtpmap:96 H264/99999999999999999999\n", Codec::kUnknown, false},
      {"m=application 0 RTP/AVP 107\na=rtpmap:107 vnd.onvif.metadata/90000\n", Codec::kUnknown, false},
      {"m=video 0 RTP/AVP 96", Codec::kUnknown, false},  // one line without a newline is still read
  };
  for (const Case& c : cases) {
    SdpDescription out;
    ASSERT_EQ(ParseSdp(c.sdp, &out), SdpStatus::kOk) << c.sdp;
    ASSERT_EQ(out.media.size(), 1u) << c.sdp;
    EXPECT_EQ(out.media[0].codec, c.codec) << c.sdp;
    EXPECT_EQ(out.media[0].unusableReason.empty(), c.usable) << c.sdp;
  }
}

}  // namespace
}  // namespace muxc
