// How show schedules prints one schedule: its name, user, time, last run and the result of each
// of its jobs.
#include <cstdio>
#include <ctime>

#include "cli/request.h"
#include "cli/request_frame.h"

namespace {

// ctime_r's text of `seconds`, newline included.
const char *ctime_text(time_t seconds, char (&buffer)[64]) {
  return ctime_r(&seconds, buffer) ? buffer : "\n";
}

const char *ordinal_suffix(int32_t day) {
  // Unsigned on purpose: days 4..20 read "th", and no negative day does.
  if (static_cast<uint32_t>(day) - 4u <= 16u) return "th";
  switch (day % 10) {
    case 1:
      return "st";
    case 2:
      return "nd";
    case 3:
      return "rd";
    case 0:
    case 4:
    case 5:
    case 6:
    case 7:
    case 9:
      return "th";
    default:
      // 8 (so day 28 reads "28") and negative remainders: no suffix, intended.
      return "";
  }
}

}  // namespace

extern "C" {

void print_line(int count, int character) {
  for (int i = 0; i < count; i++) std::putc(character, stdout);
}

void print_status_heading(void) {
  static const char kRule[] = "-----------------------------------------------";  // 47
  std::puts(kRule);
  std::puts("     Job Name            Last Execution Status");
  std::puts(kRule);
}

void print_status(const void *entry, int not_run) {
  const auto *job = static_cast<const sch_schedule_reply_job *>(entry);
  int name_length = sch::cli::name_length(job->name);
  if (not_run) {
    std::printf("    %-32.*s      -NA-\n", name_length, job->name);
    return;
  }
  int code = static_cast<int>((job->status >> 8) & 0xFF);
  // A status with only its low byte set (ended by a signal) reads as a success: intended.
  if (code == 0) {
    std::printf("%-32.*s  Success (%d)\n", name_length, job->name, 0);
  } else {
    std::printf("%-32.*s  Failed  (%d)\n", name_length, job->name, code);
  }
}

void print_weekly_schedule(const tminfo *t) {
  static const char *const kDays[] = {"Sunday ",   "Monday ", "Tuesday ", "Wednesday ",
                                      "Thursday ", "Friday ", "Saturday "};
  std::fputs("Run on every ", stdout);
  bool named = t->day_of_week >= 1 && t->day_of_week <= 7;
  std::fputs(named ? kDays[t->day_of_week - 1] : "** ", stdout);
  std::printf("at %d Hrs %d Mins\n", t->hour, t->minute);
}

void print_monthly_schedule(const tminfo *t) {
  std::printf("Run on every %d%s of every month at %d Hrs %d Mins\n", t->day_of_month, ordinal_suffix(t->day_of_month),
              t->hour, t->minute);
}

void print_schedule_type(const tminfo *t) {
  std::fputs("Schedule Type       : ", stdout);
  char buffer[64];
  switch (t->type) {
    case SCH_TM_ONESHOT:
      std::printf("Run once on %s", ctime_text(mktime_from_tminfo(t), buffer));
      break;
    case SCH_TM_DAILY:
      std::printf("Run every day at %d Hrs %d Mins\n", t->hour, t->minute);
      break;
    case SCH_TM_WEEKLY:
      print_weekly_schedule(t);
      break;
    case SCH_TM_MONTHLY:
      print_monthly_schedule(t);
      break;
    case SCH_TM_REPEAT:
      // A repeat keeps its days in the day-of-week word.
      std::printf("Run every %d Days %d Hrs %d Mins\n", t->day_of_week, t->hour, t->minute);
      break;
    default:
      std::puts("None");
      break;
  }
}

void display_schedule(const void *reply) {
  const auto *bytes = static_cast<const uint8_t *>(reply);
  sch_schedule_reply head;
  sch_wire_decode(SCH_WIRE_SCHEDULE_REPLY, bytes, sizeof head, &head);
  char buffer[64];

  int name_length = sch::cli::name_length(head.name);
  std::printf("Schedule Name       : %.*s\n", name_length, head.name);
  // 22 dashes for the label, then as many as the name.
  std::fputs("----------------------", stdout);
  print_line(name_length, '-');
  std::putchar('\n');
  std::printf("User Name           : %.*s\n", sch::cli::name_length(head.user), head.user);
  print_schedule_type(&head.time);
  if (head.time.type == SCH_TM_REPEAT) std::printf("Start Time          : %s", ctime_text(head.time.start_time, buffer));

  bool never_run = head.last_execution == 0;
  if (never_run) {
    std::puts("Last Execution Time : Yet to be executed");
  } else {
    std::printf("Last Execution Time : %s", ctime_text(head.last_execution, buffer));
    if (head.last_completion != 0) std::printf("Last Completion Time: %s", ctime_text(head.last_completion, buffer));
    std::printf("Execution count     : %d\n", head.execution_count);
  }
  print_status_heading();
  if (head.job_count == 0) {
    // Ten blanks before the first run, fourteen after: both intended.
    std::puts(never_run ? "          No jobs assigned to schedule" : "              No jobs assigned to schedule");
    return;
  }
  for (uint32_t i = 0; i < head.job_count; i++) {
    sch_schedule_reply_job job;
    sch_wire_decode(SCH_WIRE_SCHEDULE_REPLY_JOB, bytes + sizeof head + i * sizeof job, sizeof job, &job);
    print_status(&job, never_run ? 1 : 0);
  }
}

}  // extern "C"
