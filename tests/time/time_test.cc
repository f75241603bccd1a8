// Schedule times: the fields of a time string and their range checks, one-shot start times
// completed from the clock, and the wait until the next run, in UTC and across daylight-saving
// changes. CTest preloads libfaketime with FAKETIME_FMT=%s and FAKETIME_NO_CACHE=1
// (CMakeLists.txt), so the FAKETIME that clock_at() sets stops the clock from the next call on.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <ostream>
#include <string>

#include "schedcli/status.h"
#include "schedcli/tminfo.h"
#include "support/traces.h"

inline bool operator==(const tminfo &a, const tminfo &b) { return !std::memcmp(&a, &b, sizeof a); }
inline void PrintTo(const tminfo &t, std::ostream *out) {
  *out << "{type " << t.type << ", hour " << t.hour << ", dw " << t.day_of_week << ", dm "
       << t.day_of_month << ", minute " << t.minute << ", month " << t.month << ", year " << t.year
       << ", start " << t.start_time << ", last " << t.last_time << "}";
}

namespace {

// Seconds since the epoch of a UTC time, by civil-calendar arithmetic of its own, so that
// expectations lean neither on the zone nor on the library.
constexpr time_t utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  year -= month <= 2;
  const long era = (year >= 0 ? year : year - 399) / 400;
  const long year_of_era = year - era * 400;
  const long day_of_year = (153L * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const long day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return (era * 146097 + day_of_era - 719468) * 86400 + hour * 3600L + minute * 60L + second;
}
static_assert(utc(2026, 3, 29, 1) == 1774746000, "Berlin's 2026 spring change, from zdump");

// The target's time values are signed 32-bit seconds and end at this second; so do those of a
// 32-bit build here. Dates past it are tests of 64-bit hosts only.
constexpr bool kTimeIs32Bit = sizeof(time_t) < 8;
constexpr time_t kLastSecond32 = 2147483647;
static_assert(utc(2038, 1, 19, 3, 14, 7) == kLastSecond32, "the end of 32-bit time");

// A zone with its offsets, a month wholly in standard time and one wholly in summer time.
struct Zone {
  const char *name;
  int standard_offset, summer_offset, standard_month, summer_month;
  int shift() const { return summer_offset - standard_offset; }
  // The instant of a wall-clock time on the 10th of the standard or summer month of 2026.
  time_t local(bool summer, int hour, int minute, int second = 0) const {
    return utc(2026, summer ? summer_month : standard_month, 10, hour, minute, second) -
           (summer ? summer_offset : standard_offset);
  }
};
void PrintTo(const Zone &zone, std::ostream *out) { *out << zone.name; }

const Zone kZones[] = {
    {"UTC", 0, 0, 1, 7},
    {"Europe/Berlin", 3600, 7200, 1, 7},
    {"America/New_York", -18000, -14400, 1, 7},
    {"Australia/Lord_Howe", 37800, 39600, 7, 1},  // a 30-minute shift
};

// Sets the zone and stops the clock at `instant`; fails unless time() then reports it.
::testing::AssertionResult clock_at(const char *zone, time_t instant) {
  setenv("TZ", zone, 1);
  tzset();
  setenv("FAKETIME", std::to_string(instant).c_str(), 1);
  time_t seen = time(nullptr);
  if (seen == instant) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "the clock reads " << seen << ", not " << instant
                                       << ": run through CTest, which preloads libfaketime";
}

constexpr time_t kNoRun = std::numeric_limits<time_t>::min();
constexpr int kFormat = -static_cast<int>(SCH_STATUS_TIME_FORMAT);
constexpr int kOutOfRange = -static_cast<int>(SCH_STATUS_OUT_OF_RANGE);
constexpr int kInPast = -static_cast<int>(SCH_STATUS_TIME_IN_PAST);

// A one-shot's fields: year since 1900, month 0..11.
constexpr tminfo one_shot(int year, int month, int d, int h, int m) {
  return {.type = 1, .hour = h, .day_of_month = d, .minute = m, .month = month, .year = year};
}

constexpr tminfo kAbsent = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};  // as the commands preset

