// End to end: real H.264/H.265/AAC from ffmpeg, packetized as a camera would,
// repackaged, written out as the platform does, and read back by ffmpeg.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "MediaTools.h"
#include "MuxConvert.h"
#include "RtpTestPacketizer.h"

namespace netcam_test {
namespace {

constexpr int kFrames = 50;  // two GOPs of 25 at 25 fps
constexpr uint32_t kTicksPerFrame = 3600;

Bytes EncodeVideo(const TempDir& dir, VideoCodec codec) {
  const std::string out = dir.File(codec == VideoCodec::kH265 ? "in.h265" : "in.h264");
  const std::string encoder =
      codec == VideoCodec::kH265
          ? "-c:v libx265 -x265-params bframes=0:keyint=25:min-keyint=25:scenecut=0:log-level=error -f hevc"
          : "-c:v libx264 -bf 0 -g 25 -sc_threshold 0 -f h264";
  CommandResult run = RunCommand("ffmpeg -nostdin -v error -f lavfi -i testsrc=size=320x240:rate=25 -frames:v " +
                                 std::to_string(kFrames) + " -pix_fmt yuv420p " + encoder + " -y '" + out + "'");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  return ReadFileBytes(out);
}

AdtsStream EncodeAudio(const TempDir& dir) {
  const std::string out = dir.File("in.aac");
  CommandResult run = RunCommand(
      "ffmpeg -nostdin -v error -f lavfi -i sine=frequency=440:sample_rate=48000 -t 2 "
      "-c:a aac -b:a 64k -f adts -y '" +
      out + "'");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  return ParseAdts(ReadFileBytes(out));
}

bool IsParameterSet(VideoCodec codec, const Bytes& nal) {
  const int type = codec == VideoCodec::kH265 ? (nal[0] >> 1) & 0x3F : nal[0] & 0x1F;
  return codec == VideoCodec::kH265 ? type >= 32 && type <= 34 : type == 7 || type == 8;
}

// The first unit's parameter sets (VPS/SPS/PPS order as in the stream).
std::vector<Bytes> ParameterSetsOf(VideoCodec codec, const std::vector<VideoAccessUnit>& units) {
  std::vector<Bytes> sets;
  for (const Bytes& nal : units.front().nalUnits) {
    if (IsParameterSet(codec, nal)) sets.push_back(nal);
  }
  return sets;
}

void StripParameterSets(VideoCodec codec, std::vector<VideoAccessUnit>* units) {
  for (VideoAccessUnit& unit : *units) {
    auto& nals = unit.nalUnits;
    nals.erase(std::remove_if(nals.begin(), nals.end(), [&](const Bytes& n) { return IsParameterSet(codec, n); }),
               nals.end());
  }
}

std::string VideoSdp(VideoCodec codec, const std::vector<Bytes>& sets) {
  if (codec == VideoCodec::kH265) return SdpSessionHeader() + H265SdpMedia(96, sets[0], sets[1], sets[2]);
  return SdpSessionHeader() + H264SdpMedia(96, sets);
}

struct VideoCase {
  const char* name;
  VideoCodec codec;
  size_t maxPayload;
  bool aggregate;
  bool parameterSetsOnlyInSdp;  // stream without SPS/PPS: the repackager must insert them
  bool sdpWithoutParameterSets;
};

void PrintTo(const VideoCase& c, std::ostream* os) { *os << c.name; }

class VideoDecodeTest : public ::testing::TestWithParam<VideoCase> {};

TEST_P(VideoDecodeTest, OutputDecodesCleanlyWithEveryFrame) {
  const VideoCase& c = GetParam();
  TempDir dir;
  std::vector<VideoAccessUnit> units = GroupAccessUnits(c.codec, SplitAnnexB(EncodeVideo(dir, c.codec)));
  ASSERT_EQ(units.size(), static_cast<size_t>(kFrames));
  ASSERT_TRUE(units.front().keyFrame);
  const std::vector<Bytes> sets = ParameterSetsOf(c.codec, units);
  ASSERT_EQ(sets.size(), c.codec == VideoCodec::kH265 ? 3u : 2u);
  if (c.parameterSetsOnlyInSdp) StripParameterSets(c.codec, &units);

  OutputCollector collector;
  MUXC_HANDLE handle =
      StartSession(VideoSdp(c.codec, c.sdpWithoutParameterSets ? std::vector<Bytes>() : sets), &collector);
  ASSERT_NE(handle, nullptr);
  RtpStreamOptions options;
  options.maxPayload = c.maxPayload;
  options.aggregate = c.aggregate;
  VideoRtpPacketizer packetizer(c.codec, options);
  for (size_t i = 0; i < units.size(); ++i) {
    for (const Bytes& packet : packetizer.Packetize(units[i], static_cast<uint32_t>(i) * kTicksPerFrame)) {
      ASSERT_EQ(MUXC_InputData(handle, 0, packet.data(), static_cast<int32_t>(packet.size())), 0);
    }
  }
  EXPECT_EQ(MUXC_Stop(handle), 0);
  EXPECT_EQ(MUXC_Release(handle), 0);
  EXPECT_EQ(collector.headerUnits, 1);
  EXPECT_EQ(collector.payloadUnits, kFrames);

  const std::string file = dir.File("out.mpg");
  WriteFileBytes(file, collector.stream);
  EXPECT_EQ(DecodeErrors(file), "");
  ProbeResult probe = Probe(file, "v");
  EXPECT_EQ(probe.codec, c.codec == VideoCodec::kH265 ? "hevc" : "h264");
  EXPECT_EQ(probe.frames, kFrames);
}

INSTANTIATE_TEST_SUITE_P(
    Packetizations, VideoDecodeTest,
    ::testing::Values(VideoCase{"H264SingleAndFuA", VideoCodec::kH264, 1400, false, false, false},
                      VideoCase{"H264StapA", VideoCodec::kH264, 1400, true, false, false},
                      VideoCase{"H264SmallFragments", VideoCodec::kH264, 200, true, false, false},
                      VideoCase{"H264SetsOnlyInSdp", VideoCodec::kH264, 1400, true, true, false},
                      VideoCase{"H264SetsOnlyInStream", VideoCodec::kH264, 1400, true, false, true},
                      VideoCase{"H265ApAndFu", VideoCodec::kH265, 1400, true, false, false},
                      VideoCase{"H265SetsOnlyInSdp", VideoCodec::kH265, 600, false, true, false}),
    [](const ::testing::TestParamInfo<VideoCase>& param) { return std::string(param.param.name); });

struct TimedPacket {
  double seconds;
  Bytes packet;
};

TEST(AudioVideoDecodeTest, H264WithAacDecodesAndJoinsAtTheNextKeyFrame) {
  TempDir dir;
  std::vector<VideoAccessUnit> units =
      GroupAccessUnits(VideoCodec::kH264, SplitAnnexB(EncodeVideo(dir, VideoCodec::kH264)));
  AdtsStream audio = EncodeAudio(dir);
  ASSERT_EQ(units.size(), static_cast<size_t>(kFrames));
  ASSERT_GT(audio.accessUnits.size(), 80u);

  // Interleave by send time as a camera would; join in the middle of the first GOP.
  std::vector<TimedPacket> packets;
  VideoRtpPacketizer video(VideoCodec::kH264, RtpStreamOptions());
  for (size_t i = 0; i < units.size(); ++i) {
    for (Bytes& p : video.Packetize(units[i], static_cast<uint32_t>(i) * kTicksPerFrame)) {
      packets.push_back({i / 25.0, std::move(p)});
    }
  }
  RtpStreamOptions audioOptions;
  audioOptions.payloadType = 97;
  audioOptions.ssrc = 0x55AA55AA;
  audioOptions.firstTimestamp = 12345;
  AacRtpPacketizer aac(audioOptions);
  const size_t perPacket = 2;
  size_t audioUnitsAfterJoin = 0;
  const double joinSeconds = 10 / 25.0, keyFrameSeconds = 25 / 25.0;
  for (size_t i = 0; i < audio.accessUnits.size(); i += perPacket) {
    std::vector<Bytes> group(
        audio.accessUnits.begin() + static_cast<long>(i),
        audio.accessUnits.begin() + static_cast<long>(std::min(i + perPacket, audio.accessUnits.size())));
    const double seconds = i * 1024.0 / audio.sampleRate;
    if (seconds >= keyFrameSeconds) audioUnitsAfterJoin += group.size();
    for (Bytes& p : aac.Packetize(group, perPacket, static_cast<uint32_t>(i * 1024)))
      packets.push_back({seconds, std::move(p)});
  }
  std::stable_sort(packets.begin(), packets.end(),
                   [](const TimedPacket& a, const TimedPacket& b) { return a.seconds < b.seconds; });

  const std::string sdp = SdpSessionHeader() + H264SdpMedia(96, ParameterSetsOf(VideoCodec::kH264, units)) +
                          AacSdpMedia(97, audio.sampleRate, audio.channels, audio.audioSpecificConfig);
  OutputCollector collector;
  MUXC_HANDLE handle = StartSession(sdp, &collector);
  ASSERT_NE(handle, nullptr);
  for (const TimedPacket& p : packets) {
    if (p.seconds < joinSeconds) continue;
    ASSERT_EQ(MUXC_InputData(handle, 0, p.packet.data(), static_cast<int32_t>(p.packet.size())), 0);
  }
  MUXC_Release(handle);  // without Stop: Release alone must be enough

  const std::string file = dir.File("av.mpg");
  WriteFileBytes(file, collector.stream);
  EXPECT_EQ(DecodeErrors(file), "");
  ProbeResult videoProbe = Probe(file, "v");
  EXPECT_EQ(videoProbe.codec, "h264");
  EXPECT_EQ(videoProbe.frames, kFrames - 25);  // from the second key frame on
  ProbeResult audioProbe = Probe(file, "a");
  EXPECT_EQ(audioProbe.codec, "aac");
  // Audio sent together with the key frame may go either side of it; the rest all arrives.
  EXPECT_GE(audioProbe.frames, static_cast<int>(audioUnitsAfterJoin) - 2);
  EXPECT_LE(audioProbe.frames, static_cast<int>(audioUnitsAfterJoin));
}

TEST(GapDecodeTest, LostFragmentDropsOnlyItsFrame) {
  TempDir dir;
  std::vector<VideoAccessUnit> units =
      GroupAccessUnits(VideoCodec::kH264, SplitAnnexB(EncodeVideo(dir, VideoCodec::kH264)));
  OutputCollector collector;
  MUXC_HANDLE handle = StartSession(VideoSdp(VideoCodec::kH264, ParameterSetsOf(VideoCodec::kH264, units)), &collector);
  ASSERT_NE(handle, nullptr);
  RtpStreamOptions options;
  options.maxPayload = 60;  // several fragments even for the small pictures
  VideoRtpPacketizer packetizer(VideoCodec::kH264, options);
  const size_t lostFrame = 24;  // the last picture before the second key frame
  for (size_t i = 0; i < units.size(); ++i) {
    std::vector<Bytes> packets = packetizer.Packetize(units[i], static_cast<uint32_t>(i) * kTicksPerFrame);
    ASSERT_GE(packets.size(), 2u);
    for (size_t k = 0; k < packets.size(); ++k) {
      if (i == lostFrame && k == 1) continue;
      MUXC_InputData(handle, 0, packets[k].data(), static_cast<int32_t>(packets[k].size()));
    }
  }
  MUXC_Release(handle);
  EXPECT_EQ(collector.payloadUnits, kFrames - 1);
  const std::string file = dir.File("gap.mpg");
  WriteFileBytes(file, collector.stream);
  EXPECT_EQ(DecodeErrors(file), "");  // nothing referenced the dropped picture
  EXPECT_EQ(Probe(file, "v").frames, kFrames - 1);
}

}  // namespace
}  // namespace netcam_test
