// Debug dumps of a tminfo and of a timer interval.
#include "diag/trace.h"
#include "schedcli/tminfo.h"

extern "C" {

void print_tminfo(const tminfo *t) {
  sch::trace(sch::kTraceRecord, "schedule type: %d", t->type);
  sch::trace(sch::kTraceRecord, "year         : %d", t->year);
  sch::trace(sch::kTraceRecord, "month        : %d", t->month);
  sch::trace(sch::kTraceRecord, "day of month : %d", t->day_of_month);
  sch::trace(sch::kTraceRecord, "day of week  : %d", t->day_of_week);
  sch::trace(sch::kTraceRecord, "hour         : %d", t->hour);
  sch::trace(sch::kTraceRecord, "minute       : %d", t->minute);
  sch::trace(sch::kTraceRecord, "start time   : %d", t->start_time);
}

void print_timeval(const int32_t pair[2]) {
  sch::trace(sch::kTraceRecord, "seconds %d", pair[0]);
  sch::trace(sch::kTraceRecord, "micro seconds %d", pair[1]);
}

}  // extern "C"
