#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#endif

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include "TestEnvironment.h"
#include "kor.h"

namespace {

TEST(KorRuntime, ClockThreadIdAndLastError) {
  EXPECT_EQ(KOR_InitEx(), KOR_OK);
  EXPECT_EQ(KOR_InitEx(), KOR_OK);
  EXPECT_EQ(KOR_FiniEx(), KOR_OK);
  EXPECT_EQ(KOR_FiniEx(), KOR_OK);

  const int64_t before = static_cast<int64_t>(std::time(nullptr));
  const int64_t nowSeconds = KOR_TimeNow() / 1000000;  // the bounds only catch a unit mistake
  EXPECT_TRUE(nowSeconds >= before - 1 && nowSeconds <= before + 60) << nowSeconds;

#ifdef _WIN32
  SetLastError(ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(KOR_GetSystemLastError(), ERROR_FILE_NOT_FOUND);
#else
  errno = ENOENT;
  EXPECT_EQ(KOR_GetSystemLastError(), ENOENT);
#endif
  const uint32_t mine = KOR_GetCurrentThreadId();
  uint32_t other = mine;
  std::thread([&other] { other = KOR_GetCurrentThreadId(); }).join();
  EXPECT_EQ(KOR_GetCurrentThreadId(), mine);
  EXPECT_NE(other, mine);
}

TEST(KorRuntime, ExpTimeFillsEveryFieldInLocalTime) {
  netcam_test::SetTimeZone("CST-8");  // eight hours east, no daylight saving; this process only
  KOR_ExpTime t;
  std::memset(&t, 0x7f, sizeof t);
  ASSERT_EQ(KOR_ExpTimeFromTimeLocal(&t, 1709224200LL * 1000000 + 250000), KOR_OK);  // 2024-02-29 16:30:00.25Z
  const int32_t expected[11] = {250000, 0, 30, 0, 1, 2, 124, 5, 60, 0, 8 * 3600};
  const int32_t actual[11] = {t.tm_usec, t.tm_sec,  t.tm_min,  t.tm_hour,  t.tm_mday,  t.tm_mon,
                              t.tm_year, t.tm_wday, t.tm_yday, t.tm_isdst, t.tm_gmtoff};
  for (int i = 0; i < 11; ++i) EXPECT_EQ(actual[i], expected[i]) << "field " << i;

  ASSERT_EQ(KOR_ExpTimeFromTimeLocal(&t, -1), KOR_OK);  // before 1970: microseconds stay positive
  EXPECT_EQ(t.tm_usec, 999999);
  EXPECT_EQ(t.tm_year, 70);  // 1970-01-01 07:59:59 local
  EXPECT_EQ(t.tm_hour, 7);
  EXPECT_EQ(KOR_ExpTimeFromTimeLocal(nullptr, 0), KOR_ERR_INVALID_ARG);
}

TEST(KorCivilTime, KnownDatesAndRoundTrips) {
  struct Case {
    int64_t seconds;
    int64_t year;
    int month, day, hour, minute, second, weekday, yearDay;
  };
  const Case cases[] = {
      {0, 1970, 1, 1, 0, 0, 0, 4, 0},
      {-1, 1969, 12, 31, 23, 59, 59, 3, 364},
      {951782400, 2000, 2, 29, 0, 0, 0, 2, 59},     // a leap day of a century leap year
      {4107542399, 2100, 2, 28, 23, 59, 59, 0, 58},  // 2100 is not a leap year
      {253402300799, 9999, 12, 31, 23, 59, 59, 5, 364},
      {-62167219200, 0, 1, 1, 0, 0, 0, 6, 0},
  };
  for (const Case& c : cases) {
    const kor::CivilTime t = kor::CivilFromUnixSeconds(c.seconds);
    EXPECT_EQ(t.year, c.year) << c.seconds;
    EXPECT_EQ((std::vector<int>{t.month, t.day, t.hour, t.minute, t.second, t.weekday, t.yearDay}),
              (std::vector<int>{c.month, c.day, c.hour, c.minute, c.second, c.weekday, c.yearDay}))
        << c.seconds;
    EXPECT_EQ(kor::UnixSecondsFromCivil(t), c.seconds);
  }
  // Fields past their range carry as timegm's do.
  kor::CivilTime carried;
  carried.year = 2023;
  carried.month = 14;
  carried.day = 32;
  carried.second = 60;
  EXPECT_EQ(kor::UnixSecondsFromCivil(carried), 1709424060) << "2024-03-03 00:01:00";
  for (int64_t seconds = -4000000000; seconds < 8000000000; seconds += 86399 * 37 + 7)
    ASSERT_EQ(kor::UnixSecondsFromCivil(kor::CivilFromUnixSeconds(seconds)), seconds);
}

// Destination of 8 bytes between guard bytes that must never change.
struct Guarded {
  char bytes[24];
  Guarded() { std::memset(bytes, '#', sizeof bytes); }
  char* Data() { return bytes + 8; }
  bool Intact() const {
    for (int i = 0; i < 8; ++i) {
      if (bytes[i] != '#' || bytes[16 + i] != '#') return false;
    }
    return true;
  }
};

TEST(KorBoundedCopy, NeverWritesPastTheDestination) {
  Guarded b;
  EXPECT_EQ(KOR_Memcpy_s(b.Data(), 8, "abcdefgh", 8), KOR_OK);
  EXPECT_NE(KOR_Memcpy_s(b.Data(), 8, "123456789", 9), KOR_OK);
  EXPECT_EQ(std::memcmp(b.Data(), "abcdefgh", 8), 0) << "a refused copy writes nothing";
  EXPECT_EQ(KOR_Memcpy_s(b.Data(), 0, "x", 0), KOR_OK);
  EXPECT_NE(KOR_Memcpy_s(b.Data(), 0, "x", 1), KOR_OK);
  EXPECT_NE(KOR_Memcpy_s(nullptr, 8, "x", 1), KOR_OK);
  EXPECT_NE(KOR_Memcpy_s(b.Data(), 8, nullptr, 1), KOR_OK);

  EXPECT_EQ(KOR_Strncpy_s(b.Data(), 8, "abcdef", 2), KOR_OK);
  EXPECT_STREQ(b.Data(), "ab");
  EXPECT_EQ(KOR_Strncpy_s(b.Data(), 8, "1234567", 99), KOR_OK) << "exact fit with terminator";
  EXPECT_EQ(KOR_Strncpy_s(b.Data(), 8, "123456789", 9), KOR_ERR_RANGE);
  EXPECT_STREQ(b.Data(), "1234567");
  EXPECT_NE(KOR_Strncpy_s(b.Data(), 0, "x", 1), KOR_OK);
  EXPECT_NE(KOR_Strncpy_s(nullptr, 8, "x", 1), KOR_OK);
  EXPECT_NE(KOR_Strncpy_s(b.Data(), 8, nullptr, 1), KOR_OK);
  EXPECT_STREQ(b.Data(), "");

  EXPECT_EQ(KOR_Sprintf_s(b.Data(), 8, "%d-%s", 42, "ab"), 5);
  EXPECT_EQ(KOR_Sprintf_s(b.Data(), 8, "%s", "0123456789"), -1);
  EXPECT_STREQ(b.Data(), "0123456") << "cut text is still terminated";
  EXPECT_EQ(KOR_Sprintf_s(b.Data(), 0, "x"), -1);
  EXPECT_EQ(KOR_Sprintf_s(nullptr, 8, "x"), -1);
  EXPECT_TRUE(b.Intact());
}

}  // namespace
