// How show configuration prints a job and a schedule: as the command blocks that recreate them.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "schedcli/cli_config.h"
#include "schedcli/wire.h"

namespace {

// Where the pieces of a time line go: standard output, or a caller's string.
class TimeLine {
 public:
  static constexpr size_t kPieceLimit = 4;

  explicit TimeLine(char *destination) : destination_(destination) {}

  void piece(const char *format, ...) __attribute__((format(printf, 2, 3))) {
    va_list args;
    va_start(args, format);
    if (!destination_) {
      std::vprintf(format, args);
    } else {
      char scratch[128];
      std::vsnprintf(scratch, sizeof scratch, format, args);
      // Only four characters of each piece are appended, as strncat with 4 would ("time daily "
      // arrives as "time"): intended, the limit is part of this form.
      size_t used = std::strlen(destination_);
      size_t kept = strnlen(scratch, kPieceLimit);
      std::memcpy(destination_ + used, scratch, kept);
      destination_[used + kept] = '\0';
    }
    va_end(args);
  }

  // The hour (when there is one) and the minute of a daily, weekly or monthly time.
  void clock(const tminfo *t) {
    if (t->hour >= 0) piece("%02d:", t->hour);
    piece("%02d\n", t->minute);
  }

 private:
  char *destination_;
};

constexpr size_t kEmailBlockOffset = offsetof(sch_schedule_reply, any_email);
constexpr size_t kEmailSlotsOffset = offsetof(sch_schedule_reply, emails) - kEmailBlockOffset;

}  // namespace

extern "C" {

void print_config_job(const void *reply) {
  const auto *bytes = static_cast<const uint8_t *>(reply);
  sch_job_reply head;
  sch_wire_decode(SCH_WIRE_JOB_REPLY, bytes, sizeof head, &head);
  std::puts("config terminal");
  // One leading blank here, two before the schedule's line: intended.
  std::printf(" scheduler job name %.*s\n", sch::cli::name_length(head.name), head.name);
  // The text brings its own newlines.
  if (head.text_length > 0) std::fwrite(bytes + sizeof head, 1, static_cast<size_t>(head.text_length), stdout);
  std::puts("end\n");
}

void print_config_schedule(const void *reply) {
  const auto *bytes = static_cast<const uint8_t *>(reply);
  sch_schedule_reply head;
  sch_wire_decode(SCH_WIRE_SCHEDULE_REPLY, bytes, sizeof head, &head);
  std::puts("config terminal");
  // The four blanks after the newline indent the time line that follows.
  std::printf("  scheduler schedule name %.*s\n    ", sch::cli::name_length(head.name), head.name);
  print_config_schedule_type(&head.time, nullptr);
  for (uint32_t i = 0; i < head.job_count; i++) {
    sch_schedule_reply_job job;
    sch_wire_decode(SCH_WIRE_SCHEDULE_REPLY_JOB, bytes + sizeof head + i * sizeof job, sizeof job, &job);
    char name[SCH_NAME_SIZE + 1] = {};
    std::memcpy(name, job.name, sizeof job.name);
    print_config_assigned_job(name);
  }
  print_config_schedule_email_addr(bytes + kEmailBlockOffset);
  std::puts("end");
}

void print_config_schedule_type(const tminfo *t, char *destination) {
  TimeLine line(destination);
  switch (t->type) {
    case SCH_TM_ONESHOT:
      line.piece("time start %d:%02d:%02d:%02d:%02d\n", t->year + 1900, t->month + 1, t->day_of_month, t->hour,
                 t->minute);
      break;
    case SCH_TM_DAILY:
      line.piece("time daily ");
      line.clock(t);
      break;
    case SCH_TM_WEEKLY:
      line.piece("time weekly ");
      if (t->day_of_week >= 1) line.piece("%02d:", t->day_of_week);
      line.clock(t);
      break;
    case SCH_TM_MONTHLY:
      line.piece("time monthly ");
      if (t->day_of_month >= 1) line.piece("%02d:", t->day_of_month);
      line.clock(t);
      break;
    case SCH_TM_REPEAT: {
      time_t start = t->start_time;
      struct tm local {};
      localtime_r(&start, &local);
      line.piece("time start %d:%02d:%02d:%02d:%02d repeat ", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                 local.tm_hour, local.tm_min);
      // The repeat interval: days, hours and minutes, leading zero parts left out.
      if (t->day_of_week > 0) line.piece("%d:", t->day_of_week);
      if (t->hour >= 1 || t->day_of_week >= 1) line.piece("%d:", t->hour);
      line.piece("%d\n", t->minute);
      break;
    }
    default:
      break;
  }
}

void print_config_assigned_job(const char *job_name) { std::printf("    job name %s\n", job_name); }

void print_config_schedule_email_addr(const void *email_block) {
  const auto *block = static_cast<const uint8_t *>(email_block);
  if (sch_wire_get_u32(block) == 0) return;
  for (int i = 0; i < SCH_MAX_EMAILS; i++) {
    const uint8_t *slot = block + kEmailSlotsOffset + i * sizeof(sch_email_slot);
    if (sch_wire_get_u32(slot + offsetof(sch_email_slot, in_use)) == 0) continue;
    const char *address = reinterpret_cast<const char *>(slot);
    std::printf("    email-addr %.*s\n", static_cast<int>(strnlen(address, SCH_EMAIL_SIZE)), address);
  }
}

}  // extern "C"
