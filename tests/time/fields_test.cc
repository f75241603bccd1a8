// Time fields: what each accepted string shape writes, the range checks by schedule kind, month
// lengths, and the in-the-past decision at the current second.
#include <gtest/gtest.h>

#include "schedcli/status.h"
#include "schedcli/tminfo.h"
#include "time_testing.h"

namespace {

using sched_test::clock_at;
using sched_test::Zone;

constexpr tminfo kAbsent = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};  // as the commands preset

// Words the text does not give keep the preset -1.
const struct {
  const char *text;
  int result;
  int hour, day_of_week, day_of_month, minute, month, year;
} kCases[] = {
    {"45", 0, -1, -1, -1, 45, -1, -1},
    {"10:30", 0, 10, -1, -1, 30, -1, -1},
    {"Tue:08:00", 0, 8, 3, -1, 0, -1, -1},
    {"tuesday:08:00", 0, 8, 3, -1, 0, -1, -1},
    {"15:23:59", 0, 23, 15, -1, 59, -1, -1},
    {"march:Mon:10:30", 0, 10, -1, 2, 30, 3, -1},  // day names in every shape: Mon is 2
    {"2011:Mar:05:10:30", 0, 10, -1, 5, 30, 3, 2011},
    {"2011:Mar:05:10:30999", 0, 10, -1, 5, 30, 3, 2011},  // cut after 17 characters
    {" 5x:+7", 0, 5, -1, -1, 7, -1, -1},  // whatever %d takes: blanks, sign, trailing junk
    {"99:-5", 0, 99, -1, -1, -5, -1, -1},  // no range checks here
    {":10:30", SCH_TM_BAD_SHAPE, -1, -1, -1, -1, -1, -1},
    {"1:2:3:4:5:6", SCH_TM_BAD_SHAPE, 5, -1, 4, 6, 3, -1},
    {"1:2:3:4:5:6:7:8:9:10", SCH_TM_BAD_SHAPE, 8, -1, 7, 9, 6, -1},  // cut to nine fields
    {"", SCH_TM_BAD_FIELD, -1, -1, -1, -1, -1, -1},
    {"10:", SCH_TM_BAD_FIELD, -1, -1, -1, -1, -1, -1},
    {"ab:30", SCH_TM_BAD_FIELD, -1, -1, -1, 30, -1, -1},
    {"Tu:08:00", SCH_TM_BAD_FIELD, 8, -1, -1, 0, -1, -1},
    {"Xyz:05:10:30", SCH_TM_BAD_FIELD, 10, -1, -1, 30, -1, -1},
    {"y2k:Mar:05:10:30", SCH_TM_BAD_FIELD, 10, -1, 5, 30, 3, -1},
};

TEST(ParseTest, EveryShapeWritesOnlyItsFields) {
  for (const auto &c : kCases) {
    tminfo t = kAbsent;
    EXPECT_EQ(sch_parse_str_to_tminfo(c.text, &t), c.result) << c.text;
    tminfo expected = kAbsent;
    expected.hour = c.hour;
    expected.day_of_week = c.day_of_week;
    expected.day_of_month = c.day_of_month;
    expected.minute = c.minute;
    expected.month = c.month;
    expected.year = c.year;
    EXPECT_EQ(t, expected) << c.text;
  }
}

TEST(CalendarTest, DayOfMonthClampedToTheMonth) {
  const struct {
    int year;
    unsigned month;
    int day, expected;
  } cases[] = {
      {111, 1, 31, 28}, {112, 1, 30, 29}, {111, 1, 29, 28}, {111, 1, 28, 28},
      {200, 1, 31, 29},  // every fourth year, 2100 too
      {111, 3, 31, 30}, {111, 5, 31, 30}, {111, 8, 30, 30}, {111, 10, 31, 30},
      {111, 0, 35, 35},  // months of 31 days are not clamped at all, nor is December
      {111, 11, 40, 40}, {111, 12, 31, 31}, {111, static_cast<unsigned>(-1), 31, 31},
      {111, 1, -5, -5},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(normalize_day_of_month(c.year, c.month, c.day), c.expected)
        << c.year << "/" << c.month << "/" << c.day;
  }
}

constexpr int kOutOfRange = -static_cast<int>(SCH_STATUS_OUT_OF_RANGE);
constexpr int kInPast = -static_cast<int>(SCH_STATUS_TIME_IN_PAST);

// Completed one-shot: year since 1900, month 0..11.
constexpr tminfo one_shot(int year, int month, int day, int hour, int minute) {
  return {.type = 1, .hour = hour, .day_of_month = day, .minute = minute, .month = month,
          .year = year};
}
const tminfo *ptr(const tminfo &t) { return &t; }

