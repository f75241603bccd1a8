// A whole configuration changed as one: the operations of an apply share one batch per running
// store, and memory follows the stores when the batch is dropped.
#include <syslog.h>

#include <set>
#include <utility>

#include "config/database.h"
#include "config/model.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/syslog.h"
#include "schedcli/pss.h"

namespace schedd {

namespace {

// The live database as the running stores hold it. Memory cannot be put back piece by piece with
// the library's globals, but the stores are untouched by a dropped batch, so they are read again.
void reread_live_database() {
  free_database();
  sch_restore_config_from_pss(database(), pss_running, 0);
  sch_restore_db_from_pss(database(), pss_running_db);
  number_restored_schedules();
}

}  // namespace

uint32_t Model::begin_apply() {
  if (applying_) return PSS2_ERR_BATCH;
  if (uint32_t status = pss2_batch_begin(pss_running)) return status;
  if (uint32_t status = pss2_batch_begin(pss_running_db)) {
    pss2_batch_abort(pss_running);
    return status;
  }
  hold_batch(pss_running, true);
  hold_batch(pss_running_db, true);
  applying_ = true;
  pending_.clear();
  return 0;
}

uint32_t Model::end_apply(bool keep) {
  if (!applying_) return PSS2_ERR_BATCH;
  applying_ = false;
  hold_batch(pss_running, false);
  hold_batch(pss_running_db, false);
  std::vector<Change> changes = std::move(pending_);
  pending_.clear();
  uint32_t status = keep ? pss2_batch_commit(pss_running) : 0;
  if (!keep) pss2_batch_abort(pss_running);
  if (!keep || status != 0) {
    pss2_batch_abort(pss_running_db);
    reread_live_database();
    return status;
  }
  // Results left behind would attach to the next job given a deleted job's id, so this is said
  // loudly; the configuration itself is durable already.
  if (uint32_t results = pss2_batch_commit(pss_running_db)) {
    nost_syslog(LOG_ERR, "run results of deleted jobs and schedules stay in the runtime database: %s",
                syserr2str(results));
  }
  // Each object's changes are told once: listeners read the model as it is now.
  std::set<std::pair<ChangeKind, std::string>> told;
  for (const Change &change : changes) {
    if (told.emplace(change.kind, change.name).second) announce(change.kind, change.name);
  }
  return 0;
}

}  // namespace schedd
