// The model's feature switch: turning the scheduler on, and off with everything configured under it.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <span>

#include "config/database.h"
#include "config/debug_store.h"
#include "config/deleters.h"
#include "config/model.h"
#include "core/debug.h"
#include "runner/log_file.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/mtrack.h"

namespace schedd {

namespace {

void free_run_results() {
  for (sch_job_slot &job : std::span(database()->jobs, SCH_MAX_JOBS)) {
    for (GList *element = job.run_results; element; element = element->next) mtrack_free(element->data);
    g_list_free(job.run_results);
    job.run_results = nullptr;
  }
}

// The run log goes with the configuration: a fresh empty one at the default place.
void reset_log_file() {
  std::string current = log_file_location(stored_log_path(sch_log_file));
  sch_log_file = default_log_file_record();
  std::string fresh = log_file_location(stored_log_path(sch_log_file));
  if (current != fresh && unlink(current.c_str()) != 0 && errno != ENOENT) {
    debug(kDebugRequest, "the old log file %s stays: %s", current.c_str(), std::strerror(errno));
  }
  empty_log_file(fresh);
}

}  // namespace

uint32_t Model::enable_feature() {
  if (scheduler_enabled) return FM_ERR_ALREADY_ENABLED;
  uint32_t status =
      durably(pss_running, [] { return sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 1) == 0; });
  if (status != 0) return status;
  scheduler_enabled = 1;
  announce(ChangeKind::feature_on);
  return 0;
}

// Each store is emptied in one batch, the running store (which says the feature is off) last;
// after each, memory drops what that store no longer holds. A failure stops there, with memory
// and stores still agreeing.
uint32_t Model::disable_feature() {
  if (!scheduler_enabled) return FM_ERR_ALREADY_DISABLED;
  if (uint32_t status = durably(pss_running_db, [] { return delete_every_record(pss_running_db); })) return status;
  free_run_results();
  if (uint32_t status = durably(debug_pss_running, [] { return delete_every_record(debug_pss_running); })) {
    return status;
  }
  reset_logging_level();
  uint32_t status = durably(pss_running, [] {
    return delete_every_record(pss_running) &&
           sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 0) == 0;
  });
  if (status != 0) return status;
  // Schedules go with the database: the runner hears of it below and disarms every one.
  free_database();
  reset_log_file();
  email_transport_conf = default_transport();
  scheduler_enabled = 0;
  announce(ChangeKind::feature_off);
  return 0;
}

}  // namespace schedd
