// The model's schedule changes: create, set the time, assign and unassign jobs, delete.
#include <cstdint>
#include <cstring>

#include "config/database.h"
#include "config/deleters.h"
#include "config/fields.h"
#include "config/model.h"
#include "config/names.h"
#include "cli/request.h"
#include "db/alloc_kinds.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/status.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

// A repeat more often than this would keep the daemon busy running one schedule.
constexpr int64_t kShortestRepeatSeconds = 60;
// The shell types a repeat's days, hours and minutes with two digits each; a larger field would
// show in the configuration's text as an interval the shell refuses when the text is pasted back.
constexpr int32_t kLargestRepeatField = 99;

// The shell has checked the time already; this keeps a record the timers could not use out of
// the store. A time that has passed meanwhile is not refused: the timers skip it.
uint32_t check_time(uint32_t code, const tminfo &time) {
  if (static_cast<uint32_t>(time.type) != code) return SCH_STATUS_BAD_REQUEST;
  if (sch_verify_tminfo(&time) == -static_cast<int>(SCH_STATUS_OUT_OF_RANGE)) return SCH_STATUS_OUT_OF_RANGE;
  if (code == SCH_MODIFY_START_REPEAT) {
    for (int32_t field : {time.day_of_week, time.hour, time.minute}) {
      if (field < 0 || field > kLargestRepeatField) return SCH_STATUS_OUT_OF_RANGE;
    }
    int64_t seconds = int64_t{time.day_of_week} * 86400 + int64_t{time.hour} * 3600 + int64_t{time.minute} * 60;
    if (seconds < kShortestRepeatSeconds) return SCH_STATUS_OUT_OF_RANGE;
  }
  return 0;
}

bool of_schedule(const sch_runtime_job_status &result, const char *schedule) {
  return std::strncmp(result.schedule, schedule, SCH_NAME_SIZE) == 0;
}

// Drops the schedule's run results from every job, in the runtime database first.
uint32_t delete_schedule_results(const char *schedule) {
  uint32_t status = durably(pss_running_db, [&] {
    for (int id = 0; id < SCH_MAX_JOBS; id++) {
      for (GList *element = database()->jobs[id].run_results; element; element = element->next) {
        auto *result = static_cast<sch_runtime_job_status *>(element->data);
        if (of_schedule(*result, schedule) && !delete_run_result_record(pss_running_db, *result)) return false;
      }
    }
    return true;
  });
  if (status != 0) return status;
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    GList *&results = database()->jobs[id].run_results;
    for (GList *element = results; element;) {
      GList *next = element->next;
      auto *result = static_cast<sch_runtime_job_status *>(element->data);
      if (of_schedule(*result, schedule)) {
        results = g_list_delete_link(results, element);
        mtrack_free(result);
      }
      element = next;
    }
  }
  return 0;
}

}  // namespace

bool Model::has_schedule(std::string_view name) const { return find_schedule(name) != nullptr; }

uint32_t Model::create_schedule(std::string_view name, std::string_view user) {
  if (!valid_new_name(name)) return SCH_STATUS_BAD_REQUEST;
  if (find_schedule(name)) return SCH_STATUS_EXISTS;

  auto *key = static_cast<sch_config_key *>(
      sch_malloc_check(sizeof(sch_config_key), sch::alloc::kKeyCopy, 0, sch::alloc::kAddScheduleEntry));
  auto *record = static_cast<sch_schedule_record *>(
      sch_malloc_check(sizeof(sch_schedule_record), sch::alloc::kSchedule, 0, sch::alloc::kAddScheduleEntry));
  sch_schedule_entry *schedule = nullptr;
  if (!key || !record || sch_add_schedule_entry(database(), key, record, &schedule) != 0) {
    mtrack_free(key);
    mtrack_free(record);
    return SCH_STATUS_NO_MEMORY;
  }
  key->type = SCH_REC_SCHEDULE;
  copy_text(key->name, name);
  copy_text(record->user, user);
  give_listing_serial(schedule);
  uint32_t status = durably(pss_running, [&] { return sch_save_schedule_entry_to_pss(pss_running, schedule) == 0; });
  if (status != 0) {
    sch_free_schedule_entry(database(), schedule_element(schedule));
    return status;
  }
  announce(ChangeKind::schedule_added, name);
  return 0;
}

uint32_t Model::set_schedule_time(std::string_view name, uint32_t code, const tminfo &time, std::string_view user) {
  sch_schedule_entry *schedule = find_schedule(name);
  if (!schedule) return SCH_STATUS_NO_SUCH_SCHEDULE;
  if (uint32_t status = check_time(code, time)) return status;
  sch_schedule_record record = *schedule->value;
  record.time = time;
  // Whoever sets the time answers for the runs: the jobs run as that user.
  copy_text(record.user, user);
  if (uint32_t status = save_schedule(schedule, record)) return status;
  announce(ChangeKind::schedule_changed, name);
  return 0;
}

uint32_t Model::assign_job(std::string_view schedule_name, std::string_view job_name, bool assigned) {
  sch_schedule_entry *schedule = find_schedule(schedule_name);
  if (!schedule) return SCH_STATUS_NO_SUCH_SCHEDULE;
  NameField job_field(job_name);
  sch_job_slot *job = nullptr;
  int id = job_field.fits ? sch_find_job(database(), job_field.text, &job) : -1;
  if (id < 0) return SCH_STATUS_NO_SUCH_JOB;
  if (job_assigned(*schedule->value, id) == assigned) return 0;
  sch_schedule_record record = *schedule->value;
  set_job_assigned(&record, id, assigned);
  if (uint32_t status = save_schedule(schedule, record)) return status;
  announce(ChangeKind::schedule_changed, schedule_name);
  return 0;
}

uint32_t Model::unassign_every_job(std::string_view name) {
  sch_schedule_entry *schedule = find_schedule(name);
  if (!schedule) return SCH_STATUS_NO_SUCH_SCHEDULE;
  sch_schedule_record record = *schedule->value;
  clear_assigned_jobs(&record);
  if (uint32_t status = save_schedule(schedule, record)) return status;
  announce(ChangeKind::schedule_changed, name);
  return 0;
}

uint32_t Model::delete_schedule(std::string_view name) {
  sch_schedule_entry *schedule = find_schedule(name);
  if (!schedule) return SCH_STATUS_NO_SUCH_SCHEDULE;
  NameField field(name);
  sch_schedule_email_entry *emails = nullptr;
  sch_find_schedule_email_entry(&sch_schedule_email_list, field.text, &emails);

  // A schedule created later under the same name starts without the old one's results.
  if (uint32_t status = delete_schedule_results(field.text)) return status;
  uint32_t status = durably(pss_running, [&] {
    return delete_schedule_record(pss_running, *schedule) &&
           (!emails || delete_schedule_email_record(pss_running, *emails));
  });
  if (status != 0) return status;
  if (emails) {
    sch_schedule_email_list = g_list_remove(sch_schedule_email_list, emails);
    mtrack_free(emails);
  }
  sch_free_schedule_entry(database(), schedule_element(schedule));
  announce(ChangeKind::schedule_deleted, name);
  return 0;
}

}  // namespace schedd
