// Start-up and release of the live configuration and its stores.
#include "config/startup.h"

#include <cstring>
#include <span>

#include "config/database.h"
#include "config/debug_store.h"
#include "config/deleters.h"
#include "core/debug.h"
#include "runner/log_file.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/platform/sdwrap.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/sysmgr.h"
#include "schedcli/protocol.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

// Everything the live configuration holds, written over whatever the running store holds. After a
// stateless restart the library has written its own whole-configuration save, which neither
// reports a failed record nor covers the addresses, condition and transport records; this one
// does both, so that start-up can tell whether the running store is whole.
bool write_whole_configuration() {
  if (!delete_every_record(pss_running)) return false;
  for (GList *element = g_list_first(*database()->schedules); element; element = element->next) {
    if (sch_save_schedule_entry_to_pss(pss_running, static_cast<sch_schedule_entry *>(element->data)) != 0) {
      return false;
    }
  }
  for (sch_job_slot &job : std::span(database()->jobs, SCH_MAX_JOBS)) {
    if (job.key && job.header && sch_save_job_entry_to_pss(pss_running, &job) != 0) return false;
  }
  for (GList *element = g_list_first(sch_schedule_email_list); element; element = element->next) {
    auto *entry = static_cast<sch_schedule_email_entry *>(element->data);
    if (sch_save_schedule_email_entry_to_pss(pss_running, entry) != 0) return false;
  }
  for (auto *user = static_cast<sch_user_element *>(peek_head(&sch_uname_q)); user;
       user = static_cast<sch_user_element *>(user->link)) {
    if (sch_save_user_config_entry_to_pss(pss_running, &user->record) != 0) return false;
  }
  if (sch_save_log_file_entry_to_pss(pss_running, &sch_log_file_key, &sch_log_file) != 0) return false;
  if (sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, scheduler_enabled) != 0) return false;
  sch_email_transport_conf &transport = email_transport_conf;
  if (transport.from[0] && sch_save_email_from_conf_to_pss(pss_running, &transport) != 0) return false;
  if (transport.reply_to[0] && sch_save_email_replyto_conf_to_pss(pss_running, &transport) != 0) return false;
  return !transport.smtp_server[0] || sch_save_email_smtpserver_conf_to_pss(pss_running, &transport) == 0;
}

// How many records of each kind a store holds, and whether it could be read to its end.
struct RecordCounts {
  uint32_t schedules = 0, jobs = 0, fragments = 0, email_entries = 0, users = 0;
  bool enabled = false;  // the condition record says the feature is on
  bool read_to_end = false;
};

RecordCounts count_records(pss2_handle store) {
  RecordCounts counts;
  pss2_handle cursor = store;
  uint32_t status = pss2_move2location(&cursor, 1, PSS2_LOCATION_FIRST, nullptr);
  for (; status == 0; status = pss2_move2location(&cursor, 1, PSS2_LOCATION_NEXT, nullptr)) {
    uint32_t key_status = 0;
    pss2_datum key = pss2_getkey(store, &key_status);
    if (key_status != 0 || key.length != SCH_KEY_SIZE || !key.data) return counts;
    sch_config_key native;
    std::memcpy(&native, key.data, sizeof native);
    sch_ntoh_config_key(&native);
    counts.schedules += native.type == SCH_REC_SCHEDULE;
    counts.jobs += native.type == SCH_REC_JOB && native.sequence == 0;
    counts.fragments += native.type == SCH_REC_JOB && native.sequence != 0;
    counts.email_entries += native.type == SCH_REC_SCHEDULE_EMAIL;
    counts.users += native.type == SCH_REC_USER;
    if (native.type == SCH_REC_CONDITION) {
      uint32_t value_status = 0;
      pss2_datum value = pss2_getvalue(store, &value_status);
      if (value_status != 0 || !value.data || value.length < 4) return counts;
      counts.enabled = sch_wire_get_u32(value.data) == 1;
    }
  }
  counts.read_to_end = status == PSS2_ERR_END;
  return counts;
}

