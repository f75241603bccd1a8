// Run results: appended to the list of the job that produced them.
#include "diag/trace.h"
#include "schedcli/db.h"
#include "schedcli/platform/mtrack.h"

extern "C" int sch_add_runtime_job_status_entry(sch_config_set *db, sch_runtime_job_status *entry) {
  if (entry->job_id >= SCH_MAX_JOBS) {
    mtrack_free(entry);
    return -1;
  }
  sch_job_slot *slot = &db->jobs[entry->job_id];
  if (!slot->key) {
    sch::trace(sch::kTraceDetail, "job key not present!");
    mtrack_free(entry);
    return -1;
  }
  // No bound here: whoever produces results decides how many to keep.
  slot->run_results = g_list_append(slot->run_results, entry);
  sch::trace(sch::kTraceDetail, "adding status # %d for job %.32s", static_cast<int>(g_list_length(slot->run_results)),
             slot->key->name);
  return 0;
}
