// Time strings: accepted shapes, what each writes, names, refused input, and the parse traces.
#include <gtest/gtest.h>

#include <cstdio>

#include "schedcli/tminfo.h"
#include "support/traces.h"
#include "time_testing.h"

namespace {

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

}  // namespace
