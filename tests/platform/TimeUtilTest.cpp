#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <vector>

#include "TestEnvironment.h"
#include "TimeUtil.h"

namespace {

namespace TimeUtil = Tarn::Base::TimeUtil;

TEST(TimeUtil, IsoTextsWithZonesAndFractions) {
  netcam_test::SetTimeZone("EST5EDT");  // results must not depend on the process time zone
  const struct {
    const char* text;
    int64_t expected;
  } cases[] = {
      {"2024-03-01T00:30:00+08:00", 1709224200},  // back across a leap day
      {"2024-03-01T00:30:00+0800", 1709224200},    {"2024-03-01T00:30:00+08", 1709224200},
      {"2024-02-29T16:30:00Z", 1709224200},        {"2024-02-29T16:30:00", 1709224200},
      {"2024-03-05T08:00:00-05:30", 1709645400},   {"2024-03-05T08:00:00-03:30", 1709638200},
      {"2024-06-21T15:17:25.123456Z", 1718983045},
      {"1969-12-31T23:59:59Z", -1},  // a real time, not a failure
      {"1970-01-01T00:00:00+08:00", -28800},
  };
  for (const auto& c : cases) EXPECT_EQ(TimeUtil::ISODatetime2TimeT(c.text), c.expected) << c.text;

  const char* junk[] = {"",
                        "2024-03-01",
                        "2024-03-01T00:30",
                        "2024-03-01T00:30:00+08:",
                        "2024-03-01T00:30:00+8:00",
                        "2024-03-01T00:30:00+08:00junk",
                        "2024-03-01T00:30:00.Z",
                        "2024-03-01 00:30:00Z",
                        "2024-02-30T00:00:00Z",
                        "2023-02-29T00:00:00Z",
                        "2024-13-01T00:00:00Z",
                        "2024-03-01T24:00:00Z",
                        "2024-03-01T00:30:00+24:00",
                        " 2024-03-01T00:30:00Z"};
  for (const char* text : junk) EXPECT_EQ(TimeUtil::ISODatetime2TimeT(text), TimeUtil::kInvalidTimeT) << text;
  EXPECT_EQ(TimeUtil::ISODatetime2TimeT(std::string(1 << 20, '9')), TimeUtil::kInvalidTimeT);
  EXPECT_EQ(TimeUtil::ISODatetime2TimeT(std::string("2024-03-01T00:30:00\0Z", 21)), TimeUtil::kInvalidTimeT);
  const std::string full = "2024-06-21T15:17:25.123-03:30";
  for (size_t length = 0; length < full.size(); ++length) {
    const int64_t result = TimeUtil::ISODatetime2TimeT(full.substr(0, length));
    EXPECT_TRUE(result == TimeUtil::kInvalidTimeT || result > 1718900000) << full.substr(0, length);
  }
}

TEST(TimeUtil, CameraStampsAndBrokenDownTimes) {
  for (const char* text : {"2024-03-05 08:00:00.000Z", "2024-03-05 08:00:00", "2024-03-05T08:00:00Z"}) {
    EXPECT_EQ(TimeUtil::StrUTCTimeStamp2TimeT(text), 1709625600) << text;
  }
  for (const char* text : {"", "2024-03-05", "2024-03-05 08:00:00+01:00", "2024-03-32 08:00:00"}) {
    EXPECT_EQ(TimeUtil::StrUTCTimeStamp2TimeT(text), -1) << text;
  }

  NET_DEV_TIME out{};
  ASSERT_TRUE(TimeUtil::TimeT2UTCDVRTime(1709224200, &out));
  EXPECT_EQ((std::vector<uint32_t>{out.year, out.month, out.day, out.hour, out.minute, out.second}),
            (std::vector<uint32_t>{2024, 2, 29, 16, 30, 0}));
  NET_DEV_TIME untouched{1, 2, 3, 4, 5, 6};
  EXPECT_FALSE(TimeUtil::TimeT2UTCDVRTime(std::numeric_limits<int64_t>::max(), &untouched));
  EXPECT_EQ(untouched.year, 1u);
  EXPECT_FALSE(TimeUtil::TimeT2UTCDVRTime(0, nullptr));

  EXPECT_EQ(TimeUtil::TimeT2StrUTCDatetime(1709224200), "2024-02-29T16:30:00Z");
  EXPECT_EQ(TimeUtil::TimeT2StrUTCDatetime(253402300800), "") << "year 10000";
  for (int64_t seconds : {int64_t{-86400}, int64_t{0}, int64_t{951782400}, int64_t{4102444799}}) {
    EXPECT_EQ(TimeUtil::ISODatetime2TimeT(TimeUtil::TimeT2StrUTCDatetime(seconds)), seconds);
  }
}

}  // namespace