// The restore walks the store and cannot say that a read failed on the way; a restore that
// stopped early would serve part of the configuration and then write over the rest. The live
// database must hold as many of each kind as the store does.
bool restored_whole(std::string *error) {
  RecordCounts stored = count_records(pss_running);
  uint32_t jobs = 0;
  uint32_t fragments = 0;
  for (const sch_job_slot &job : std::span(database()->jobs, SCH_MAX_JOBS)) {
    jobs += job.key != nullptr;
    fragments += g_list_length(job.fragments);
  }
  uint32_t users = 0;
  for (auto *user = static_cast<sch_user_element *>(peek_head(&sch_uname_q)); user;
       user = static_cast<sch_user_element *>(user->link)) {
    users++;
  }
  if (stored.read_to_end && stored.schedules == g_list_length(*database()->schedules) && stored.jobs == jobs && stored.fragments == fragments &&
      stored.email_entries == g_list_length(sch_schedule_email_list) && stored.users == users &&
      stored.enabled == (scheduler_enabled == 1)) {
    return true;
  }
  *error = "the running store could not be read whole (" + std::to_string(stored.schedules) + " schedules, " +
           std::to_string(stored.jobs) + " jobs stored; " + std::to_string(g_list_length(*database()->schedules)) +
           " and " + std::to_string(jobs) + " restored)";
  return false;
}

// What a store without these records means: the default log file and no mail server, the
// server's kind, port and VRF at their defaults.
void fill_in_defaults() {
  std::string_view stored = stored_log_path(sch_log_file);
  if (stored.empty() || !stored_log_path_allowed(stored)) store_log_path(&sch_log_file, kDefaultLogFileName);
  sch_email_transport_conf &transport = email_transport_conf;
  if (transport.smtp_server[0] == '\0') {
    const sch_email_transport_conf defaults = default_transport();
    transport.smtp_reserved = defaults.smtp_reserved;
    transport.smtp_port = defaults.smtp_port;
    std::memcpy(transport.vrf, defaults.vrf, sizeof transport.vrf);
  }
}

}  // namespace

bool restore_configuration(const StartupMode &mode, std::string *error) {
  sch_uname_q_init();
  sch_pss_uri_init();
  int result = mode.standby ? sch_standby_pss_init() : sch_pss_init();
  if (result != 0) {
    *error = std::string("cannot open the stores in ") + sysmgr_runtime_dir() + " (the store's message above says why)";
    return false;
  }
  if (!mode.standby && !mode.stateless && !restored_whole(error)) return false;
  if (!mode.standby && mode.stateless) {
    if (uint32_t status = durably(pss_running, write_whole_configuration)) {
      *error = std::string("cannot make the startup configuration durable in the running store: ") +
               syserr2str(status);
      return false;
    }
  }
  if (!open_debug_store(mode.stateless && !mode.standby, !mode.standby, error)) return false;
  number_restored_schedules();
  fill_in_defaults();
  if (mode.standby) return true;
  // A log file that cannot be made is reported and does not stop the daemon: the runner tries
  // again with every entry.
  create_log_file(log_file_location(stored_log_path(sch_log_file)));
  if (mode.enable_feature && !scheduler_enabled) {
    if (uint32_t status = durably(pss_running, [] {
          return sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 1) == 0;
        })) {
      *error = std::string("cannot turn the scheduler feature on: ") + syserr2str(status);
      return false;
    }
    scheduler_enabled = 1;
  }
  return true;
}

void release_configuration() {
  reset_live_configuration();
  // Reported before the stores close, which switches debug output off.
  debug(kDebugStartup, "stopped with %llu tracked blocks in use",
        static_cast<unsigned long long>(mtrack_live_blocks(SCH_MTRACK_IDENTITY)));
  reset_logging_level();
  close_debug_store();
  sch_pss_close_handles(nullptr);
  pss_running = 0;
  pss_running_db = 0;
}

uint32_t destroy_running_stores() {
  for (const char *name : {SCH_STORE_RUNNING, SCH_STORE_RUNNING_DATABASE, SCH_STORE_DEBUG_RUNNING}) {
    uint32_t status = pss2_destroy(sysmgr_uri_complete(sysmgr_running_cfg_uri_get(), "", name));
    if (status != 0 && status != PSS2_ERR_NO_STORE) return status;
  }
  return 0;
}

}  // namespace schedd
