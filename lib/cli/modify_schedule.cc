// The commands of a schedule's mode: its time (one-shot, daily, weekly, monthly, start and
// repeat) and the jobs it runs. Time strings are parsed and checked here, before anything is
// sent, so a refused string leaves the daemon's schedule as it was.
#include <cstdio>
#include <ctime>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "diag/trace.h"
#include "schedcli/status.h"
#include "schedcli/tminfo.h"
#include "time/int32_wrap.h"

using namespace sch::cli;

namespace {

constexpr uint32_t kRefused = static_cast<uint32_t>(-1);
// A repeat without a start time begins this far ahead, so that its first run isn't missed.
constexpr time_t kDefaultStartDelay = 120;
constexpr uint32_t kShortestInterval = 60;

// Why a time string was refused: the status word and the form sch_cli_disp_error explains, or
// kind 0 when the operator has been told already.
struct Refusal {
  uint32_t code = 0;
  int kind = 0;
};

// The clock as each time command reads it: once, at the start of the command.
struct Now {
  time_t seconds;
  struct tm local;
};

uint32_t parse(const char *text, tminfo *t) {
  return text && sch_parse_str_to_tminfo(text, t) >= 0 ? 0 : SCH_STATUS_TIME_FORMAT;
}

uint32_t verify(const tminfo *t) {
  int checked = sch_verify_tminfo(t);
  return checked < 0 ? static_cast<uint32_t>(-checked) : 0;
}

// A one-shot time completed from `now`: 0 or the status word.
uint32_t complete_start(const char *text, tminfo *t, const Now &now) {
  int completed = text ? get_start_time(text, t, &now.local) : -static_cast<int>(SCH_STATUS_TIME_FORMAT);
  return completed < 0 ? static_cast<uint32_t>(-completed) : 0;
}

uint32_t read_daily(const char *text, tminfo *t, const Now &now) {
  sch::trace(sch::kTraceRecord, "daily <%s>", or_empty(text));
  t->hour = -1;
  if (uint32_t code = parse(text, t)) return code;
  t->type = SCH_TM_DAILY;
  if (t->hour == -1) t->hour = now.local.tm_hour;
  return verify(t);
}

uint32_t read_weekly(const char *text, tminfo *t, const Now &now) {
  sch::trace(sch::kTraceRecord, "weekly <%s>", or_empty(text));
  t->hour = t->day_of_week = -1;
  if (uint32_t code = parse(text, t)) return code;
  t->type = SCH_TM_WEEKLY;
  if (t->hour == -1) t->hour = now.local.tm_hour;
  if (t->day_of_week == -1) t->day_of_week = now.local.tm_wday + 1;  // 1 = Sunday
  return verify(t);
}

uint32_t read_monthly(const char *text, tminfo *t, const Now &now) {
  sch::trace(sch::kTraceRecord, "monthly <%s>", or_empty(text));
  t->hour = t->day_of_week = -1;
  if (uint32_t code = parse(text, t)) return code;
  t->type = SCH_TM_MONTHLY;
  if (t->hour == -1) t->hour = now.local.tm_hour;
  // The parser leaves the day of a D:HH:MM text in the day-of-week word.
  t->day_of_month = t->day_of_week != -1 ? t->day_of_week : now.local.tm_mday;
  t->day_of_week = 0;
  return verify(t);
}

Refusal read_oneshot(const char *text, tminfo *t, const Now &now) {
  sch::trace(sch::kTraceRecord, "oneshot <%s>", or_empty(text));
  uint32_t code = complete_start(text, t, now);
  if (code) print_tminfo(t);
  return {code, SCH_MODIFY_ONESHOT};
}

// Start and repeat. `*announced_start` is set when no start was given and it is taken as now
// plus the delay.
Refusal read_start_repeat(const sch_cli_context *context, tminfo *t, const Now &now, time_t *announced_start) {
  int64_t start;
  const char *repeat;
  if (context->param_count == 2) {
    start = int64_t{now.seconds} + kDefaultStartDelay;
    *announced_start = static_cast<time_t>(start);
    repeat = param_string(context, 1);
  } else {
    if (uint32_t code = complete_start(param_string(context, 1), t, now)) return {code, SCH_MODIFY_ONESHOT};
    start = mktime_from_tminfo(t);
    repeat = param_string(context, 2);
  }

  t->day_of_month = t->year = t->month = -1;
  t->day_of_week = t->hour = 0;
  if (parse(repeat, t)) return {SCH_STATUS_TIME_FORMAT, SCH_MODIFY_START_REPEAT};
  t->type = SCH_TM_REPEAT;
  // The record holds signed 32-bit seconds: a start past January 2038 is refused, not cut.
  if (!sch::fits_time_word(start)) return {SCH_STATUS_OUT_OF_RANGE, SCH_MODIFY_START_REPEAT};
  t->start_time = static_cast<int32_t>(start);
  // Whatever the checker found, the operator is told the value is out of range.
  if (verify(t)) return {SCH_STATUS_OUT_OF_RANGE, SCH_MODIFY_START_REPEAT};
  uint32_t interval = 0;
  sch_compute_delta(t, &interval);
  if (interval < kShortestInterval) {
    std::puts("Interval cannot be zero");
    return {kRefused, 0};
  }
  return {};
}

// Fills the request's time or job for its sub-command. Returns the refusal, if any.
Refusal fill(const sch_cli_context *context, sch_modify_schedule_request *request, time_t *announced_start) {
  Now now{};
  now.seconds = time(nullptr);
  localtime_r(&now.seconds, &now.local);
  const char *text = param_string(context, 1);
  tminfo *t = &request->time;

  switch (request->code) {
    case SCH_MODIFY_DAILY:
      return {read_daily(text, t, now), SCH_MODIFY_DAILY};
    case SCH_MODIFY_WEEKLY:
      return {read_weekly(text, t, now), SCH_MODIFY_WEEKLY};
    case SCH_MODIFY_MONTHLY:
      return {read_monthly(text, t, now), SCH_MODIFY_MONTHLY};
    case SCH_MODIFY_ONESHOT:
      return read_oneshot(text, t, now);
    case SCH_MODIFY_START_REPEAT:
      return read_start_repeat(context, t, now, announced_start);
    case SCH_MODIFY_JOB:
      sch::trace(sch::kTraceRecord, "job assign deassign");
      put_string(request->job, text);
      sch::trace(sch::kTraceRecord, "job name <%s>", request->job);
      return {};
    case SCH_MODIFY_JOB_NO_NAME:
      t->type = 0;  // and the job name stays empty
      return {};
    default:
      // Any other code is sent as it is, with no time.
      return {};
  }
}

}  // namespace

