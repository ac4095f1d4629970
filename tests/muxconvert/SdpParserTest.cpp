#include <gtest/gtest.h>

#include <string>

#include "SdpParser.h"

namespace muxc {
namespace {

const char kCameraSdp[] =
    "v=0\r\no=- 123 1 IN IP4 192.0.2.10\r\ns=Media Presentation\r\nt=0 0\r\na=control:*\r\n"
    "m=video 0 RTP/AVP 96\r\nc=IN IP4 0.0.0.0\r\nb=AS:50000\r\na=control:trackID=1\r\n"
    "a=rtpmap:96 H264/90000\r\n"
    "a=fmtp:96 packetization-mode=1;profile-level-id=4d0029;sprop-parameter-sets=Z00AKeKQDwBE/LgLcBAQ,aO48gA==\r\n"
    "m=audio 0 RTP/AVP 97\r\na=control:trackID=2\r\na=rtpmap:97 MPEG4-GENERIC/16000/1\r\n"
    "a=fmtp:97 streamtype=5; profile-level-id=15; mode=AAC-hbr; config=1408; SizeLength=13; IndexLength=3; "
    "IndexDeltaLength=3; Profile=1;\r\n"
    "m=audio 0 RTP/AVP 0\r\na=control:trackID=3\r\n";

// Field by field only where the decoded sessions prove nothing: attribute spelling and order as cameras
// vary them, static payload types, and the choice among several formats.
TEST(SdpParserTest, ReadsCameraVariants) {
  SdpDescription sdp;
  ASSERT_EQ(ParseSdp(kCameraSdp, &sdp), SdpStatus::kOk);
  ASSERT_EQ(sdp.media.size(), 3u);
  EXPECT_EQ(sdp.media[0].control, "trackID=1");
  EXPECT_EQ(sdp.media[0].parameterSets.size(), 2u);
  const AacParams& aac = sdp.media[1].aac;  // capitals and spaces in the fmtp
  EXPECT_EQ(aac.config, (std::vector<uint8_t>{0x14, 0x08}));
  EXPECT_TRUE(aac.sizeLength == 13 && aac.indexLength == 3 && aac.indexDeltaLength == 3);
  EXPECT_TRUE(sdp.media[1].unusableReason.empty());
  EXPECT_EQ(sdp.media[2].codec, Codec::kPcmu);  // static payload type without rtpmap: known, not carried
  EXPECT_FALSE(sdp.media[2].unusableReason.empty());

  ASSERT_EQ(
      ParseSdp("m=video 0 RTP/AVP 98\na=rtpmap:98 H265/90000\na=fmtp:98 sprop-pps=RAHAcvAbJA==; "
               "sprop-sps=QgEBAWAAAAMAAAMAAAMAAAMAXaAFAgPB; sprop-vps=QAEMAf//AWAAAAMAAAMA; sprop-max-don-diff=2\n",
               &sdp),
      SdpStatus::kOk);
  ASSERT_EQ(sdp.media.size(), 1u);
  EXPECT_EQ(sdp.media[0].maxDonDiff, 2);
  ASSERT_EQ(sdp.media[0].parameterSets.size(), 3u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ((sdp.media[0].parameterSets[i][0] >> 1) & 0x3F, 32 + i);  // VPS, SPS, PPS

  ASSERT_EQ(ParseSdp("m=video 0 RTP/AVP 26 99 96\r\na=rtpmap:99 VP8/90000\r\na=rtpmap:96 h264/90000\r\n", &sdp),
            SdpStatus::kOk);
  ASSERT_EQ(sdp.media.size(), 1u);
  EXPECT_EQ(sdp.media[0].payloadType, 96);  // the first format it can carry
}

TEST(SdpParserTest, MarksMediaItCannotCarry) {
  struct Case {
    const char* sdp;
    Codec codec;
  } const cases[] = {
      {"m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\na=fmtp:96 packetization-mode=2\n", Codec::kH264},
      {"m=audio 0 RTP/AVP 97\na=rtpmap:97 mpeg4-generic/8000\na=fmtp:97 sizelength=13\n", Codec::kAac},  // no config
      {"m=audio 0 RTP/AVP 97\na=rtpmap:97 mpeg4-generic/8000\na=fmtp:97 config=zz;sizelength=13\n", Codec::kAac},
      {"m=audio 0 RTP/AVP 97\na=rtpmap:97 mpeg4-generic/8000\na=fmtp:97 config=1408;sizelength=99\n", Codec::kAac},
      {"m=audio 0 RTP/AVP 96\na=rtpmap:96 H264/90000\n", Codec::kH264},  // video codec in an audio medium
      {"m=video 0 RTP/AVP 96\na=rtpmap:96 VP8/90000\n", Codec::kUnknown},
      {"m=application 0 RTP/AVP 107\na=rtpmap:107 vnd.onvif.metadata/90000\n", Codec::kUnknown},
  };
  for (const Case& c : cases) {
    SdpDescription out;
    ASSERT_EQ(ParseSdp(c.sdp, &out), SdpStatus::kOk) << c.sdp;
    ASSERT_EQ(out.media.size(), 1u) << c.sdp;
    EXPECT_EQ(out.media[0].codec, c.codec) << c.sdp;
    EXPECT_FALSE(out.media[0].unusableReason.empty()) << c.sdp;
  }
}

TEST(SdpParserTest, SurvivesHostileText) {
  SdpDescription out;
  EXPECT_EQ(ParseSdp(std::string(kMaxSdpBytes + 1, 'a'), &out), SdpStatus::kTooLarge);
  EXPECT_EQ(ParseSdp(" \r\n \n", &out), SdpStatus::kEmpty);

  // One line, no newline at all: the m= line is still read.
  ASSERT_EQ(ParseSdp("m=video 0 RTP/AVP 96", &out), SdpStatus::kOk);
  ASSERT_EQ(out.media.size(), 1u);

  // Unreadable base64 sets are skipped; the medium stays usable (sets come in-band too).
  ASSERT_EQ(ParseSdp("m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\n"
                     "a=fmtp:96 sprop-parameter-sets=Z0*AKe,,aO48gA==,A\n",
                     &out),
            SdpStatus::kOk);
  ASSERT_EQ(out.media.size(), 1u);
  EXPECT_TRUE(out.media[0].unusableReason.empty());
  EXPECT_EQ(out.media[0].parameterSets.size(), 1u);

  // Many media are capped; broken lines, numbers out of range and binary noise are ignored.
  std::string many;
  for (int i = 0; i < 100; ++i) many += "m=video 0 RTP/AVP 96\na=rtpmap:96 H264/99999999999999999999\n";
  many += std::string("a=rtpmap:\na=fmtp:\nm=\n=\n\x01\x02\xff\0zz", 20);
  ASSERT_EQ(ParseSdp(many, &out), SdpStatus::kOk);
  EXPECT_EQ(out.media.size(), 16u);
  EXPECT_FALSE(out.media[0].unusableReason.empty());  // the rtpmap with the absurd clock was refused
}

TEST(SdpParserTest, DecodesBase64StrictlyWithOptionalPadding) {
  EXPECT_EQ(DecodeBase64("aO48gA"), (std::vector<uint8_t>{0x68, 0xEE, 0x3C, 0x80}));  // padding optional
  EXPECT_EQ(DecodeBase64("+/+/"), (std::vector<uint8_t>{0xFB, 0xFF, 0xBF}));
  for (const char* bad : {"aO4 8gA==", "aO48g", "aO-8"}) EXPECT_FALSE(DecodeBase64(bad)) << bad;
}

}  // namespace
}  // namespace muxc
