// Requests that create, modify and delete schedules (types 3, 4, 5).
#include <cstdint>
#include <cstring>

#include "database.h"
#include "db/alloc_kinds.h"
#include "requests.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/tminfo.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

// A repeat more often than this would keep the daemon busy running one schedule.
constexpr int64_t kShortestRepeatSeconds = 60;

bool decode_schedule_request(RequestBytes bytes, sch_schedule_request *request) {
  sch_wire_decode(SCH_WIRE_SCHEDULE_REQUEST, bytes.data(), bytes.size(), request);
  return holds_text(request->name);
}

// Writes the schedule with `record` in place of its own; the entry takes the record only once
// it is durable.
uint32_t save_schedule(sch_schedule_entry *schedule, const sch_schedule_record &record) {
  sch_schedule_record copy = record;
  sch_schedule_entry staged = *schedule;
  staged.value = &copy;
  uint32_t status = durably(pss_running, [&] { return sch_save_schedule_entry_to_pss(pss_running, &staged) == 0; });
  if (status == 0) *schedule->value = record;
  return status;
}

// The shell has checked the time already; this keeps a record the timers could not use out of
// the store. A time that has passed meanwhile is not refused: the timers skip it.
uint32_t check_time(uint32_t code, const tminfo &time) {
  if (static_cast<uint32_t>(time.type) != code) return SCH_STATUS_BAD_REQUEST;
  if (sch_verify_tminfo(&time) == -static_cast<int>(SCH_STATUS_OUT_OF_RANGE)) return SCH_STATUS_OUT_OF_RANGE;
  if (code == SCH_MODIFY_START_REPEAT) {
    if (time.day_of_week < 0 || time.hour < 0 || time.minute < 0) return SCH_STATUS_OUT_OF_RANGE;
    int64_t seconds = int64_t{time.day_of_week} * 86400 + int64_t{time.hour} * 3600 + int64_t{time.minute} * 60;
    if (seconds < kShortestRepeatSeconds || seconds > INT32_MAX) return SCH_STATUS_OUT_OF_RANGE;
  }
  return 0;
}

// Drops the schedule's run results from every job, in the runtime database first.
uint32_t delete_schedule_results(const char *schedule) {
  auto of_schedule = [schedule](const sch_runtime_job_status *result) {
    return std::strncmp(result->schedule, schedule, SCH_NAME_SIZE) == 0;
  };
  uint32_t status = durably(pss_running_db, [&] {
    bool written = true;
    for (int id = 0; id < SCH_MAX_JOBS; id++) {
      for (GList *element = database()->jobs[id].run_results; element; element = element->next) {
        auto *result = static_cast<sch_runtime_job_status *>(element->data);
        if (of_schedule(result)) written = delete_run_result_record(pss_running_db, *result) && written;
      }
    }
    return written;
  });
  if (status != 0) return status;
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    GList *&results = database()->jobs[id].run_results;
    for (GList *element = results; element;) {
      GList *next = element->next;
      auto *result = static_cast<sch_runtime_job_status *>(element->data);
      if (of_schedule(result)) {
        results = g_list_delete_link(results, element);
        mtrack_free(result);
      }
      element = next;
    }
  }
  return 0;
}

}  // namespace

Reply create_schedule(RequestBytes bytes, const Caller &caller) {
  sch_schedule_request request;
  if (!decode_schedule_request(bytes, &request) || !valid_new_name(request.name)) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  sch_schedule_entry *schedule = nullptr;
  sch_find_schedule(database(), request.name, &schedule);
  if (schedule) return status_reply(SCH_STATUS_EXISTS);

  auto *key = static_cast<sch_config_key *>(
      sch_malloc_check(sizeof(sch_config_key), sch::alloc::kKeyCopy, 0, sch::alloc::kAddScheduleEntry));
  auto *record = static_cast<sch_schedule_record *>(
      sch_malloc_check(sizeof(sch_schedule_record), sch::alloc::kSchedule, 0, sch::alloc::kAddScheduleEntry));
  if (!key || !record || sch_add_schedule_entry(database(), key, record, &schedule) != 0) {
    mtrack_free(key);
    mtrack_free(record);
    return status_reply(SCH_STATUS_NO_MEMORY);
  }
  key->type = SCH_REC_SCHEDULE;
  copy_text(key->name, field_text(request.name));
  copy_text(record->user, caller.user);
  give_listing_serial(schedule);
  uint32_t status = durably(pss_running, [&] { return sch_save_schedule_entry_to_pss(pss_running, schedule) == 0; });
  if (status != 0) sch_free_schedule_entry(database(), schedule_element(schedule));
  return status_reply(status);
}

Reply modify_schedule(RequestBytes bytes, const Caller &caller) {
  sch_modify_schedule_request request;
  sch_wire_decode(SCH_WIRE_MODIFY_SCHEDULE_REQUEST, bytes.data(), bytes.size(), &request);
  if (!holds_text(request.schedule) || !terminated(request.job)) return status_reply(SCH_STATUS_BAD_REQUEST);
  sch_schedule_entry *schedule = nullptr;
  sch_find_schedule(database(), request.schedule, &schedule);
  if (!schedule) return status_reply(SCH_STATUS_NO_SUCH_SCHEDULE);

  sch_schedule_record record = *schedule->value;
  switch (request.code) {
    case SCH_MODIFY_ONESHOT:
    case SCH_MODIFY_DAILY:
    case SCH_MODIFY_WEEKLY:
    case SCH_MODIFY_MONTHLY:
    case SCH_MODIFY_START_REPEAT: {
      if (request.no_flag) return status_reply(SCH_STATUS_BAD_REQUEST);
      if (uint32_t status = check_time(request.code, request.time)) return status_reply(status);
      record.time = request.time;
      // Whoever sets the time answers for the runs: the jobs run as that user.
      copy_text(record.user, caller.user);
      break;
    }
    case SCH_MODIFY_JOB: {
      sch_job_slot *job = nullptr;
      int id = sch_find_job(database(), request.job, &job);
      if (id < 0) return status_reply(SCH_STATUS_NO_SUCH_JOB);
      set_job_assigned(&record, id, request.no_flag == 0);
      break;
    }
    case SCH_MODIFY_JOB_NO_NAME:
      // "no job" with no name takes every job off the schedule; the positive form names none.
      if (!request.no_flag) return {};
      clear_assigned_jobs(&record);
      break;
    default:
      return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  return status_reply(save_schedule(schedule, record));
}

Reply delete_schedule(RequestBytes bytes, const Caller &) {
  sch_schedule_request request;
  if (!decode_schedule_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  sch_schedule_entry *schedule = nullptr;
  sch_find_schedule(database(), request.name, &schedule);
  if (!schedule) return status_reply(SCH_STATUS_NO_SUCH_SCHEDULE);
  sch_schedule_email_entry *emails = nullptr;
  sch_find_schedule_email_entry(&sch_schedule_email_list, request.name, &emails);

  // A schedule created later under the same name starts without the old one's results.
  if (uint32_t status = delete_schedule_results(request.name)) return status_reply(status);
  uint32_t status = durably(pss_running, [&] {
    sch_delete_schedule_entry_from_pss(pss_running, schedule);
    sch_delete_schedule_email_entry_from_pss(pss_running, emails);
    return true;
  });
  if (status != 0) return status_reply(status);
  if (emails) {
    sch_schedule_email_list = g_list_remove(sch_schedule_email_list, emails);
    mtrack_free(emails);
  }
  sch_free_schedule_entry(database(), schedule_element(schedule));
  return {};
}

}  // namespace schedd
