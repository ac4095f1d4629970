#include <gtest/gtest.h>

#include "MediaQuery.h"

namespace camsim {
namespace {

TEST(MediaQueryTest, LiveQueries) {
  auto plain = ParseMediaQuery("");
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->kind, MediaQuery::Kind::Live);
  EXPECT_EQ(plain->codec, "h264");
  EXPECT_EQ(plain->camera, 1);

  auto h265 = ParseMediaQuery("videocodec=H265&camera=2&resolution=1920x1080&");
  ASSERT_TRUE(h265);
  EXPECT_EQ(h265->codec, "h265");
  EXPECT_EQ(h265->camera, 2);
}

TEST(MediaQueryTest, RecordingQueriesDecodeTheId) {
  auto recording = ParseMediaQuery("recordingid=20240621_151725_95E7%5FB8A44F9D7D55");
  ASSERT_TRUE(recording);
  EXPECT_EQ(recording->kind, MediaQuery::Kind::Recording);
  EXPECT_EQ(recording->recordingId, "20240621_151725_95E7_B8A44F9D7D55");
}

TEST(MediaQueryTest, RefusesWhatNoCameraServes) {
  std::string error;
  for (const char* bad :
       {"videocodec=mjpeg", "camera=0", "camera=x", "camera=", "camera=99", "recordingid=", "recordingid"}) {
    error.clear();
    EXPECT_FALSE(ParseMediaQuery(bad, &error)) << bad;
    EXPECT_FALSE(error.empty()) << bad;
  }
  // A stray percent sign is kept as it is rather than misread.
  EXPECT_EQ(ParseMediaQuery("recordingid=a%2")->recordingId, "a%2");
}

}  // namespace
}  // namespace camsim
