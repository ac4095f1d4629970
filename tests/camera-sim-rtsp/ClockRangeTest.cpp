#include <gtest/gtest.h>

#include "ClockRange.h"

namespace camsim {
namespace {

constexpr int64_t kRecordingStart = 1718983045;  // 2024-06-21T15:17:25Z

TEST(ClockRangeTest, ParsesClosedOpenAndFractionalRanges) {
  auto closed = ParseClockRange("clock=20240621T151800Z-20240621T151810Z");
  ASSERT_TRUE(closed);
  EXPECT_DOUBLE_EQ(closed->start, kRecordingStart + 35);
  ASSERT_TRUE(closed->stop);
  EXPECT_DOUBLE_EQ(*closed->stop, kRecordingStart + 45);

  auto open = ParseClockRange("clock=20240621T151800.25Z-");
  ASSERT_TRUE(open);
  EXPECT_DOUBLE_EQ(open->start, kRecordingStart + 35.25);
  EXPECT_FALSE(open->stop);

  // Leap-year day and the year boundary.
  EXPECT_DOUBLE_EQ(ParseClockRange("clock=20240229T000000Z-")->start, 1709164800);
  EXPECT_DOUBLE_EQ(ParseClockRange("clock=19700101T000000Z-")->start, 0);
}

TEST(ClockRangeTest, RejectsMalformedValues) {
  for (const char* bad :
       {"npt=0-10", "clock=", "clock=20240621T151800Z", "clock=20240621T151800-", "clock=2024062T151800Z-",
        "clock=20241321T151800Z-", "clock=20240621T251800Z-", "clock=20240621T151800.Z-", "clock=20240621T151800Zjunk-",
        "clock=-20240621T151800Z", "clock=20240621T151800Z-garbage"}) {
    EXPECT_FALSE(ParseClockRange(bad)) << bad;
  }
}

TEST(ClockRangeTest, FormatsWhatItParses) {
  EXPECT_EQ(FormatClockTime(kRecordingStart + 35), "20240621T151800Z");
  EXPECT_EQ(FormatClockTime(kRecordingStart + 35.5), "20240621T151800.500Z");
  EXPECT_EQ(FormatClockTime(1709164800 - 1), "20240228T235959Z");
  EXPECT_EQ(FormatClockTime(kRecordingStart + 59.9996), "20240621T151825Z");  // rounds into the next second
}

TEST(ClockRangeTest, WindowIsClampedToTheRecording) {
  const int64_t stop = kRecordingStart + 120;
  auto inside = WindowWithinRecording({kRecordingStart + 35.0, kRecordingStart + 45.0}, kRecordingStart, stop);
  ASSERT_TRUE(inside);
  EXPECT_DOUBLE_EQ(inside->startOffset, 35);
  EXPECT_DOUBLE_EQ(inside->stopOffset, 45);

  auto overlapping = WindowWithinRecording({kRecordingStart - 10.0, stop + 10.0}, kRecordingStart, stop);
  ASSERT_TRUE(overlapping);
  EXPECT_DOUBLE_EQ(overlapping->startOffset, 0);
  EXPECT_DOUBLE_EQ(overlapping->stopOffset, 120);

  auto open = WindowWithinRecording({kRecordingStart + 100.0, std::nullopt}, kRecordingStart, stop);
  ASSERT_TRUE(open);
  EXPECT_DOUBLE_EQ(open->stopOffset, 120);

  EXPECT_FALSE(WindowWithinRecording({stop + 0.0, std::nullopt}, kRecordingStart, stop));
  EXPECT_FALSE(WindowWithinRecording({kRecordingStart - 20.0, kRecordingStart - 10.0}, kRecordingStart, stop));
  EXPECT_FALSE(WindowWithinRecording({kRecordingStart + 50.0, kRecordingStart + 40.0}, kRecordingStart, stop));
  EXPECT_FALSE(WindowWithinRecording({kRecordingStart + 0.0, std::nullopt}, kRecordingStart, kRecordingStart));
}

}  // namespace
}  // namespace camsim
