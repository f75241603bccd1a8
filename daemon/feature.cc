// The feature manager's requests for the scheduler feature: turning it on, and turning it off with
// everything configured under it.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "database.h"
#include "debug.h"
#include "debug_store.h"
#include "log_file.h"
#include "requests.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/mtrack.h"

namespace schedd {

namespace {

constexpr const char *kFeatureName = "scheduler";

Reply enable() {
  if (scheduler_enabled) return status_reply(FM_ERR_ALREADY_ENABLED);
  uint32_t status =
      durably(pss_running, [] { return sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 1) == 0; });
  if (status == 0) scheduler_enabled = 1;
  return status_reply(status);
}

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

// Each store is emptied in one batch, the running store (which says the feature is off) last;
// after each, memory drops what that store no longer holds. A failure stops there, with memory
// and stores still agreeing.
Reply disable() {
  if (!scheduler_enabled) return status_reply(FM_ERR_ALREADY_DISABLED);
  if (uint32_t status = durably(pss_running_db, [] { return delete_every_record(pss_running_db); })) {
    return status_reply(status);
  }
  free_run_results();
  if (uint32_t status = durably(debug_pss_running, [] { return delete_every_record(debug_pss_running); })) {
    return status_reply(status);
  }
  reset_logging_level();
  uint32_t status = durably(pss_running, [] {
    bool emptied = delete_every_record(pss_running);
    return sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 0) == 0 && emptied;
  });
  if (status != 0) return status_reply(status);
  // Schedules go with the database: nothing of them may stay armed once timers run them.
  free_database();
  reset_log_file();
  email_transport_conf = default_transport();
  scheduler_enabled = 0;
  return {};
}

}  // namespace

Reply feature_request(uint32_t opcode, std::span<const uint8_t> payload, bool standby) {
  uint32_t action = 0;
  char name[FM_FEATURE_NAME_SIZE];
  if (fm_feature_request_parse(payload.data(), static_cast<uint32_t>(payload.size()), &action, name) != 0 ||
      action != opcode) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  if (std::strcmp(name, kFeatureName) != 0) return status_reply(SCH_STATUS_NO_SUCH_FEATURE);
  if (standby) return status_reply(SCH_STATUS_STANDBY);
  return action == FM_FEATURE_ENABLE ? enable() : disable();
}

}  // namespace schedd
