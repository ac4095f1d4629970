// End to end: real H.264/H.265/AAC from ffmpeg, packetized as a camera would,
// repackaged, written out as the platform does, and read back by ffprobe.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "MediaTools.h"
#include "MuxConvert.h"
#include "RtpTestPacketizer.h"

namespace netcam_test {
namespace {

constexpr int kFrames = 50;  // two GOPs of 25 at 25 fps
constexpr uint32_t kTicksPerFrame = 3600;

// Standard output of a command that must succeed.
std::string Run(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return output;
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) output.append(buffer, n);
  const int status = pclose(pipe);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
  return output;
}

// Decodes every frame of the first stream of `mediaType` ("v" or "a"): "codec,frames\n", with any decoder
// or demuxer error in front.
std::string Probe(const Bytes& stream, const char* mediaType) {
  const std::string file = ::testing::TempDir() + "muxconvert-" + std::to_string(getpid()) + ".mpg";
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(stream.data()), stream.size());
  const std::string output = Run(std::string("ffprobe -v error -count_frames -select_streams ") + mediaType +
                                 ":0 -show_entries stream=codec_name,nb_read_frames -of csv=p=0 '" + file + "' 2>&1");
  std::remove(file.c_str());
  return output;
}

std::vector<VideoAccessUnit> EncodeVideo(VideoCodec codec) {
  const std::string encoder =
      codec == VideoCodec::kH265
          ? "-c:v libx265 -x265-params bframes=0:keyint=25:min-keyint=25:scenecut=0:log-level=error -f hevc"
          : "-c:v libx264 -bf 0 -g 25 -sc_threshold 0 -f h264";
  const std::string stream = Run("ffmpeg -nostdin -v error -f lavfi -i testsrc=size=320x240:rate=25 -frames:v " +
                                 std::to_string(kFrames) + " -pix_fmt yuv420p " + encoder + " -");
  return GroupAccessUnits(codec, SplitAnnexB(Bytes(stream.begin(), stream.end())));
}

// Raw AAC-LC frames of a 48 kHz mono tone (AudioSpecificConfig 0x1188), ADTS headers removed.
std::vector<Bytes> EncodeAudio() {
  const std::string adts =
      Run("ffmpeg -nostdin -v error -f lavfi -i sine=frequency=440:sample_rate=48000 -t 2 -ac 1 -c:a aac -b:a 64k -f "
          "adts -");
  std::vector<Bytes> frames;
  for (size_t at = 0, length = 0; at + 7 <= adts.size(); at += length) {
    const auto* h = reinterpret_cast<const uint8_t*>(adts.data()) + at;
    length = static_cast<size_t>(h[3] & 3) << 11 | static_cast<size_t>(h[4]) << 3 | h[5] >> 5;
    if (h[0] != 0xFF || length <= 7 || at + length > adts.size()) break;
    frames.emplace_back(h + 7, h + length);
  }
  return frames;
}

// The first unit's parameter sets in stream order (VPS, SPS, PPS); with `strip`, removed from every unit.
std::vector<Bytes> ParameterSets(VideoCodec codec, std::vector<VideoAccessUnit>* units, bool strip) {
  auto isSet = [codec](const Bytes& nal) {
    const int type = codec == VideoCodec::kH265 ? (nal[0] >> 1) & 0x3F : nal[0] & 0x1F;
    return codec == VideoCodec::kH265 ? type >= 32 && type <= 34 : type == 7 || type == 8;
  };
  std::vector<Bytes> sets;
  std::copy_if(units->front().nalUnits.begin(), units->front().nalUnits.end(), std::back_inserter(sets), isSet);
  for (VideoAccessUnit& unit : *units) {
    if (strip) std::erase_if(unit.nalUnits, isSet);
  }
  return sets;
}

enum CaseFlags : unsigned {
  kAggregate = 1,         // STAP-A / AP for runs of small NAL units
  kSetsOnlyInSdp = 2,     // stream without SPS/PPS: the repackager must insert them
  kSetsOnlyInStream = 4,  // SDP without sprop-parameter-sets
  kDonFields = 8,         // H.265 DONL/DOND fields
};

struct VideoCase {
  const char* name;
  VideoCodec codec;
  size_t maxPayload;
  unsigned flags;
};

class VideoDecodeTest : public ::testing::TestWithParam<VideoCase> {};

