// The wait until a schedule's next run, from its tminfo and the current time.
#include <cstdint>
#include <ctime>

#include "diag/trace.h"
#include "schedcli/tminfo.h"
#include "time/int32_wrap.h"

namespace {

constexpr uint32_t kSecondsPerDay = 86400;
constexpr uint32_t kSecondsPerHour = 3600;
constexpr uint32_t kSecondsPerMinute = 60;
constexpr int32_t kDaysPerWeek = 7;

// Every branch edits `next` (a copy of now, so it carries now's daylight-saving flag into
// mktime) and decides on the calendar fields, except the same-day cases, which ask mktime.
// A time equal to the current second goes to the next period, as intended: the comparisons are
// next > now.

time_t daily(const tminfo *t, struct tm *next, time_t now) {
  next->tm_min = t->minute;
  next->tm_hour = t->hour;
  time_t result = mktime(next);
  if (result > now) {
    sch::trace(sch::kTraceRecord, "interval on current day");
    return result;
  }
  sch::trace(sch::kTraceRecord, "interval on next day");
  next->tm_mday = sch::wrapping_add(next->tm_mday, 1);
  return mktime(next);
}

time_t weekly(const tminfo *t, struct tm *next, const struct tm &today_tm, time_t now) {
  next->tm_hour = t->hour;
  next->tm_min = t->minute;
  int32_t target = sch::wrapping_sub(t->day_of_week, 1);  // 0 = Sunday, as tm_wday counts
  int32_t today = today_tm.tm_wday;
  if (today < target) {
    sch::trace(sch::kTraceRecord, "interval within current week");
    next->tm_mday = sch::wrapping_add(next->tm_mday, sch::wrapping_sub(target, today));
  } else if (today == target) {
    if (mktime(next) <= now) next->tm_mday = sch::wrapping_add(next->tm_mday, kDaysPerWeek);
  } else {
    sch::trace(sch::kTraceRecord, "interval in next week");
    int32_t ahead = sch::wrapping_sub(sch::wrapping_add(target, kDaysPerWeek), today);
    next->tm_mday = sch::wrapping_add(next->tm_mday, ahead);
  }
  return mktime(next);
}

time_t monthly(const tminfo *t, struct tm *next, const struct tm &today_tm, time_t now) {
  next->tm_hour = t->hour;
  next->tm_min = t->minute;
  int day = normalize_day_of_month(today_tm.tm_year, static_cast<unsigned>(today_tm.tm_mon),
                                   t->day_of_month);
  int today = today_tm.tm_mday;
  if (day > today) {
    sch::trace(sch::kTraceRecord, "interval in current month");
    next->tm_mday = day;
  } else if (day == today) {
    if (mktime(next) <= now) {
      // Not clamped, unlike the branch below, and intended: the 31st examined on 31 January
      // after its time becomes "31 February", which mktime rolls into March.
      next->tm_mday = t->day_of_month;
      next->tm_mon = sch::wrapping_add(next->tm_mon, 1);
    }
  } else {
    sch::trace(sch::kTraceRecord, "interval incrementing to next month");
    next->tm_mday = normalize_day_of_month(
        today_tm.tm_year, static_cast<unsigned>(today_tm.tm_mon) + 1, t->day_of_month);
    next->tm_mon = sch::wrapping_add(next->tm_mon, 1);  // mktime rolls December into January
  }
  return mktime(next);
}

// Start, last run and interval are 32-bit words of the stored record. No catching up: a run
// missed while the daemon was down leaves the schedule without a timer, and a start that passed
// before the first run moves the first run one interval after now. Returns false when the next
// run does not fit the record's 32-bit seconds (past January 2038), which the daemon could not
// keep as the last run: no timer then, rather than one wrapped to another date.
bool repeat(const tminfo *t, time_t now, time_t *next) {
  uint32_t delta = 0;
  sch_compute_delta(t, &delta);
  // The interval is a 32-bit word as on the target, where a "negative" one (a damaged record)
  // counts backwards.
  int64_t interval = static_cast<int32_t>(delta);
  int64_t start = t->start_time;
  int64_t last = t->last_time;
  int64_t result = last >= start ? last + interval : start > now ? start : now + interval;
  if (!sch::fits_time_word(result)) return false;
  *next = static_cast<time_t>(result);
  return true;
}

void trace_time(const char *label, time_t value) {
  char text[32];
  const char *shown = ctime_r(&value, text);
  sch::trace(sch::kTraceRecord, "%s %s", label, shown != nullptr ? shown : "?\n");
}

}  // namespace

extern "C" {

int sch_compute_delta(const tminfo *t, uint32_t *seconds) {
  *seconds = static_cast<uint32_t>(t->day_of_week) * kSecondsPerDay +
             static_cast<uint32_t>(t->hour) * kSecondsPerHour +
             static_cast<uint32_t>(t->minute) * kSecondsPerMinute;
  return 0;
}

int sch_compute_timer_interval(const tminfo *t, struct timeval *interval, time_t *next) {
  time_t now = time(nullptr);
  struct tm now_tm {};
  localtime_r(&now, &now_tm);
  struct tm next_tm = now_tm;
  next_tm.tm_sec = 0;

  time_t result = 0;
  switch (static_cast<uint32_t>(t->type)) {
    case SCH_TM_ONESHOT:
      result = mktime_from_tminfo(t);
      break;
    case SCH_TM_DAILY:
      result = daily(t, &next_tm, now);
      break;
    case SCH_TM_WEEKLY:
      result = weekly(t, &next_tm, now_tm, now);
      break;
    case SCH_TM_MONTHLY:
      result = monthly(t, &next_tm, now_tm, now);
      break;
    case SCH_TM_REPEAT:
      if (!repeat(t, now, &result)) {
        sch::trace(sch::kTraceRecord, "next run beyond 32-bit time");
        *interval = {};
        return -1;
      }
      break;
    default:
      return -1;  // no schedule kind: outputs untouched
  }

  trace_time("Future", result);
  trace_time("Now", now);
  if (result < now) {
    *interval = {};
    return -1;
  }
  *next = result;
  interval->tv_sec = result - now;
  interval->tv_usec = 0;
  return 0;
}

}  // extern "C"
