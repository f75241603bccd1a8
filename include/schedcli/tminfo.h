/* Schedule times: the tminfo record, the operator's time strings, their range checks, and the
 * wait until a schedule's next run.
 *
 * Conventions of this boundary:
 * - Every function works on local time as the system library sees it (TZ, time, localtime_r,
 *   mktime); none keeps state, all are reentrant.
 * - Pointers must not be NULL; text arguments are NUL-terminated strings of any content.
 * - The record is the caller's; a function writes only the words its contract names.
 * - Failures are negative results: -1 and -2 from the parser, the scheduler's status words
 *   (schedcli/status.h) negated from the checks. Nothing here prints an error; every notable step
 *   emits a debug trace at level 103. */
#ifndef SCHEDCLI_TMINFO_H
#define SCHEDCLI_TMINFO_H

#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>
#include <time.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

/* A schedule's "when": ten native 32-bit words. The record is part of the stored schedule and of
 * requests, where the codec writes each word big-endian at the offset below: never reorder.
 *
 *   off field         meaning
 *    0  type          schedule kind, SCH_TM_* (0, 2, 6: no kind)
 *    4  hour          0..23; type 7: hours of the repeat interval
 *    8  day_of_week   1..7, 1 = Sunday; type 7: days of the repeat interval
 *   12  day_of_month  1..31
 *   16  minute        0..59; type 7: minutes of the repeat interval
 *   20  month         as parsed 1..12; once completed (get_start_time) 0..11
 *   24  year          as parsed the year typed; once completed years since 1900
 *   28  start_time    type 7: first run, seconds since the epoch
 *   32  last_time     type 7: the run the daemon last armed (seconds); 0 when never armed
 *   36  reserved      0 */
typedef struct tminfo {
  int32_t type;
  int32_t hour;
  int32_t day_of_week;
  int32_t day_of_month;
  int32_t minute;
  int32_t month;
  int32_t year;
  int32_t start_time;
  int32_t last_time;
  int32_t reserved;
} tminfo;

#ifdef __cplusplus
#define SCH_TMINFO_ASSERT(condition, message) static_assert(condition, message)
#else
#define SCH_TMINFO_ASSERT(condition, message) _Static_assert(condition, message)
#endif
SCH_TMINFO_ASSERT(sizeof(tminfo) == 40, "tminfo is 40 bytes");
SCH_TMINFO_ASSERT(offsetof(tminfo, type) == 0, "tminfo.type");
SCH_TMINFO_ASSERT(offsetof(tminfo, hour) == 4, "tminfo.hour");
SCH_TMINFO_ASSERT(offsetof(tminfo, day_of_week) == 8, "tminfo.day_of_week");
SCH_TMINFO_ASSERT(offsetof(tminfo, day_of_month) == 12, "tminfo.day_of_month");
SCH_TMINFO_ASSERT(offsetof(tminfo, minute) == 16, "tminfo.minute");
SCH_TMINFO_ASSERT(offsetof(tminfo, month) == 20, "tminfo.month");
SCH_TMINFO_ASSERT(offsetof(tminfo, year) == 24, "tminfo.year");
SCH_TMINFO_ASSERT(offsetof(tminfo, start_time) == 28, "tminfo.start_time");
SCH_TMINFO_ASSERT(offsetof(tminfo, last_time) == 32, "tminfo.last_time");
SCH_TMINFO_ASSERT(offsetof(tminfo, reserved) == 36, "tminfo.reserved");
#undef SCH_TMINFO_ASSERT

/* Schedule kinds (tminfo.type). These values are stored: never renumber. */
#define SCH_TM_ONESHOT 1 /* once, at a calendar date and time */
#define SCH_TM_DAILY 3
#define SCH_TM_WEEKLY 4
#define SCH_TM_MONTHLY 5
#define SCH_TM_REPEAT 7  /* from start_time on, every day_of_week/hour/minute */

/* Parser results besides 0. */
#define SCH_TM_BAD_SHAPE (-1) /* the text begins with ':' or has more than five fields */
#define SCH_TM_BAD_FIELD (-2) /* a field is neither a number nor an accepted name */

/* "Sun".."Sat" (entries 0..6), then "Jan".."Dec" (entries 7..18). */
SCHED_EXPORT extern const char *const sch_time_names[19];

