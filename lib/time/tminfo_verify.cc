// Range checks of a tminfo by its schedule kind.
#include <cstdint>
#include <ctime>

#include "schedcli/tminfo.h"
#include "time/time_status.h"

namespace {

// Unsigned on purpose: a negative hour fails the same test as 24.
bool hour_out_of_range(const tminfo *t) { return static_cast<uint32_t>(t->hour) > 23; }
bool minute_out_of_range(const tminfo *t) { return t->minute < 0 || t->minute > 59; }
bool day_of_month_out_of_range(const tminfo *t) {
  return t->day_of_month < 1 || t->day_of_month > 31;
}

int check_one_shot(const tminfo *t, time_t now) {
  if (hour_out_of_range(t) || minute_out_of_range(t) || day_of_month_out_of_range(t) ||
      t->month < 0 || t->month > 11 || t->year < 0 ||
      normalize_day_of_month(t->year, static_cast<unsigned>(t->month), t->day_of_month) !=
          t->day_of_month) {
    return sch::kTimeOutOfRange;
  }
  time_t when = mktime_from_tminfo(t);
  // A date the system's time values cannot hold (past January 2038 where they are 32-bit) is out
  // of range rather than taken for mktime's -1, a second in 1969.
  if (when == -1) return sch::kTimeOutOfRange;
  // The current second itself is still acceptable.
  return now <= when ? 0 : sch::kTimeInPast;
}

}  // namespace

extern "C" int sch_verify_tminfo(const tminfo *t) {
  time_t now = time(nullptr);
  // Unsigned, so that negative codes count as unknown kinds with nothing to check.
  switch (static_cast<uint32_t>(t->type)) {
    case SCH_TM_ONESHOT:
      return check_one_shot(t, now);
    case SCH_TM_DAILY:
      return hour_out_of_range(t) || minute_out_of_range(t) ? sch::kTimeOutOfRange : 0;
    case SCH_TM_WEEKLY:
      return hour_out_of_range(t) || minute_out_of_range(t) || t->day_of_week < 1 ||
                     t->day_of_week > 7
                 ? sch::kTimeOutOfRange
                 : 0;
    case SCH_TM_MONTHLY:
      // Day 31 passes for every month: the next-run computation runs it on a short month's
      // last day.
      return hour_out_of_range(t) || minute_out_of_range(t) || day_of_month_out_of_range(t)
                 ? sch::kTimeOutOfRange
                 : 0;
    case SCH_TM_REPEAT:
      // The interval words are not checked here; the start/repeat command refuses short ones.
      return now <= t->start_time ? 0 : sch::kTimeInPast;
    default:
      return 0;
  }
}
