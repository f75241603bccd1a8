// The configuration model: the only code that changes the library's live database and the
// running stores. Every change is staged, made durable in one batch, applied to memory, and then
// announced to the listeners (the job runner among them). A change that fails leaves memory and
// stores exactly as they were and answers a status.
#ifndef SCHEDD_CONFIG_MODEL_H
#define SCHEDD_CONFIG_MODEL_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "schedcli/db.h"
#include "schedcli/tminfo.h"

namespace schedd {

enum class ChangeKind {
  job_added,
  job_changed,  // its command text
  job_deleted,
  schedule_added,
  schedule_changed,  // its time, user or jobs
  schedule_fired,    // its run fields: the runner's own record, not a configuration change
  schedule_deleted,
  feature_on,
  feature_off,  // everything configured went with it
  transport_changed,
  log_file_changed,
};

const char *change_kind_name(ChangeKind kind);

struct Change {
  ChangeKind kind;
  std::string name;  // the job's or schedule's; empty for the others
};

class ModelListener {
 public:
  virtual ~ModelListener() = default;
  // Called after the change is durable and applied; the listener reads the model, never changes it.
  virtual void model_changed(const Change &change) = 0;
};

// Which part of the transport a change sets or clears.
enum class TransportPart { sender, reply_to, server };

class Model {
 public:
  Model() = default;
  Model(const Model &) = delete;
  Model &operator=(const Model &) = delete;

  void add_listener(ModelListener *listener);
  void remove_listener(ModelListener *listener);

  // Who asks for the changes that follow, for the log line each change gets; empty for the daemon
  // itself (start-up, the runner).
  void set_actor(std::string actor) { actor_ = std::move(actor); }

  // Every operation returns 0 or the status that says why nothing changed. Names are at most
  // SCH_NAME_SIZE - 1 bytes; the requests layer has checked their form.
  uint32_t create_job(std::string_view name);
  uint32_t define_job(std::string_view name, std::span<const uint8_t> text);
  uint32_t delete_job(std::string_view name);

  bool has_schedule(std::string_view name) const;
  // Who answers for what: the user a schedule runs as (nullopt: no such schedule), and the users of
  // every schedule a job is assigned to, one entry a schedule (nullopt: no such job).
  std::optional<std::string> schedule_user(std::string_view schedule) const;
  std::optional<std::vector<std::string>> job_schedule_users(std::string_view job) const;

  uint32_t create_schedule(std::string_view name, std::string_view user);
  // `code` is the time kind the request names (SCH_MODIFY_*); `user` becomes the schedule's user.
  uint32_t set_schedule_time(std::string_view name, uint32_t code, const tminfo &time, std::string_view user);
  uint32_t assign_job(std::string_view schedule, std::string_view job, bool assigned);
  uint32_t unassign_every_job(std::string_view schedule);
  uint32_t delete_schedule(std::string_view name);

  uint32_t add_email(std::string_view schedule, std::string_view address);
  uint32_t remove_email(std::string_view schedule, std::string_view address);

  uint32_t store_credential(std::string_view user, std::string_view encrypted_password);
  uint32_t delete_credential(std::string_view user);

  uint32_t set_log_file_size(uint32_t size);
  // `requested` as the shell sends it; the no form passes the default name.
  uint32_t rename_log_file(std::string_view requested);
  uint32_t clear_log_file();

  // Sets the part of the transport from `asked` (the request's fields), or clears it.
  uint32_t set_transport(TransportPart part, const sch_email_transport_conf &asked);
  uint32_t clear_transport(TransportPart part);

  uint32_t enable_feature();
  uint32_t disable_feature();
  uint32_t set_logging_level(uint32_t level);

  // A whole configuration changed as one: between begin_apply and end_apply every operation writes
  // into one open batch of each running store and changes memory at once (later operations see
  // earlier ones), and nothing is announced. begin_apply returns 0, or the store's status when a
  // batch cannot be opened (then nothing is open).
  uint32_t begin_apply();
  // Makes everything since begin_apply durable in one commit of the running store and announces
  // it (keep), or drops it. After a drop or a failed commit the live database is read back from
  // the running stores, which still hold the configuration from before begin_apply. Returns 0,
  // or the commit's status. The removal of deleted objects' run results is a second commit, of
  // the runtime database, after the first; its failure is logged, the configuration stays.
  uint32_t end_apply(bool keep);
  bool applying() const { return applying_; }

  // Copies the running configuration and the debug store to startup as one step.
  uint32_t copy_to_startup();

  // What the runner records. A fire of `schedule` at `instant`: its last execution, its execution
  // count and, for a start-and-repeat time, the instant the next-run computation counts from.
  uint32_t record_fire(std::string_view schedule, std::time_t instant);
  // One job run of a fire: its result replaces the job's earlier one for this schedule, and the
  // schedule's last completion becomes `completion`.
  uint32_t record_job_run(std::string_view schedule, int job_id, uint32_t wait_status, std::time_t completion);
  // Moves a start-and-repeat time past the runs missed while the daemon was down.
  uint32_t skip_missed_repeats(std::string_view schedule, int32_t last_time);


 private:
  uint32_t save_transport(TransportPart part, const sch_email_transport_conf &conf);
  void announce(ChangeKind kind, std::string_view name = {});

  std::vector<ModelListener *> listeners_;
  std::string actor_;
  bool applying_ = false;
  std::vector<Change> pending_;  // announcements held back until the apply is durable
};

}  // namespace schedd

#endif