// Words the text does not give keep the preset -1.
const struct {
  const char *text;
  int result;
  int hour, day_of_week, day_of_month, minute, month, year;
} kParseCases[] = {
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
  for (const auto &c : kParseCases) {
    tminfo t = kAbsent;
    EXPECT_EQ(sch_parse_str_to_tminfo(c.text, &t), c.result) << c.text;
    EXPECT_EQ(t, (tminfo{-1, c.hour, c.day_of_week, c.day_of_month, c.minute, c.month, c.year, -1, -1, -1}))
        << c.text;
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

const tminfo *ptr(const tminfo &t) { return &t; }

TEST(VerifyTest, RangesByKind) {
  ASSERT_TRUE(clock_at("UTC", utc(2011, 6, 1)));
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
  };
  for (const auto &c : cases) {
    // A one-shot past January 2038 is out of range where time values are 32-bit.
    int expected = kTimeIs32Bit && c.t.type == 1 && c.t.year >= 138 && c.result == 0
                       ? kOutOfRange
                       : c.result;
    EXPECT_EQ(sch_verify_tminfo(&c.t), expected) << testing::PrintToString(c.t);
  }
}

// The last minute that 32-bit time values hold is a one-shot like any other; the next one is out
// of range there, not "in the past" as mktime's failure would read.
TEST(VerifyTest, OneShotsAtTheEndOf32BitTime) {
  ASSERT_TRUE(clock_at("UTC", utc(2038, 1, 18)));
  EXPECT_EQ(sch_verify_tminfo(ptr(one_shot(138, 0, 19, 3, 14))), 0);
  EXPECT_EQ(sch_verify_tminfo(ptr(one_shot(138, 0, 19, 3, 15))),
            kTimeIs32Bit ? kOutOfRange : 0);
  EXPECT_EQ(sch_verify_tminfo(ptr(one_shot(138, 0, 17, 3, 15))), kInPast);
}

// The cases that depend on the zone, run in each of kZones.
class ZoneTest : public testing::TestWithParam<Zone> {};

// A time at the current second is still accepted, one second before it is in the past. In summer
// a one-shot's fields read as standard time: the wall-clock reading minus the shift is now.
TEST_P(ZoneTest, VerifyAcceptsTheCurrentSecond) {
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

// The clock stands at 10:45:00 on the 10th of a month of standard time in 2026.
TEST_P(ZoneTest, StartTimeCompletesFromTheClock) {
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
TEST_P(ZoneTest, RelativeStartTimeInSummerMovesOnByTheShift) {
  const Zone &zone = GetParam();
  ASSERT_TRUE(clock_at(zone.name, zone.local(true, 10, 45)));
  tminfo t;
  EXPECT_EQ(start("+90", &t), 0);
  int minutes = 12 * 60 + 15 + zone.shift() / 60;
  EXPECT_EQ(t, completed(126, zone.summer_month - 1, 10, minutes / 60, minutes % 60));
}

INSTANTIATE_TEST_SUITE_P(Zones, ZoneTest, testing::ValuesIn(kZones));

// The carry is the system calendar's: 2100 has no 29 February there. A relative time that lands
// past the end of 32-bit time is refused there with its fields left uncarried, not read back as a
// time in 1969; a 64-bit host takes it. A clock past 2038 (now 0) is a 64-bit host's case only.
TEST(StartTimeCarryTest, RelativeTimesCarryIntoMonthAndYear) {
  constexpr bool k32 = kTimeIs32Bit;
  const time_t end = utc(2038, 1, 18, 10, 0);
  const struct {
    time_t now;
    const char *text;
    int result;
    tminfo expected;
  } cases[] = {
      {utc(2026, 12, 31, 23, 45), "+30", 0, completed(127, 0, 1, 0, 15)},
      {utc(2028, 2, 28, 10, 0), "+1:00:00", 0, completed(128, 1, 29, 10, 0, 1)},
      {utc(2027, 2, 28, 10, 0), "+1:00:00", 0, completed(127, 2, 1, 10, 0, 1)},
      {k32 ? 0 : utc(2100, 2, 28, 10, 0), "+1:00:00", 0, completed(200, 2, 1, 10, 0, 1)},
      {end, "+30", 0, completed(138, 0, 18, 10, 30)},
      {end, "+1:00:00", k32 ? kOutOfRange : 0, completed(138, 0, 19, 10, 0, 1)},
      {end, "+23:00", k32 ? kOutOfRange : 0, k32 ? completed(138, 0, 18, 33, 0) : completed(138, 0, 19, 9, 0)},
  };
  for (const auto &c : cases) {
    if (c.now == 0) continue;
    ASSERT_TRUE(clock_at("UTC", c.now));
    tminfo t;
    EXPECT_EQ(start(c.text, &t), c.result) << c.now << " " << c.text;
    EXPECT_EQ(t, c.expected) << c.now << " " << c.text;
  }
}

constexpr time_t kNow = utc(2026, 3, 28, 12, 0);  // for the repeat cases
constexpr const char *kUtc = "UTC";
constexpr const char *kBerlin = "Europe/Berlin";
constexpr const char *kNewYork = "America/New_York";
constexpr const char *kLordHowe = "Australia/Lord_Howe";

constexpr tminfo daily(int h, int m) { return {.type = 3, .hour = h, .minute = m}; }
constexpr tminfo weekly(int d, int h, int m) {
  return {.type = 4, .hour = h, .day_of_week = d, .minute = m};
}
constexpr tminfo monthly(int d, int h, int m) {
  return {.type = 5, .hour = h, .day_of_month = d, .minute = m};
}
constexpr tminfo repeat(time_t start, time_t last, int days, int hours, int minutes) {
  return {.type = 7, .hour = hours, .day_of_week = days, .minute = minutes,
          .start_time = static_cast<int32_t>(start), .last_time = static_cast<int32_t>(last)};
}

struct Case {
  const char *what;
  const char *zone;
  time_t now;
  tminfo t;
  time_t next;  // kNoRun: result -1
};

void expect_next_run(const Case &c) {
  SCOPED_TRACE(testing::Message() << c.what << " (" << c.zone << ")");
  ASSERT_TRUE(clock_at(c.zone, c.now));
  timeval interval{7, 7};
  time_t next = 12345;
  bool runs = c.next != kNoRun;
  EXPECT_EQ(sch_compute_timer_interval(&c.t, &interval, &next), runs ? 0 : -1);
  EXPECT_EQ(next, runs ? c.next : 12345);  // untouched when there is no run
  EXPECT_EQ(interval.tv_sec, runs ? c.next - c.now : 0);
  EXPECT_EQ(interval.tv_usec, 0);
}

// Local times in the comments. Daily, weekly and monthly times carry now's daylight-saving flag
// into mktime, so a time across a change reads in the flag of now.
const Case kNextRunCases[] = {
    {"daily, 30 s", kUtc, utc(2026, 3, 28, 9, 59, 30), daily(10, 0), utc(2026, 3, 28, 10, 0)},
    {"daily, now", kUtc, utc(2026, 3, 28, 10, 0), daily(10, 0), utc(2026, 3, 29, 10, 0)},
    {"daily, year", kUtc, utc(2026, 12, 31, 23, 59, 30), daily(23, 59), utc(2027, 1, 1, 23, 59)},
    {"Sun on Sun, now", kUtc, utc(2026, 3, 29, 10, 0), weekly(1, 10, 0), utc(2026, 4, 5, 10, 0)},
    {"Sun on Sun", kUtc, utc(2026, 3, 29, 9, 0), weekly(1, 10, 0), utc(2026, 3, 29, 10, 0)},
    {"Sun on Sat", kUtc, utc(2026, 3, 28, 12, 0), weekly(1, 10, 0), utc(2026, 3, 29, 10, 0)},
    {"Wed on Mon", kUtc, utc(2026, 3, 23, 12, 0), weekly(4, 10, 0), utc(2026, 3, 25, 10, 0)},
    {"Sat on Wed", kUtc, utc(2026, 12, 30, 12, 0), weekly(7, 10, 0), utc(2027, 1, 2, 10, 0)},
    {"31 on 15 Apr", kUtc, utc(2026, 4, 15, 12), monthly(31, 10, 0), utc(2026, 4, 30, 10, 0)},
    {"31 on 30 Apr", kUtc, utc(2026, 4, 30, 11), monthly(31, 10, 0), utc(2026, 5, 31, 10, 0)},
    {"31 on 31 Jan", kUtc, utc(2026, 1, 31, 11), monthly(31, 10, 0), utc(2026, 3, 3, 10, 0)},
    {"31 on 31 Jan 28", kUtc, utc(2028, 1, 31, 11), monthly(31, 10, 0), utc(2028, 3, 2, 10, 0)},
    {"31 on 15 Feb 28", kUtc, utc(2028, 2, 15, 12), monthly(31, 10, 0), utc(2028, 2, 29, 10, 0)},
    {"31 on 15 Feb 27", kUtc, utc(2027, 2, 15, 12), monthly(31, 10, 0), utc(2027, 2, 28, 10, 0)},
    {"30 on 31 Jan", kUtc, utc(2026, 1, 31, 12), monthly(30, 10, 0), utc(2026, 2, 28, 10, 0)},
    {"5 on 20 Dec", kUtc, utc(2026, 12, 20, 12), monthly(5, 10, 0), utc(2027, 1, 5, 10, 0)},
    {"31 on 31 Dec", kUtc, utc(2026, 12, 31, 11), monthly(31, 10, 0), utc(2027, 1, 31, 10, 0)},
    {"15 on 15th", kUtc, utc(2026, 3, 15, 9), monthly(15, 10, 0), utc(2026, 3, 15, 10, 0)},
    {"15 on 15th, now", kUtc, utc(2026, 3, 15, 10), monthly(15, 10, 0), utc(2026, 4, 15, 10, 0)},
    {"one-shot now", kUtc, utc(2026, 3, 28, 10), one_shot(126, 2, 28, 10, 0), utc(2026, 3, 28, 10)},
    {"one-shot past", kUtc, utc(2026, 3, 28, 10, 0, 1), one_shot(126, 2, 28, 10, 0), kNoRun},
    {"start ahead", kUtc, kNow, repeat(kNow + 1000, 0, 0, 1, 0), kNow + 1000},
    {"start passed unrun", kUtc, kNow, repeat(kNow - 10, 0, 0, 1, 0), kNow + 3600},
    {"armed at start", kUtc, kNow, repeat(kNow + 9, kNow + 9, 1, 2, 3), kNow + 9 + 93780},
    {"due now", kUtc, kNow, repeat(kNow - 3600, kNow - 3600, 0, 1, 0), kNow},
    {"run missed", kUtc, kNow, repeat(kNow - 7200, kNow - 7200, 0, 1, 0), kNoRun},
    {"negative interval", kUtc, kNow, repeat(kNow, kNow, -1, 0, 0), kNoRun},
    // Berlin: 29 Mar 02:00 CET -> 03:00 CEST, 25 Oct 03:00 CEST -> 02:00 CET.
    {"10:00 CET -> 11:00 CEST", kBerlin, utc(2026, 3, 28, 9), daily(10, 0), utc(2026, 3, 29, 9)},
    {"gap", kBerlin, utc(2026, 3, 29, 0, 59, 30), daily(2, 30), utc(2026, 3, 29, 1, 30)},
    {"Sun 01:59:30", kBerlin, utc(2026, 3, 29, 0, 59, 30), weekly(1, 1, 0), utc(2026, 4, 5)},
    {"10:00 CEST -> 09:00 CET", kBerlin, utc(2026, 10, 24, 8), daily(10, 0), utc(2026, 10, 25, 8)},
    {"CEST", kBerlin, utc(2026, 10, 24, 23, 59, 30), daily(2, 30), utc(2026, 10, 25, 0, 30)},
    {"second 02:30", kBerlin, utc(2026, 10, 25, 1, 30), daily(2, 30), utc(2026, 10, 26, 1, 30)},
    {"25th", kBerlin, utc(2026, 10, 24, 23, 59, 30), monthly(25, 10, 0), utc(2026, 10, 25, 8)},
    {"02:30 CET", kBerlin, utc(2026, 10, 24, 22), one_shot(126, 9, 25, 2, 30),
     utc(2026, 10, 25, 1, 30)},
    // New York: 8 Mar 02:00 EST -> 03:00 EDT, 1 Nov 02:00 EDT -> 01:00 EST.
    {"gap", kNewYork, utc(2026, 3, 8, 6, 59, 30), daily(2, 30), utc(2026, 3, 8, 7, 30)},
    {"Sun EDT", kNewYork, utc(2026, 11, 1, 5, 59, 30), weekly(1, 1, 30), utc(2026, 11, 8, 5, 30)},
    {"second 01:00", kNewYork, utc(2026, 11, 1, 6), daily(1, 30), utc(2026, 11, 1, 6, 30)},
    {"31 on 31 Oct", kNewYork, utc(2026, 10, 31, 15), monthly(31, 10, 0), utc(2026, 12, 1, 14)},
    // Lord Howe: 5 Apr 02:00 +11 -> 01:30 +10:30, 4 Oct 02:00 +10:30 -> 02:30 +11.
    {"10:00 +11 -> 09:30", kLordHowe, utc(2026, 4, 3, 23), daily(10, 0), utc(2026, 4, 4, 23)},
    {"second 01:40", kLordHowe, utc(2026, 4, 4, 15, 10), daily(1, 45), utc(2026, 4, 4, 15, 15)},
    {"gap", kLordHowe, utc(2026, 10, 3, 15, 29, 30), daily(2, 15), utc(2026, 10, 3, 15, 45)},
    {"Sat 12:00", kLordHowe, utc(2026, 10, 3, 1, 30), weekly(1, 10, 0), utc(2026, 10, 3, 23, 30)},
    {"3rd 12:00", kLordHowe, utc(2026, 10, 3, 1, 30), monthly(4, 10, 0), utc(2026, 10, 3, 23, 30)},
    {"summer", kLordHowe, utc(2026, 1, 1), one_shot(126, 0, 15, 12, 0), utc(2026, 1, 15, 1, 30)},
};

TEST(NextRunTest, EveryKindInUtcAndAcrossChanges) {
  for (const auto &c : kNextRunCases) expect_next_run(c);
}

// At and past the end of 32-bit time. A daily, weekly, monthly or one-shot run past it is no run
// with 32-bit time values and runs as ever on a 64-bit host; a repeat keeps its runs in 32-bit
// words of the record everywhere, so one past the end is no run at all, never a wrapped date.
TEST(NextRunTest, RunsAtTheEndOf32BitTime) {
  constexpr time_t kEnd = kLastSecond32;
  constexpr bool k32 = kTimeIs32Bit;
  const time_t before = utc(2038, 1, 19, 3, 0), later = k32 ? 0 : utc(2040, 6, 1, 12, 0);
  const Case cases[] = {
      {"last minute", kUtc, before, daily(3, 14), utc(2038, 1, 19, 3, 14)},
      {"next day", kUtc, before, daily(2, 0), k32 ? kNoRun : utc(2038, 1, 20, 2, 0)},
      {"next week", kUtc, before, weekly(3, 2, 0), k32 ? kNoRun : utc(2038, 1, 26, 2, 0)},
      {"31st", kUtc, before, monthly(31, 10, 0), k32 ? kNoRun : utc(2038, 1, 31, 10, 0)},
      {"one-shot", kUtc, before, one_shot(138, 1, 1, 0, 0), k32 ? kNoRun : utc(2038, 2, 1)},
      {"start at the end", kUtc, before, repeat(kEnd, 0, 0, 1, 0), kEnd},
      {"armed at the end", kUtc, before, repeat(kEnd - 60, kEnd - 60, 0, 0, 1), kEnd - 60 + 60},
      {"one more", kUtc, before, repeat(kEnd - 59, kEnd - 59, 0, 0, 1), kNoRun},
      {"start passed", kUtc, before, repeat(before - 10, 0, 0, 1, 0), kNoRun},
      // A damaged record whose "negative" interval would wrap round to a run in 2038.
      {"wrapped", kUtc, kNow, repeat(INT32_MIN, INT32_MIN + 10, -1, 0, 0), kNoRun},
      // Clocks past the end, on 64-bit hosts only (now 0 where time values are 32-bit: skipped).
      {"31 on 15 Feb 2100", kUtc, k32 ? 0 : utc(2100, 2, 15), monthly(31, 10, 0), k32 ? 0 : utc(2100, 3, 1, 10, 0)},
      {"daily", kBerlin, later, daily(23, 0), k32 ? 0 : utc(2040, 6, 1, 21, 0)},
      {"start passed", kUtc, later, repeat(kNow, 0, 0, 1, 0), kNoRun},
      {"armed", kUtc, later, repeat(kNow, kLastSecond32 - 30, 0, 1, 0), kNoRun},
  };
  for (const auto &c : cases) {
    if (c.now != 0) expect_next_run(c);
  }
}

// Kinds without a schedule: no field is checked, there is no run, and the outputs are untouched.
TEST(NextRunTest, KindsWithoutScheduleAreNeitherCheckedNorRun) {
  ASSERT_TRUE(clock_at(kUtc, kNow));
  for (int type : {0, 2, 6, 8, -1}) {
    tminfo t = daily(-5, 0);
    t.type = type;
    timeval interval{7, 7};
    time_t next = 12345;
    EXPECT_EQ(sch_verify_tminfo(&t), 0) << type;
    EXPECT_EQ(sch_compute_timer_interval(&t, &interval, &next), -1) << type;
    EXPECT_TRUE(next == 12345 && interval.tv_sec == 7 && interval.tv_usec == 7) << type;
  }
}

TEST(NextRunTest, DeltaIsUncheckedThirtyTwoBitArithmetic) {
  uint32_t seconds = 0;
  tminfo t = repeat(0, 0, 1, 2, 3);
  EXPECT_EQ(sch_compute_delta(&t, &seconds), 0);
  EXPECT_EQ(seconds, 93780u);
  t = repeat(0, 0, -1, 0, 0);
  sch_compute_delta(&t, &seconds);
  EXPECT_EQ(seconds, 4294967296u - 86400u);
}

TEST(NextRunTest, TracesNameTheBranchAndBothTimes) {
  ASSERT_TRUE(clock_at(kUtc, utc(2026, 3, 28, 10, 0)));
  sch::testing::clear_traces();
  tminfo t = daily(10, 0);
  timeval interval{};
  time_t next = 0;
  ASSERT_EQ(sch_compute_timer_interval(&t, &interval, &next), 0);
  std::vector<std::string> expected = {"interval on next day", "Future Sun Mar 29 10:00:00 2026\n",
                                       "Now Sat Mar 28 10:00:00 2026\n"};
  EXPECT_EQ(sch::testing::trace_texts(), expected);
}

}  // namespace
