// The pure part of the simulator's RTSP side that playback leans on: clock ranges.
#include <gtest/gtest.h>

#include "ClockRange.h"

namespace camsim {
namespace {

constexpr double kStart = 1718983045;  // 2024-06-21T15:17:25Z
constexpr double kStop = kStart + 120;

TEST(ClockRangeTest, ParsesWhatItFormatsAndRefusesTheRest) {
  auto closed = ParseClockRange("clock=20240621T151800Z-20240621T151810Z");
  ASSERT_TRUE(closed && closed->stop);
  EXPECT_DOUBLE_EQ(closed->start, kStart + 35);
  EXPECT_DOUBLE_EQ(*closed->stop, kStart + 45);
  auto open = ParseClockRange("clock=20240621T151800.25Z-");
  ASSERT_TRUE(open);
  EXPECT_DOUBLE_EQ(open->start, kStart + 35.25);
  EXPECT_FALSE(open->stop);
  EXPECT_DOUBLE_EQ(ParseClockRange("clock=20240229T000000Z-")->start, 1709164800);  // leap day
  EXPECT_EQ(FormatClockTime(kStart + 35.5), "20240621T151800.500Z");
  EXPECT_EQ(FormatClockTime(1709164800 - 1), "20240228T235959Z");
  EXPECT_EQ(FormatClockTime(kStart + 59.9996), "20240621T151825Z");  // rounds into the next second
  for (const char* bad :
       {"npt=0-10", "clock=", "clock=20240621T151800Z", "clock=20240621T151800-", "clock=2024062T151800Z-",
        "clock=20241321T151800Z-", "clock=20240621T251800Z-", "clock=20240621T151800.Z-", "clock=20240621T151800Zjunk-",
        "clock=-20240621T151800Z", "clock=20240621T151800Z-garbage"}) {
    EXPECT_FALSE(ParseClockRange(bad)) << bad;
  }
}

TEST(ClockRangeTest, WindowIsClampedToTheRecording) {
  struct Case {
    double start;
    std::optional<double> stop;
    double startOffset, stopOffset;  // -1: refused
  } cases[] = {
      {kStart + 35, kStart + 45, 35, 45}, {kStart - 10, kStop + 10, 0, 120},  {kStart + 100, std::nullopt, 100, 120},
      {kStop, std::nullopt, -1, -1},      {kStart - 20, kStart - 10, -1, -1}, {kStart + 50, kStart + 40, -1, -1},
  };
  for (const Case& c : cases) {
    auto window = WindowWithinRecording({c.start, c.stop}, static_cast<int64_t>(kStart), static_cast<int64_t>(kStop));
    EXPECT_EQ(window ? window->startOffset : -1, c.startOffset) << c.start - kStart;
    EXPECT_EQ(window ? window->stopOffset : -1, c.stopOffset) << c.start - kStart;
  }
  EXPECT_FALSE(
      WindowWithinRecording({kStart, std::nullopt}, static_cast<int64_t>(kStart), static_cast<int64_t>(kStart)));
}

}  // namespace
}  // namespace camsim
