// Cost of the time functions as the shell and the daemon call them: parse and check of each
// accepted shape, completion of one-shot starts, and one next-run computation per kind.
// Every call records its debug traces in the event history, as in service.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <ctime>

#include "schedcli/tminfo.h"

namespace {

// A named zone with daylight-saving time, as on a configured switch.
void use_zone() {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
}

struct Shape {
  const char *label;
  const char *text;
  int32_t type;  // the kind the schedule command gives the record before the check
};

// The shapes that a daily, weekly or monthly schedule command parses and then checks.
constexpr Shape kRecurringShapes[] = {
    {"MM", "45", SCH_TM_DAILY},
    {"HH:MM", "10:30", SCH_TM_DAILY},
    {"D:HH:MM name", "Tue:08:00", SCH_TM_WEEKLY},
    {"D:HH:MM number", "15:08:00", SCH_TM_MONTHLY},
};

void BM_ParseVerify(benchmark::State &state) {
  use_zone();
  const Shape &shape = kRecurringShapes[state.range(0)];
  state.SetLabel(shape.label);
  for (auto _ : state) {
    tminfo t{};
    t.day_of_week = t.day_of_month = -1;
    int parsed = sch_parse_str_to_tminfo(shape.text, &t);
    if (t.day_of_month == -1) t.day_of_month = t.day_of_week;
    t.type = shape.type;
    benchmark::DoNotOptimize(parsed + sch_verify_tminfo(&t));
  }
}
BENCHMARK(BM_ParseVerify)->DenseRange(0, 3);

// One-shot starts: every shape is parsed, completed from the clock and checked.
constexpr Shape kStartShapes[] = {
    {"HH:MM", "23:59", SCH_TM_ONESHOT},
    {"D:HH:MM", "28:23:59", SCH_TM_ONESHOT},
    {"M:D:HH:MM", "Dec:31:23:59", SCH_TM_ONESHOT},
    {"Y:M:D:HH:MM", "2099:Dec:31:23:59", SCH_TM_ONESHOT},
    {"+MM relative", "+90", SCH_TM_ONESHOT},
    {"+D:HH:MM relative", "+1:02:03", SCH_TM_ONESHOT},
};

void BM_StartTime(benchmark::State &state) {
  use_zone();
  const Shape &shape = kStartShapes[state.range(0)];
  state.SetLabel(shape.label);
  time_t now = time(nullptr);
  struct tm local {};
  localtime_r(&now, &local);
  for (auto _ : state) {
    tminfo t{};
    benchmark::DoNotOptimize(get_start_time(shape.text, &t, &local));
  }
}
BENCHMARK(BM_StartTime)->DenseRange(0, 5);

void BM_NextRun(benchmark::State &state) {
  use_zone();
  time_t now = time(nullptr);
  tminfo t{};
  t.type = static_cast<int32_t>(state.range(0));
  t.hour = 10;
  t.minute = 30;
  t.day_of_week = 3;
  t.day_of_month = 31;
  switch (t.type) {
    case SCH_TM_ONESHOT:
      t.day_of_month = 1;
      t.month = 0;
      t.year = 199;  // 2099
      state.SetLabel("one-shot");
      break;
    case SCH_TM_DAILY: state.SetLabel("daily"); break;
    case SCH_TM_WEEKLY: state.SetLabel("weekly"); break;
    case SCH_TM_MONTHLY: state.SetLabel("monthly"); break;
    case SCH_TM_REPEAT:
      t.day_of_week = 0;
      t.hour = 1;
      t.start_time = static_cast<int32_t>(now - 60);
      t.last_time = static_cast<int32_t>(now + 600);  // armed: last + interval
      state.SetLabel("start and repeat");
      break;
  }
  for (auto _ : state) {
    timeval interval{};
    time_t next = 0;
    benchmark::DoNotOptimize(sch_compute_timer_interval(&t, &interval, &next));
    benchmark::DoNotOptimize(next);
  }
}
BENCHMARK(BM_NextRun)->Arg(SCH_TM_ONESHOT)->Arg(SCH_TM_DAILY)->Arg(SCH_TM_WEEKLY)
    ->Arg(SCH_TM_MONTHLY)->Arg(SCH_TM_REPEAT);

}  // namespace