TEST(VerifyTest, RangesByKind) {
  ASSERT_TRUE(clock_at("UTC", sched_test::utc(2011, 6, 1)));
  const struct {
    tminfo t;
    int result;
  } cases[] = {
      {{.type = 3, .hour = 23, .minute = 59}, 0},
      {{.type = 3, .hour = -1}, kOutOfRange},  // the hour is compared unsigned
      {{.type = 3, .hour = 24}, kOutOfRange},
      {{.type = 3, .minute = -1}, kOutOfRange}, {{.type = 3, .minute = 60}, kOutOfRange},
      {{.type = 4, .day_of_week = 7}, 0}, {{.type = 4, .day_of_week = 0}, kOutOfRange},
      {{.type = 4, .day_of_week = 8}, kOutOfRange},
      {{.type = 4, .hour = -1, .day_of_week = 1}, kOutOfRange},
      {{.type = 5, .day_of_month = 31}, 0},  // short months are the next-run computation's
      {{.type = 5, .day_of_month = 0}, kOutOfRange}, {{.type = 5, .day_of_month = 32}, kOutOfRange},
      {{.type = 5, .hour = -1, .day_of_month = 1}, kOutOfRange},
      {one_shot(112, 1, 29, 10, 0), 0},  // 2012 is divisible by 4
      {one_shot(200, 1, 29, 10, 0), 0},  // and so is 2100, a leap year here (64-bit time)
      {one_shot(111, 1, 29, 10, 0), kOutOfRange}, {one_shot(111, 3, 31, 10, 0), kOutOfRange},
      {one_shot(111, 12, 1, 10, 0), kOutOfRange}, {one_shot(-1, 6, 1, 10, 0), kOutOfRange},
      {one_shot(111, 6, 0, 10, 0), kOutOfRange}, {one_shot(111, 6, 1, -1, 0), kOutOfRange},
      {{.type = 0, .hour = -5}, 0}, {{.type = 2, .hour = -5}, 0}, {{.type = 6, .hour = -5}, 0},
      {{.type = 8, .hour = -5}, 0}, {{.type = -1, .hour = -5}, 0},
  };
  for (const auto &c : cases) {
    // A one-shot past January 2038 is out of range where time values are 32-bit.
    int expected = sched_test::kTimeIs32Bit && c.t.type == 1 && c.t.year >= 138 && c.result == 0
                       ? kOutOfRange
                       : c.result;
    EXPECT_EQ(sch_verify_tminfo(&c.t), expected) << testing::PrintToString(c.t);
  }
}

// The last minute that 32-bit time values hold is a one-shot like any other; the next one is out
// of range there, not "in the past" as mktime's failure would read.
TEST(VerifyTest, OneShotsAtTheEndOf32BitTime) {
  ASSERT_TRUE(clock_at("UTC", sched_test::utc(2038, 1, 18)));
  EXPECT_EQ(sch_verify_tminfo(ptr(one_shot(138, 0, 19, 3, 14))), 0);
  EXPECT_EQ(sch_verify_tminfo(ptr(one_shot(138, 0, 19, 3, 15))),
            sched_test::kTimeIs32Bit ? kOutOfRange : 0);
  EXPECT_EQ(sch_verify_tminfo(ptr(one_shot(138, 0, 17, 3, 15))), kInPast);
}

class VerifyClockTest : public testing::TestWithParam<Zone> {};

// A time at the current second is still accepted, one second before it is in the past. In summer
// a one-shot's fields read as standard time: the wall-clock reading minus the shift is now.
TEST_P(VerifyClockTest, AcceptsTheCurrentSecond) {
  const Zone &zone = GetParam();
  for (bool summer : {false, true}) {
    int minutes = 10 * 60 + 45 - (summer ? zone.shift() / 60 : 0);
    int month = (summer ? zone.summer_month : zone.standard_month) - 1;
    tminfo t = one_shot(126, month, 10, minutes / 60, minutes % 60);
    tminfo repeat{.type = 7, .start_time = static_cast<int32_t>(zone.local(summer, 10, 45))};
    ASSERT_TRUE(clock_at(zone.name, zone.local(summer, 10, 45)));
    EXPECT_EQ(sch_verify_tminfo(&t), 0) << summer;
    EXPECT_EQ(sch_verify_tminfo(&repeat), 0) << summer;
    ASSERT_TRUE(clock_at(zone.name, zone.local(summer, 10, 45, 1)));
    EXPECT_EQ(sch_verify_tminfo(&t), kInPast) << summer;
    EXPECT_EQ(sch_verify_tminfo(&repeat), kInPast) << summer;
  }
}

INSTANTIATE_TEST_SUITE_P(Zones, VerifyClockTest, testing::ValuesIn(sched_test::kZones));

}  // namespace
