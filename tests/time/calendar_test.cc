// Month lengths as the checks and the monthly schedules see them.
#include <gtest/gtest.h>

#include "schedcli/tminfo.h"

namespace {

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

}  // namespace
