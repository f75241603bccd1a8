// The model's listeners, and the changes that concern the whole configuration: the logging level
// and the copy to startup.
#include "config/model.h"

#include <syslog.h>

#include <algorithm>

#include "config/database.h"
#include "config/debug_store.h"
#include "schedcli/platform/syslog.h"
#include "schedcli/pss.h"
#include "schedcli/status.h"

namespace schedd {

const char *change_kind_name(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::job_added:
      return "job added";
    case ChangeKind::job_changed:
      return "job changed";
    case ChangeKind::job_deleted:
      return "job deleted";
    case ChangeKind::schedule_added:
      return "schedule added";
    case ChangeKind::schedule_changed:
      return "schedule changed";
    case ChangeKind::schedule_deleted:
      return "schedule deleted";
    case ChangeKind::schedule_fired:
      return "schedule fired";
    case ChangeKind::feature_on:
      return "feature on";
    case ChangeKind::feature_off:
      return "feature off";
    case ChangeKind::transport_changed:
      return "transport changed";
    case ChangeKind::log_file_changed:
      return "log file changed";
  }
  return "change";
}

void Model::add_listener(ModelListener *listener) { listeners_.push_back(listener); }

void Model::remove_listener(ModelListener *listener) { std::erase(listeners_, listener); }

void Model::announce(ChangeKind kind, std::string_view name) {
  Change change{kind, std::string(name)};
  if (applying_) {
    pending_.push_back(std::move(change));
    return;
  }
  if (kind != ChangeKind::schedule_fired) {
    nost_syslog(LOG_NOTICE, "configuration changed by %s: %s%s%s", actor_.empty() ? "schedd" : actor_.c_str(),
              change_kind_name(kind), name.empty() ? "" : " ", change.name.c_str());
  }
  // A listener may remove itself while hearing of the change.
  std::vector<ModelListener *> listeners = listeners_;
  for (ModelListener *listener : listeners) listener->model_changed(change);
}

uint32_t Model::set_logging_level(uint32_t level) { return schedd::set_logging_level(level); }

uint32_t Model::copy_to_startup() {
  // The debug store goes along (sch_pss_snapshot hands debug_pss_running on); each copy replaces
  // its startup store whole or not at all.
  if (sch_pss_snapshot(sch_pss_running_uri, sch_pss_startup_uri) != 0) return SCH_STATUS_COPY_FAILED;
  return 0;
}

}  // namespace schedd