extern "C" uint32_t sch_cli_modify_schedule(sch_cli_context *context) {
  cli_debug = context->debug;
  if (!pass_gate(context)) return 255;

  RequestImage image(sizeof(sch_modify_schedule_request));
  if (!image.ok()) return 2;
  sch_modify_schedule_request request{};
  request.header.type = SCH_REQ_MODIFY_SCHEDULE;
  request.header.length = sizeof request - sizeof request.header;
  put_string(request.schedule, param_string(context, 0));

  // Only the job commands have a no form; a time is replaced, never removed.
  uint32_t code = context->command_code;
  if (context->no_flag && code != SCH_MODIFY_JOB && code != SCH_MODIFY_JOB_NO_NAME) {
    std::puts("Invalid command");
    return kRefused;
  }
  request.no_flag = context->no_flag ? 1 : 0;
  request.code = code;
  sch::trace(sch::kTraceRecord, "modify schedule %s", request.schedule);

  time_t announced_start = 0;
  Refusal refusal = fill(context, &request, &announced_start);
  if (refusal.code) {
    if (refusal.kind) sch_cli_disp_error(refusal.code, refusal.kind);
    return kRefused;
  }

  print_tminfo(&request.time);
  sch::trace(sch::kTraceRecord, code == SCH_MODIFY_JOB ? "enqueing request for job assign/deassign"
                                                       : "time schedule change");
  image.encode(SCH_WIRE_MODIFY_SCHEDULE_REQUEST, &request);

  uint32_t result = send_config(caller_of(context), image);
  if (result != 0) {
    const char *text = "Error: modify schedule failed";
    if (code == SCH_MODIFY_JOB) text = context->no_flag ? "Error: could not deassign job" : "Error: could not assign job";
    print_error(text, result);
    return result;
  }
  if (announced_start) {
    char when[64];
    // ctime_r's text ends the line.
    if (ctime_r(&announced_start, when)) std::printf("Schedule starts from %s", when);
  }
  return 0;
}
