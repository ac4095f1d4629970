#include <gtest/gtest.h>

#include "MediaQuery.h"

namespace camsim {
namespace {

// Defaults and case as the plug-in writes its URLs; live streams themselves are played in RtspServerTest.
TEST(MediaQueryTest, ReadsWhatTheCamerasServeAndRefusesTheRest) {
  auto h265 = ParseMediaQuery("videocodec=H265&camera=2&resolution=1920x1080&");
  ASSERT_TRUE(h265);
  EXPECT_EQ(h265->codec + std::to_string(h265->camera), "h2652");
  EXPECT_EQ(ParseMediaQuery("")->codec, "h264");
  auto recording = ParseMediaQuery("recordingid=20240621_151725_95E7%5FB8A44F9D7D55");
  ASSERT_TRUE(recording);
  EXPECT_EQ(recording->kind, MediaQuery::Kind::Recording);
  EXPECT_EQ(recording->recordingId, "20240621_151725_95E7_B8A44F9D7D55");
  EXPECT_EQ(ParseMediaQuery("recordingid=a%2")->recordingId, "a%2");  // a stray percent sign is kept as it is
  for (const char* bad : {"videocodec=mjpeg", "camera=0", "camera=x", "camera=99", "recordingid="}) {
    std::string error;
    EXPECT_FALSE(ParseMediaQuery(bad, &error)) << bad;
    EXPECT_FALSE(error.empty()) << bad;
  }
}

}  // namespace
}  // namespace camsim