/* Parses an operator's time string of one to five colon-separated fields, MM, HH:MM, D:HH:MM,
 * M:D:HH:MM or Y:M:D:HH:MM, into `t`. Only the first 17 characters count. Writes only the words
 * the text gives (minute, hour, then day_of_week for three fields or day_of_month and month for
 * four and five, then year as typed); callers preset the words they want to tell absent to -1.
 * Days and months may be numbers or names (matched on three letters, any case; in the four- and
 * five-field shapes the day takes day names). No range checks, no clock.
 * Returns 0, SCH_TM_BAD_SHAPE or SCH_TM_BAD_FIELD; on failure the words read before the failing
 * field stay written. */
SCHED_EXPORT int sch_parse_str_to_tminfo(const char *text, tminfo *t);

/* Looks `text` up among the first `count` entries of `names` by its first three characters,
 * ignoring case: on a match stores the entry's position + 1 in `*out` and returns 99. Otherwise
 * returns what sscanf(text, "%d", out) returns (1 when a number was stored). */
SCHED_EXPORT int get_val(const char *text, const char *const *names, int count, int *out);

/* Range check of a record by its type (types 1, 3, 4, 5 and 7; others pass). Returns 0,
 * -(int)SCH_STATUS_OUT_OF_RANGE for a bad hour, minute, day, month or year (for a one-shot also
 * a day beyond the month, or a date the system's time values cannot hold: past January 2038
 * where they are 32-bit), or -(int)SCH_STATUS_TIME_IN_PAST when a one-shot time or a type-7
 * start lies before the current second. Reads the clock; never writes. */
SCHED_EXPORT int sch_verify_tminfo(const tminfo *t);

/* Completes a one-shot record from `text` (any parser shape, or '+' and up to three fields for a
 * time relative to now) and `now`, the caller's localtime_r of the current time. Sets type 1,
 * month 0..11 and years since 1900; missing fields come from `now`. Returns
 * -(int)SCH_STATUS_TIME_FORMAT when the text does not parse or a relative time names a month,
 * otherwise sch_verify_tminfo's result (the record then complete). After a format failure the
 * record holds partial values: discard it. */
SCHED_EXPORT int get_start_time(const char *text, tminfo *t, const struct tm *now);

/* `day` clamped to the length of `month` (0..11) of `year` (since 1900) where it is 29, 30 or 31;
 * every year divisible by 4 has 29 February. Other days, and months above 10, come back as
 * given. */
SCHED_EXPORT int normalize_day_of_month(int year, unsigned int month, int day);

/* Carries overflowing minute, hour, day_of_month and month of a completed record into the larger
 * words (75 minutes into the next hour, day 32 into the next month). The fields are read as
 * standard time, so the hour moves on by the daylight-saving shift while it is in force.
 * day_of_week is left alone. A date the system's time values cannot hold (past January 2038
 * where they are 32-bit) is left uncarried. */
SCHED_EXPORT void normalize_incremental_time(tminfo *t);

/* Seconds since the epoch of a completed record's date and time at second 0, the fields read as
 * standard time (daylight-saving flag 0, intended: one-shot displays and timers agree on it);
 * -1 when mktime fails. */
SCHED_EXPORT time_t mktime_from_tminfo(const tminfo *t);

/* Debug dumps at trace level 103: the record's words but last_time and reserved; an interval
 * pair (seconds, microseconds). */
SCHED_EXPORT void print_tminfo(const tminfo *t);
SCHED_EXPORT void print_timeval(const int32_t pair[2]);

/* The repeat interval of a type-7 record in seconds: day_of_week days + hour hours + minute
 * minutes, unchecked, in 32-bit unsigned arithmetic. Always returns 0. */
SCHED_EXPORT int sch_compute_delta(const tminfo *t, uint32_t *seconds);

/* The next run of a schedule of type 1, 3, 4, 5 or 7 from the current time. Returns 0 with
 * `*next` = that run's time and `*interval` = { *next - now, 0 } (0 seconds is valid); returns -1
 * when the run lies in the past (interval set to { 0, 0 }, next untouched) or the type has no
 * schedule kind (both untouched). Daily, weekly and monthly times equal to the current second go
 * to the next period, and are read with the daylight-saving flag in force now; type 7 never
 * catches up on missed runs, and a type-7 run that does not fit the record's signed 32-bit
 * seconds (past January 2038) is no run (-1, interval { 0, 0 }). */
SCHED_EXPORT int sch_compute_timer_interval(const tminfo *t, struct timeval *interval,
                                            time_t *next);

SCHED_END_DECLS

#endif
