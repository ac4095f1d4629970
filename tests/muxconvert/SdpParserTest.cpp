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

TEST(SdpParserTest, ReadsACameraDescription) {
  SdpDescription sdp;
  ASSERT_EQ(ParseSdp(kCameraSdp, &sdp), SdpStatus::kOk);
  ASSERT_EQ(sdp.media.size(), 3u);

  const SdpMedia& video = sdp.media[0];
  EXPECT_EQ(video.codec, Codec::kH264);
  EXPECT_EQ(video.payloadType, 96);
  EXPECT_EQ(video.clockRate, 90000u);
  EXPECT_EQ(video.packetizationMode, 1);
  EXPECT_EQ(video.control, "trackID=1");
  EXPECT_TRUE(video.unusableReason.empty());
  ASSERT_EQ(video.parameterSets.size(), 2u);
  EXPECT_EQ(video.parameterSets[0][0], 0x67);  // SPS
  EXPECT_EQ(video.parameterSets[1], (std::vector<uint8_t>{0x68, 0xEE, 0x3C, 0x80}));

  const SdpMedia& aac = sdp.media[1];
  EXPECT_EQ(aac.codec, Codec::kAac);
  EXPECT_EQ(aac.clockRate, 16000u);
  EXPECT_EQ(aac.channels, 1);
  EXPECT_EQ(aac.aac.config, (std::vector<uint8_t>{0x14, 0x08}));
  EXPECT_EQ(aac.aac.sizeLength, 13);
  EXPECT_EQ(aac.aac.indexLength, 3);
  EXPECT_EQ(aac.aac.indexDeltaLength, 3);
  EXPECT_TRUE(aac.unusableReason.empty());

  const SdpMedia& g711 = sdp.media[2];  // static payload type, no rtpmap
  EXPECT_EQ(g711.codec, Codec::kPcmu);
  EXPECT_EQ(g711.clockRate, 8000u);
  EXPECT_FALSE(g711.unusableReason.empty());  // recognised, not carried
}

TEST(SdpParserTest, ReadsH265ParameterSetsInDecodingOrder) {
  const std::string sdp =
      "m=video 0 RTP/AVP 98\na=rtpmap:98 H265/90000\n"
      "a=fmtp:98 sprop-pps=RAHAcvAbJA==; sprop-sps=QgEBAWAAAAMAAAMAAAMAAAMAXaAFAgPB; sprop-vps=QAEMAf//AWAAAAMAAAMA;"
      " sprop-max-don-diff=2\n";
  SdpDescription out;
  ASSERT_EQ(ParseSdp(sdp, &out), SdpStatus::kOk);
  ASSERT_EQ(out.media.size(), 1u);
  const SdpMedia& media = out.media[0];
  EXPECT_EQ(media.codec, Codec::kH265);
  EXPECT_EQ(media.maxDonDiff, 2);
  ASSERT_EQ(media.parameterSets.size(), 3u);
  EXPECT_EQ((media.parameterSets[0][0] >> 1) & 0x3F, 32);  // VPS first whatever the attribute order
  EXPECT_EQ((media.parameterSets[1][0] >> 1) & 0x3F, 33);
  EXPECT_EQ((media.parameterSets[2][0] >> 1) & 0x3F, 34);
}

TEST(SdpParserTest, PicksTheFirstSupportedFormatOfAMedium) {
  SdpDescription out;
  ASSERT_EQ(ParseSdp("m=video 0 RTP/AVP 26 99 96\r\na=rtpmap:99 VP8/90000\r\na=rtpmap:96 h264/90000\r\n", &out),
            SdpStatus::kOk);
  ASSERT_EQ(out.media.size(), 1u);
  EXPECT_EQ(out.media[0].payloadType, 96);
  EXPECT_EQ(out.media[0].codec, Codec::kH264);
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
  EXPECT_EQ(DecodeBase64("aO48gA=="), (std::vector<uint8_t>{0x68, 0xEE, 0x3C, 0x80}));
  EXPECT_EQ(DecodeBase64("aO48gA"), (std::vector<uint8_t>{0x68, 0xEE, 0x3C, 0x80}));
  EXPECT_EQ(DecodeBase64("+/+/"), (std::vector<uint8_t>{0xFB, 0xFF, 0xBF}));
  EXPECT_EQ(DecodeBase64(""), std::vector<uint8_t>());
  EXPECT_FALSE(DecodeBase64("aO4 8gA=="));
  EXPECT_FALSE(DecodeBase64("aO48g"));  // a lone 6-bit group cannot be a byte
  EXPECT_FALSE(DecodeBase64("aO-8"));
}

}  // namespace
}  // namespace muxc
