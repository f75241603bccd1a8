// The model's record of runs: fires, job results and skipped repeats.
#include <cstring>

#include "config/database.h"
#include "config/deleters.h"
#include "config/fields.h"
#include "config/model.h"
#include "config/names.h"
#include "db/alloc_kinds.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/status.h"

namespace schedd {

namespace {

// The job's run result for the schedule, if it has one.
GList *result_of(sch_job_slot &job, const char *schedule) {
  for (GList *element = job.run_results; element; element = element->next) {
    auto *result = static_cast<sch_runtime_job_status *>(element->data);
    if (std::strncmp(result->schedule, schedule, SCH_NAME_SIZE) == 0) return element;
  }
  return nullptr;
}

}  // namespace

uint32_t Model::record_fire(std::string_view name, std::time_t instant) {
  sch_schedule_entry *schedule = find_schedule(name);
  if (!schedule) return SCH_STATUS_NO_SUCH_SCHEDULE;
  sch_schedule_record record = *schedule->value;
  record.last_execution = static_cast<uint32_t>(instant);
  record.execution_count++;
  // The next-run computation counts a repeat from the instant it last gave.
  if (record.time.type == SCH_TM_REPEAT) record.time.last_time = static_cast<int32_t>(instant);
  if (uint32_t status = save_schedule(schedule, record)) return status;
  announce(ChangeKind::schedule_fired, name);
  return 0;
}

uint32_t Model::record_job_run(std::string_view name, int job_id, uint32_t wait_status, std::time_t completion) {
  sch_schedule_entry *schedule = find_schedule(name);
  if (!schedule) return SCH_STATUS_NO_SUCH_SCHEDULE;
  if (job_id < 0 || job_id >= SCH_MAX_JOBS || !database()->jobs[job_id].key) return SCH_STATUS_NO_SUCH_JOB;
  sch_job_slot &job = database()->jobs[job_id];

  // One result per job and schedule: the store keeps one under their key, memory the same.
  sch_runtime_job_status result{};
  std::memcpy(result.schedule, schedule->key->name, SCH_NAME_SIZE);
  result.job_id = static_cast<uint32_t>(job_id);
  result.result[0] = wait_status;
  result.result[1] = static_cast<uint32_t>(completion);
  uint32_t status =
      durably(pss_running_db, [&] { return sch_save_runtime_job_status_entry_to_pss(pss_running_db, &result) == 0; });
  if (status != 0) return status;
  if (GList *kept = result_of(job, schedule->key->name)) {
    *static_cast<sch_runtime_job_status *>(kept->data) = result;
  } else {
    auto *entry = static_cast<sch_runtime_job_status *>(
        sch_malloc_check(sizeof result, sch::alloc::kRunResult, 0, sch::alloc::kRestoreDb));
    if (!entry) return SCH_STATUS_NO_MEMORY;  // stored; memory has it after the next start
    *entry = result;
    if (sch_add_runtime_job_status_entry(database(), entry) != 0) return SCH_STATUS_NO_SUCH_JOB;
  }

  sch_schedule_record record = *schedule->value;
  record.last_completion = static_cast<uint32_t>(completion);
  return save_schedule(schedule, record);
}

uint32_t Model::skip_missed_repeats(std::string_view name, int32_t last_time) {
  sch_schedule_entry *schedule = find_schedule(name);
  if (!schedule) return SCH_STATUS_NO_SUCH_SCHEDULE;
  sch_schedule_record record = *schedule->value;
  if (record.time.type != SCH_TM_REPEAT) return SCH_STATUS_BAD_REQUEST;
  record.time.last_time = last_time;
  if (uint32_t status = save_schedule(schedule, record)) return status;
  announce(ChangeKind::schedule_fired, name);
  return 0;
}

}  // namespace schedd
