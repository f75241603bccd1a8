// One-shot start times completed from a time string and the current local time.
#include <gtest/gtest.h>

#include "schedcli/status.h"
#include "schedcli/tminfo.h"
#include "time_testing.h"

namespace {

using sched_test::clock_at;
using sched_test::utc;
using sched_test::Zone;

constexpr int kFormat = -static_cast<int>(SCH_STATUS_TIME_FORMAT);
constexpr int kOutOfRange = -static_cast<int>(SCH_STATUS_OUT_OF_RANGE);
constexpr int kInPast = -static_cast<int>(SCH_STATUS_TIME_IN_PAST);

tminfo completed(int year, int month, int day, int hour, int minute, int day_of_week = -1) {
  return {.type = 1, .hour = hour, .day_of_week = day_of_week, .day_of_month = day,
          .minute = minute, .month = month, .year = year};
}

int start(const char *text, tminfo *t) {
  time_t now = time(nullptr);
  struct tm local {};
  localtime_r(&now, &local);
  *t = {};
  return get_start_time(text, t, &local);
}

class StartTimeTest : public testing::TestWithParam<Zone> {};

// The clock stands at 10:45:00 on the 10th of a month of standard time in 2026.
TEST_P(StartTimeTest, CompletesFromTheClock) {
  const Zone &zone = GetParam();
  const int m = zone.standard_month - 1;
  ASSERT_TRUE(clock_at(zone.name, zone.local(false, 10, 45)));
  const struct {
    const char *text;
    int result;
    tminfo expected;
  } cases[] = {
      {"50", 0, completed(126, m, 10, 10, 50)},
      {"10:45", 0, completed(126, m, 10, 10, 45)},  // the current second is not past
      {"10:44", kInPast, completed(126, m, 10, 10, 44)},
      {"15:10:30", 0, completed(126, m, 15, 10, 30, 15)},
      {"Dec:15:10:30", 0, completed(126, 11, 15, 10, 30)},
      {"2028:Feb:29:10:00", 0, completed(128, 1, 29, 10, 0)},
      {"2027:Feb:29:10:00", kOutOfRange, completed(127, 1, 29, 10, 0)},
      {"2026:13:01:10:00", kOutOfRange, completed(126, 12, 1, 10, 0)},
      {"+90", 0, completed(126, m, 10, 12, 15)},
      {"+2:30", 0, completed(126, m, 10, 13, 15)},
      {"+1:00:00", 0, completed(126, m, 11, 10, 45, 1)},
  };
  for (const auto &c : cases) {
    tminfo t;
    EXPECT_EQ(start(c.text, &t), c.result) << c.text;
    EXPECT_EQ(t, c.expected) << c.text;
  }
  tminfo t;
  for (const char *text : {"+1:2:3:4", "+2026:1:2:3:4", "ab", ":10", "1:2:3:4:5:6"}) {
    EXPECT_EQ(start(text, &t), kFormat) << text;
  }
}

// While summer time is in force, the carry of a relative time moves the hour on by the shift.
TEST_P(StartTimeTest, RelativeTimeInSummerMovesOnByTheShift) {
  const Zone &zone = GetParam();
  ASSERT_TRUE(clock_at(zone.name, zone.local(true, 10, 45)));
  tminfo t;
  EXPECT_EQ(start("+90", &t), 0);
  int minutes = 12 * 60 + 15 + zone.shift() / 60;
  EXPECT_EQ(t, completed(126, zone.summer_month - 1, 10, minutes / 60, minutes % 60));
}

INSTANTIATE_TEST_SUITE_P(Zones, StartTimeTest, testing::ValuesIn(sched_test::kZones));

TEST(StartTimeCarryTest, RelativeTimesCarryIntoMonthAndYear) {
  const struct {
    time_t now;
    const char *text;
    tminfo expected;
  } cases[] = {
      {utc(2026, 12, 31, 23, 45), "+30", completed(127, 0, 1, 0, 15)},
      {utc(2028, 2, 28, 10, 0), "+1:00:00", completed(128, 1, 29, 10, 0, 1)},
      {utc(2027, 2, 28, 10, 0), "+1:00:00", completed(127, 2, 1, 10, 0, 1)},
  };
  for (const auto &c : cases) {
    ASSERT_TRUE(clock_at("UTC", c.now));
    tminfo t;
    EXPECT_EQ(start(c.text, &t), 0) << c.text;
    EXPECT_EQ(t, c.expected) << c.text;
  }
}

// The carry is the system calendar's: 2100 has no 29 February there. A 32-bit clock never gets
// there, so this is a 64-bit host's case.
TEST(StartTimeCarryTest, CarryPast2038IsTheSystemCalendars) {
  if (sched_test::kTimeIs32Bit) GTEST_SKIP() << "32-bit time values end in January 2038";
  ASSERT_TRUE(clock_at("UTC", utc(2100, 2, 28, 10, 0)));
  tminfo t;
  EXPECT_EQ(start("+1:00:00", &t), 0);
  EXPECT_EQ(t, completed(200, 2, 1, 10, 0, 1));
}

// A relative time that lands past the end of 32-bit time is refused there with its fields left
// uncarried, not read back as a time in 1969; a 64-bit host takes it.
TEST(StartTimeCarryTest, RelativeTimePastTheEndOf32BitTime) {
  ASSERT_TRUE(clock_at("UTC", utc(2038, 1, 18, 10, 0)));
  tminfo t;
  EXPECT_EQ(start("+30", &t), 0);
  EXPECT_EQ(t, completed(138, 0, 18, 10, 30));
  EXPECT_EQ(start("+1:00:00", &t), sched_test::kTimeIs32Bit ? kOutOfRange : 0);
  EXPECT_EQ(t, completed(138, 0, 19, 10, 0, 1));
  EXPECT_EQ(start("+23:00", &t), sched_test::kTimeIs32Bit ? kOutOfRange : 0);
  EXPECT_EQ(t, sched_test::kTimeIs32Bit ? completed(138, 0, 18, 33, 0)
                                        : completed(138, 0, 19, 9, 0));
}

}  // namespace