TEST_P(VideoDecodeTest, OutputDecodesCleanlyWithEveryFrame) {
  const VideoCase& c = GetParam();
  std::vector<VideoAccessUnit> units = EncodeVideo(c.codec);
  ASSERT_EQ(units.size(), static_cast<size_t>(kFrames));
  ASSERT_TRUE(units.front().keyFrame);
  const std::vector<Bytes> sets = ParameterSets(c.codec, &units, c.flags & kSetsOnlyInSdp);
  ASSERT_EQ(sets.size(), c.codec == VideoCodec::kH265 ? 3u : 2u);

  const std::string sdp =
      VideoSdp(c.codec, c.flags & kSetsOnlyInStream ? std::vector<Bytes>() : sets, c.flags & kDonFields);
  OutputCollector collector;
  MUXC_HANDLE handle = StartSession(sdp, &collector);
  ASSERT_NE(handle, nullptr);
  RtpStreamOptions options;
  options.maxPayload = c.maxPayload;
  options.aggregate = c.flags & kAggregate;
  options.donFields = c.flags & kDonFields;
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
  EXPECT_EQ(Probe(collector.stream, "v"),
            std::string(c.codec == VideoCodec::kH265 ? "hevc," : "h264,") + std::to_string(kFrames) + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Packetizations, VideoDecodeTest,
    ::testing::Values(VideoCase{"H264SingleAndFuA", VideoCodec::kH264, 1400, 0},
                      VideoCase{"H264SmallFragments", VideoCodec::kH264, 200, kAggregate},
                      VideoCase{"H264SetsOnlyInSdp", VideoCodec::kH264, 1400, kAggregate | kSetsOnlyInSdp},
                      VideoCase{"H264SetsOnlyInStream", VideoCodec::kH264, 1400, kAggregate | kSetsOnlyInStream},
                      VideoCase{"H265ApAndFu", VideoCodec::kH265, 1400, kAggregate},
                      VideoCase{"H265SetsOnlyInSdp", VideoCodec::kH265, 600, kSetsOnlyInSdp},
                      VideoCase{"H265DonFields", VideoCodec::kH265, 1000, kAggregate | kDonFields}),
    [](const ::testing::TestParamInfo<VideoCase>& param) { return std::string(param.param.name); });

TEST(AudioVideoDecodeTest, H264WithAacDecodesAndJoinsAtTheNextKeyFrame) {
  std::vector<VideoAccessUnit> units = EncodeVideo(VideoCodec::kH264);
  const std::vector<Bytes> audio = EncodeAudio();
  ASSERT_EQ(units.size(), static_cast<size_t>(kFrames));
  ASSERT_GT(audio.size(), 80u);

  // Interleave by send time as a camera would; join in the middle of the first GOP.
  std::vector<std::pair<double, Bytes>> packets;  // send time, packet
  VideoRtpPacketizer video(VideoCodec::kH264, RtpStreamOptions());
  for (size_t i = 0; i < units.size(); ++i) {
    for (Bytes& p : video.Packetize(units[i], static_cast<uint32_t>(i) * kTicksPerFrame)) {
      packets.push_back({i / 25.0, std::move(p)});
    }
  }
  // Units go two to a packet, except every third second, where each goes alone in fragments; the first
  // fragment of one unit there is lost, so that unit goes and the ones after it come through.
  AacRtpPacketizer aac({97, 0x55AA55AA, 1, 12345, /*maxPayload=*/100, false});
  int audioUnitsAfterJoin = -1;  // the lost one
  const double joinSeconds = 10 / 25.0, keyFrameSeconds = 25 / 25.0;
  for (size_t i = 0; i < audio.size(); i += 2) {
    const double seconds = i * 1024.0 / 48000;
    const bool fragmented = static_cast<int>(seconds) % 3 == 1;
    for (size_t k = i; k < std::min(i + 2, audio.size()); k += fragmented ? 1 : 2) {
      const std::vector<Bytes> group(
          audio.begin() + static_cast<long>(k),
          audio.begin() + static_cast<long>(std::min(k + (fragmented ? 1 : 2), audio.size())));
      std::vector<Bytes> sent = aac.Packetize(group, static_cast<uint32_t>(k * 1024));
      if (k == 60) sent.erase(sent.begin());
      if (seconds >= keyFrameSeconds) audioUnitsAfterJoin += static_cast<int>(group.size());
      for (Bytes& p : sent) packets.push_back({seconds, std::move(p)});
    }
  }
  std::stable_sort(packets.begin(), packets.end(), [](const auto& a, const auto& b) { return a.first < b.first; });

  const std::string sdp = VideoSdp(VideoCodec::kH264, ParameterSets(VideoCodec::kH264, &units, false)) +
                          "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/48000/1\r\na=fmtp:97 streamtype=5; "
                          "profile-level-id=15; mode=AAC-hbr; config=1188; sizeLength=13; indexLength=3; "
                          "indexDeltaLength=3\r\na=control:trackID=2\r\n";
  OutputCollector collector;
  MUXC_HANDLE handle = StartSession(sdp, &collector);
  ASSERT_NE(handle, nullptr);
  for (const auto& [seconds, packet] : packets) {
    if (seconds < joinSeconds) continue;
    ASSERT_EQ(MUXC_InputData(handle, 0, packet.data(), static_cast<int32_t>(packet.size())), 0);
  }
  MUXC_Release(handle);  // without Stop: Release alone must be enough

  EXPECT_EQ(Probe(collector.stream, "v"), "h264," + std::to_string(kFrames - 25) + "\n");  // from the 2nd GOP
  // Audio sent together with the key frame may go either side of it; the rest all arrives.
  const std::string audioProbe = Probe(collector.stream, "a");
  const int audioFrames = audioProbe.starts_with("aac,") ? std::atoi(audioProbe.c_str() + 4) : -1;
  EXPECT_EQ(audioProbe, "aac," + std::to_string(audioFrames) + "\n");
  EXPECT_TRUE(audioFrames >= audioUnitsAfterJoin - 2 && audioFrames <= audioUnitsAfterJoin) << audioProbe;
}

}  // namespace
}  // namespace netcam_test
