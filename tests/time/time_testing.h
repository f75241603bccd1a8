// A stopped clock and a chosen zone for the time tests. CTest preloads libfaketime with
// FAKETIME_FMT=%s and FAKETIME_NO_CACHE=1 (CMakeLists.txt), so the FAKETIME that clock_at() sets
// (seconds since the epoch) stops the clock from the next call on.
#ifndef SCHEDCLI_TESTS_TIME_TIME_TESTING_H
#define SCHEDCLI_TESTS_TIME_TIME_TESTING_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <ostream>
#include <string>

#include "schedcli/tminfo.h"

namespace sched_test {

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
inline constexpr bool kTimeIs32Bit = sizeof(time_t) < 8;
inline constexpr time_t kLastSecond32 = 2147483647;
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
inline void PrintTo(const Zone &zone, std::ostream *out) { *out << zone.name; }

inline const Zone kZones[] = {
    {"UTC", 0, 0, 1, 7},
    {"Europe/Berlin", 3600, 7200, 1, 7},
    {"America/New_York", -18000, -14400, 1, 7},
    {"Australia/Lord_Howe", 37800, 39600, 7, 1},  // a 30-minute shift
};

// Sets the zone and stops the clock at `instant`; fails unless time() then reports it.
inline ::testing::AssertionResult clock_at(const char *zone, time_t instant) {
  setenv("TZ", zone, 1);
  tzset();
  setenv("FAKETIME", std::to_string(instant).c_str(), 1);
  time_t seen = time(nullptr);
  if (seen == instant) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "the clock reads " << seen << ", not " << instant
                                       << ": run through CTest, which preloads libfaketime";
}

}  // namespace sched_test

inline bool operator==(const tminfo &a, const tminfo &b) { return !std::memcmp(&a, &b, sizeof a); }
inline void PrintTo(const tminfo &t, std::ostream *out) {
  *out << "{type " << t.type << ", hour " << t.hour << ", dw " << t.day_of_week << ", dm "
       << t.day_of_month << ", minute " << t.minute << ", month " << t.month << ", year " << t.year
       << ", start " << t.start_time << ", last " << t.last_time << "}";
}

#endif
