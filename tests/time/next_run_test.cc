// The wait until the next run, for every kind, in UTC and across daylight-saving changes.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "schedcli/tminfo.h"
#include "support/traces.h"
#include "time_testing.h"

namespace {

using sched_test::clock_at;
using sched_test::utc;

constexpr time_t kNoRun = std::numeric_limits<time_t>::min();
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
constexpr tminfo one_shot(int year, int month, int d, int h, int m) {
  return {.type = 1, .hour = h, .day_of_month = d, .minute = m, .month = month, .year = year};
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
const Case kCases[] = {
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
  for (const auto &c : kCases) expect_next_run(c);
}

// At the end of 32-bit time. A daily, weekly, monthly or one-shot run past it is no run where time
// values are 32-bit, and a 64-bit host computes it as ever; a repeat keeps its runs in 32-bit
// words of the record on every host, so one past the end is no run anywhere, never a wrapped date.
TEST(NextRunTest, RunsAtTheEndOf32BitTime) {
  constexpr time_t kEnd = sched_test::kLastSecond32;
  constexpr bool k32 = sched_test::kTimeIs32Bit;
  const time_t before = utc(2038, 1, 19, 3, 0);
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
  };
  for (const auto &c : cases) expect_next_run(c);
}

TEST(NextRunTest, PastTheEndOf32BitTimeOn64BitHosts) {
  if (sched_test::kTimeIs32Bit) GTEST_SKIP() << "32-bit time values end in January 2038";
  const time_t later = utc(2040, 6, 1, 12, 0);
  const Case cases[] = {
      {"31 on 15 Feb 2100", kUtc, utc(2100, 2, 15), monthly(31, 10, 0), utc(2100, 3, 1, 10, 0)},
      {"daily", kBerlin, later, daily(23, 0), utc(2040, 6, 1, 21, 0)},
      {"start passed", kUtc, later, repeat(kNow, 0, 0, 1, 0), kNoRun},
      {"armed", kUtc, later, repeat(kNow, sched_test::kLastSecond32 - 30, 0, 1, 0), kNoRun},
  };
  for (const auto &c : cases) expect_next_run(c);
}

TEST(NextRunTest, KindsWithoutScheduleLeaveOutputsAlone) {
  ASSERT_TRUE(clock_at(kUtc, kNow));
  for (int type : {0, 2, 6, 8, -1}) {
    tminfo t = daily(10, 0);
    t.type = type;
    timeval interval{7, 7};
    time_t next = 12345;
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
