// Completion of a one-shot start time from a time string and the current local time.
#include "schedcli/tminfo.h"
#include "time/int32_wrap.h"
#include "time/time_status.h"

extern "C" int get_start_time(const char *text, tminfo *t, const struct tm *now) {
  // Minute is not preset: every accepted shape writes it.
  t->hour = t->day_of_week = t->year = t->month = t->day_of_month = -1;
  bool incremental = text[0] == '+';
  if (incremental) text++;
  if (sch_parse_str_to_tminfo(text, t) < 0) return sch::kTimeFormat;
  t->type = SCH_TM_ONESHOT;

  // A field typed as -1 counts as absent: the parser leaves no other mark.
  if (incremental) t->minute = sch::wrapping_add(t->minute, now->tm_min);
  if (t->hour == -1) {
    t->hour = now->tm_hour;
  } else if (incremental) {
    t->hour = sch::wrapping_add(t->hour, now->tm_hour);
  }

  if (t->day_of_month == -1) {
    if (t->day_of_week == -1) {
      t->day_of_month = now->tm_mday;
    } else if (!incremental) {
      t->day_of_month = t->day_of_week;  // D:HH:MM names a day of this month
    } else {
      t->day_of_month = sch::wrapping_add(now->tm_mday, t->day_of_week);
    }
  }

  if (t->month == -1) {
    t->month = now->tm_mon;
  } else if (incremental) {
    return sch::kTimeFormat;  // a relative time can't name a month
  } else {
    t->month = sch::wrapping_sub(t->month, 1);
  }
  t->year = t->year == -1 ? now->tm_year : sch::wrapping_sub(t->year, 1900);

  if (incremental) normalize_incremental_time(t);
  return sch_verify_tminfo(t);
}
