// The runner: timers, fires, job runs and what each run leaves behind.
#include "runner/runner.h"

#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "config/database.h"
#include "config/fields.h"
#include "config/names.h"
#include "core/debug.h"
#include "core/syslog_lines.h"
#include "runner/log_file.h"
#include "runner/mail_message.h"
#include "runner/run_log.h"
#include "schedcli/platform/auth.h"
#include "schedcli/platform/bitset.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/sysmgr.h"

namespace schedd {

namespace {

constexpr const char *kRunMarkerPrefix = "run-";
constexpr std::time_t kDay = 86400;
constexpr std::chrono::milliseconds kReadyFiresTakenAfter{50};

// The assigned jobs that exist, in ascending id.
std::vector<int> jobs_of(const sch_schedule_record &record) {
  std::vector<int> jobs;
  for (int id = bitset_next_bit(record.jobs, SCH_MAX_JOBS, -1); id >= 0; id = bitset_next_bit(record.jobs, SCH_MAX_JOBS, id)) {
    if (database()->jobs[id].key) jobs.push_back(id);
  }
  return jobs;
}

bool has_time(const tminfo &time) {
  switch (time.type) {
    case SCH_TM_ONESHOT:
    case SCH_TM_DAILY:
    case SCH_TM_WEEKLY:
    case SCH_TM_MONTHLY:
    case SCH_TM_REPEAT:
      return true;
    default:
      return false;
  }
}

std::string job_text(const sch_job_slot &job) {
  size_t held = std::min<size_t>(g_list_length(job.fragments) * size_t{SCH_FRAGMENT_SIZE}, job.header->length);
  std::string text(held, '\0');
  sch_concat_fragments(job.fragments, text.data(), static_cast<int>(held));
  return text;
}

std::string local_time(std::time_t instant) {
  if (instant <= 0) return "-";
  tm local{};
  localtime_r(&instant, &local);
  char text[64];
  std::strftime(text, sizeof text, "%a %Y-%m-%d %H:%M:%S %Z", &local);
  return text;
}

std::string duration(std::time_t seconds) {
  if (seconds < 0) return "-";
  std::ostringstream text;
  if (seconds >= kDay) text << seconds / kDay << "d ";
  if (seconds >= 3600) text << seconds % kDay / 3600 << "h ";
  if (seconds >= 60) text << seconds % 3600 / 60 << "min ";
  text << seconds % 60 << "s";
  return text.str();
}

// The result of the schedule's latest fire, as the displays word it: the first job of that fire
// that failed, else success; "-" before any run.
std::string last_result(const sch_schedule_entry &schedule) {
  const sch_schedule_record &record = *schedule.value;
  if (record.execution_count == 0) return "-";
  const sch_runtime_job_status *shown = nullptr;
  for (int id : jobs_of(record)) {
    for (GList *element = database()->jobs[id].run_results; element; element = element->next) {
      auto *result = static_cast<const sch_runtime_job_status *>(element->data);
      if (std::strncmp(result->schedule, schedule.key->name, SCH_NAME_SIZE) != 0) continue;
      if (result->result[1] < record.last_execution) continue;  // of an earlier fire
      if (!shown || (shown->result[0] == 0 && result->result[0] != 0)) shown = result;
    }
  }
  return shown ? mail::result_text(static_cast<int>(shown->result[0])) : "-";
}

// The fields of /proc/<pid>/stat after the command name: [0] is the state, [2] the process group,
// [3] the session, [19] the start time in clock ticks since boot. Empty when the process is gone.
std::vector<std::string> process_stat(const std::string &pid) {
  std::ifstream in("/proc/" + pid + "/stat");
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::size_t name_end = text.rfind(')');
  std::vector<std::string> fields;
  if (name_end == std::string::npos) return fields;
  std::istringstream rest(text.substr(name_end + 1));
  for (std::string field; rest >> field;) fields.push_back(field);
  return fields;
}

// Kills what is left of a job's session after the daemon that ran it died: each process of session
// `session` that started no earlier than the job (so not a later session that reuses the number).
// Returns how many were killed.
int end_leftover_session(pid_t session, unsigned long long started) {
  int killed = 0;
  std::error_code error;
  for (const auto &entry : std::filesystem::directory_iterator("/proc", error)) {
    std::string pid = entry.path().filename();
    if (pid.empty() || pid.find_first_not_of("0123456789") != std::string::npos) continue;
    std::vector<std::string> fields = process_stat(pid);
    if (fields.size() < 20 || fields[0] == "Z" || fields[3] != std::to_string(session)) continue;
    if (std::strtoull(fields[19].c_str(), nullptr, 10) < started) continue;
    if (kill(static_cast<pid_t>(std::stoi(pid)), SIGKILL) == 0) killed++;
  }
  return killed;
}

// The job leads a session of its own: its marker names it, so that a daemon killed meanwhile ends
// what is left of the job at its next start.
void note_session(runner::RunMarker &marker, pid_t pid) {
  std::vector<std::string> fields = pid > 0 ? process_stat(std::to_string(pid)) : std::vector<std::string>{};
  if (fields.size() >= 20) marker.note_session(pid, std::strtoull(fields[19].c_str(), nullptr, 10));
}

// A wait status for a run that never started, as a failed exit with `code`.
int exit_status(int code) { return (code & 0xff) << 8; }

}  // namespace

Runner::Runner(Model &model, EventLoop &loop, const Clock &clock, RunnerSettings settings, NextRunFunction next_run)
    : model_(model), loop_(loop), clock_(clock), settings_(std::move(settings)), timers_(clock, std::move(next_run)) {
  mail::MailerSettings mail_settings;
  mail_settings.ca_file = settings_.mail_ca_file;
  mail_settings.retry_delays = settings_.mail_retry_delays;
  mailer_ = std::make_unique<mail::Mailer>(mail_settings, loop_.context(), nullptr);
  model_.add_listener(this);
}

Runner::~Runner() {
  model_.remove_listener(this);
  if (prepare_source_) {
    g_source_destroy(prepare_source_);
    g_source_unref(prepare_source_);
  }
  // A job made ready that did not start never will; one that did is a run cut short.
  for (auto &[name, ready] : prepared_) {
    if (ready.marker->cancel()) ready.marker->remove();
  }
  prepared_.clear();
  // A run still going is ended with its process group; its marker stays for the next start.
  runs_.clear();
  mailer_->stop();
}

bool Runner::start() {
  runner::keep_pam_modules_loaded();
  if (settings_.wall_timer) {
    wall_timer_ = std::make_unique<WallTimer>(loop_.context(), [this] { fire_due(); }, [this] { clock_changed(); });
    if (!wall_timer_->open()) return false;
  }
  report_cut_short_runs();
  report_missed_fires();
  refresh_all();
  return true;
}

ScheduleFacts Runner::facts_of(const std::string &name) const {
  ScheduleFacts facts;
  const sch_schedule_entry *schedule = find_schedule(name);
  if (!schedule) return facts;
  const sch_schedule_record &record = *schedule->value;
  facts.time = record.time;
  facts.last_execution = record.last_execution;
  facts.runnable = scheduler_enabled && has_time(record.time) && !jobs_of(record).empty();
  return facts;
}

void Runner::refresh(const std::string &name) {
  if (find_schedule(name)) {
    timers_.refresh(name, facts_of(name));
  } else {
    timers_.remove(name);
  }
}

void Runner::refresh_all() {
  std::vector<std::string> known;
  for (const auto &[name, timer] : timers_.all()) known.push_back(name);
  for (const std::string &name : known) {
    if (!find_schedule(name)) timers_.remove(name);
  }
  for (GList *element = g_list_first(*database()->schedules); element; element = element->next) {
    auto *schedule = static_cast<sch_schedule_entry *>(element->data);
    refresh(std::string(field_text(schedule->key->name)));
  }
  arm_wall_timer();
}

void Runner::arm_wall_timer() {
  if (!wall_timer_) return;
  prepare_due_soon();
  std::optional<std::time_t> next = timers_.earliest();
  // When every fire of the instant was made ready, its jobs start by themselves: the daemon
  // takes the fires a moment later, leaving the processors to the jobs' own starts.
  bool all_ready = next.has_value();
  for (const auto &[name, instant] : timers_.armed_until(next.value_or(0))) {
    auto ready = prepared_.find(name);
    all_ready = all_ready && ready != prepared_.end() && ready->second.instant == instant;
  }
  wall_timer_->arm(next, all_ready ? kReadyFiresTakenAfter : std::chrono::milliseconds(0));
}

bool Runner::runs_as_local_user(const std::string &user) const {
  return geteuid() != 0 || check_if_user_local(nullptr, user.c_str());
}

// Makes ready the first job of every fire due within the lead, and wakes for the next one. A user
// not local to the device is not made ready: the check of its credential belongs to the fire.
void Runner::prepare_due_soon() {
  if (firing_ || !wall_timer_ || settings_.start_ahead.count() <= 0) return;
  if (prepare_source_) {
    g_source_destroy(prepare_source_);
    g_source_unref(prepare_source_);
    prepare_source_ = nullptr;
  }
  drop_stale_prepared();
  int64_t now_ms = g_get_real_time() / 1000;
  int64_t ahead_ms = settings_.start_ahead.count();
  auto horizon = static_cast<std::time_t>((now_ms + ahead_ms) / 1000);
  for (auto &[name, instant] : timers_.armed_until(horizon)) {
    if (!runs_.count(name) && !prepared_.count(name)) prepare(name, instant);
  }
  std::optional<std::time_t> next = timers_.earliest_after(horizon);
  if (!next) return;
  int64_t wait_ms = std::max<int64_t>(0, int64_t{*next} * 1000 - ahead_ms - now_ms);
  prepare_source_ = g_timeout_source_new(static_cast<guint>(std::min<int64_t>(wait_ms, G_MAXUINT)));
  g_source_set_callback(
      prepare_source_,
      [](gpointer self) -> gboolean {
        auto *runner = static_cast<Runner *>(self);
        g_source_unref(runner->prepare_source_);
        runner->prepare_source_ = nullptr;
        runner->prepare_due_soon();
        return G_SOURCE_REMOVE;
      },
      this, nullptr);
  g_source_attach(prepare_source_, loop_.context());
}

void Runner::prepare(const std::string &name, std::time_t instant) {
  const sch_schedule_entry *schedule = find_schedule(name);
  if (!schedule) return;
  std::vector<int> jobs = jobs_of(*schedule->value);
  std::string user(field_text(schedule->value->user));
  if (jobs.empty() || !runs_as_local_user(user)) return;
  const sch_job_slot &job = database()->jobs[jobs.front()];
  Prepared ready;
  ready.instant = instant;
  ready.job_id = jobs.front();
  ready.job_name = std::string(field_text(job.key->name));
  ready.user = user;
  ready.command = job_text(job);
  ready.marker = runner::RunMarker::create(marker_path(name, ready.job_id),
                                           {name, ready.job_id, ready.job_name, user, instant}, /*waiting=*/true);
  if (!ready.marker) return;  // the fire starts it then
  runner::JobSpec job_spec = job_spec_of(name, ready.job_name, user, ready.command);
  job_spec.start_at = instant;
  job_spec.start_gate = ready.marker.get();
  size_t awake_already = std::count_if(prepared_.begin(), prepared_.end(), [instant](const auto &other) {
    return other.second.instant == instant && other.second.awake;
  });
  ready.awake = awake_already < settings_.awake_jobs;
  if (ready.awake) job_spec.awake_before = settings_.awake_before;
  job_spec.ready_program = settings_.ready_program;
  ready.process = runner::JobProcess::start(loop_.context(), job_spec, [this, name](const runner::JobOutcome &outcome) {
    prepared_job_ended(name, outcome);
  });
  note_session(*ready.marker, ready.process->pid());
  prepared_.insert_or_assign(name, std::move(ready));
}

// A job made ready whose fire changed (time, first job, its text, the user, the feature) is
// cancelled; one whose schedule changed only after the job started at its instant runs on.
void Runner::drop_stale_prepared() {
  std::vector<std::string> stale;
  for (const auto &[name, ready] : prepared_) {
    const ScheduleTimer *timer = timers_.find(name);
    const sch_schedule_entry *schedule = find_schedule(name);
    bool valid = scheduler_enabled && schedule && timer && timer->state == TimerState::armed && timer->next == ready.instant;
    if (valid) {
      std::vector<int> jobs = jobs_of(*schedule->value);
      valid = !jobs.empty() && jobs.front() == ready.job_id && field_text(schedule->value->user) == ready.user &&
              job_text(database()->jobs[ready.job_id]) == ready.command;
    }
    if (!valid) stale.push_back(name);
  }
  for (const std::string &name : stale) cancel_prepared(name);
}

bool Runner::cancel_prepared(const std::string &name) {
  auto found = prepared_.find(name);
  if (found == prepared_.end()) return true;
  if (!found->second.marker->cancel()) {
    adopt_started(name);
    return false;
  }
  found->second.marker->remove();
  prepared_.erase(found);  // ends the waiting child
  return true;
}

// The job made ready started at its instant, but its schedule changed before the fire was taken:
// the run is that one job, recorded when the schedule is still there.
void Runner::adopt_started(const std::string &name) {
  auto found = prepared_.find(name);
  Prepared &ready = found->second;
  Run run;
  run.schedule = name;
  run.user = ready.user;
  run.instant = ready.instant;
  run.jobs = {ready.job_id};
  auto [placed, inserted] = runs_.insert_or_assign(name, std::move(run));
  adopt_prepared(placed->second);
  // From the loop: the record announces a change, which comes back here.
  loop_.post([this, name, instant = placed->second.instant] {
    if (find_schedule(name)) record_fires({{name, instant}});
  });
}

// The first job of a fire was made ready for this instant: the run takes it over.
bool Runner::adopt_prepared(Run &run) {
  auto found = prepared_.find(run.schedule);
  if (found == prepared_.end()) return false;
  Prepared &ready = found->second;
  bool same_fire =
      ready.instant == run.instant && !run.jobs.empty() && run.jobs.front() == ready.job_id && ready.user == run.user;
  // Not the job of this fire: cancelled, unless it started already, when it is this run's job.
  if (!same_fire && ready.marker->cancel()) {
    ready.marker->remove();
    prepared_.erase(found);
    return false;
  }
  run.job_id = ready.job_id;
  run.next = 1;
  run.job_name = ready.job_name;
  run.job_started = ready.instant;
  run.marker = std::move(ready.marker);
  run.process = std::move(ready.process);
  std::optional<runner::JobOutcome> ended = std::move(ready.ended);
  prepared_.erase(found);
  if (ended) {
    // It ended (or failed to become its user) before the fire was taken; it is reported now.
    ended->ended_at = std::max<int64_t>(ended->ended_at, run.instant);
    std::string name = run.schedule;
    loop_.post([this, name, outcome = *ended] { job_ended(name, outcome); });
  }
  return true;
}

void Runner::prepared_job_ended(const std::string &name, const runner::JobOutcome &outcome) {
  auto found = prepared_.find(name);
  if (found != prepared_.end()) {
    found->second.ended = outcome;
    return;
  }
  job_ended(name, outcome);
}

void Runner::model_changed(const Change &change) {
  switch (change.kind) {
    case ChangeKind::schedule_added:
    case ChangeKind::schedule_changed:
    case ChangeKind::schedule_fired:
    case ChangeKind::schedule_deleted:
      refresh(change.name);
      break;
    case ChangeKind::feature_off:
      // Everything configured went: so do the runs. Their records went with the configuration.
      for (auto &[name, run] : runs_) {
        if (run.marker) run.marker->remove();
      }
      runs_.clear();
      for (auto &[name, ready] : prepared_) ready.marker->remove();
      prepared_.clear();
      refresh_all();
      break;
    case ChangeKind::feature_on:
      refresh_all();
      break;
    case ChangeKind::job_added:
    case ChangeKind::job_changed:
    case ChangeKind::job_deleted:
      // No timer moves, but a job made ready may no longer be the one to run.
      prepare_due_soon();
      return;
    default:
      return;
  }
  arm_wall_timer();
}

void Runner::clock_changed() {
  timers_.recompute_all([this](const std::string &name) { return facts_of(name); });
  fire_due();
}

void Runner::fire_due() {
  auto due = timers_.take_due([this](const std::string &name) { return facts_of(name); });
  for (auto &[name, instant] : timers_.take_skipped()) {
    log_line(LOG_WARNING, "SCHEDULE_SKIPPED",
             "schedule " + name + ": the run at " + local_time(instant) + " is skipped, the previous run is still going");
  }
  // The jobs start first and the fires are recorded after, all in one durable write: many
  // schedules due at one instant then wait for one sync, not one each. A stop in between loses
  // only the record; the fire is not made again, as its instant has passed.
  // Jobs made ready are not looked at again until every fire of this instant has taken its own.
  firing_ = true;
  for (auto &[name, instant] : due) fire(name, instant);
  firing_ = false;
  if (!due.empty()) record_fires(due);
  arm_wall_timer();
}

void Runner::record_fires(const std::vector<std::pair<std::string, std::time_t>> &fires) {
  uint32_t status = model_.begin_apply();
  for (auto &[name, instant] : fires) {
    if (status == 0) status = model_.record_fire(name, instant);
  }
  if (model_.applying()) {
    uint32_t committed = model_.end_apply(status == 0);
    if (status == 0) status = committed;
  }
  if (status != 0) {
    log_line(LOG_ERR, "SCHEDULE_FIRE_NOT_RECORDED",
             std::to_string(fires.size()) + " fire(s) could not be recorded (" + syserr2str(status) + ")");
  }
}

void Runner::fire(const std::string &name, std::time_t instant) {
  const sch_schedule_entry *schedule = find_schedule(name);
  if (!schedule) {
    timers_.run_finished(name);
    return;
  }
  Run run;
  run.schedule = name;
  run.user = std::string(field_text(schedule->value->user));
  run.instant = instant;
  run.jobs = jobs_of(*schedule->value);
  log_line(LOG_INFO, "SCHEDULE_FIRED",
           "schedule " + name + " fired at " + local_time(instant) + ": " + std::to_string(run.jobs.size()) +
               " job(s) as user " + run.user);
  auto [placed, inserted] = runs_.insert_or_assign(name, std::move(run));
  start_next_job(placed->second);
}

std::string Runner::marker_path(const std::string &schedule, int job_id) const {
  return std::string(sysmgr_runtime_dir()) + "/" + kRunMarkerPrefix + schedule + "-" + std::to_string(job_id);
}

void Runner::start_next_job(Run &run) {
  while (run.next < run.jobs.size() && !database()->jobs[run.jobs[run.next]].key) run.next++;
  if (run.next >= run.jobs.size()) {
    std::string name = run.schedule;
    runs_.erase(name);  // `run` is gone from here on
    timers_.run_finished(name);
    arm_wall_timer();
    return;
  }
  if (run.next == 0 && adopt_prepared(run)) return;
  run.job_id = run.jobs[run.next++];
  const sch_job_slot &job = database()->jobs[run.job_id];
  run.job_name = std::string(field_text(job.key->name));
  run.job_started = clock_.wall_seconds();
  // A marker while the job runs: a daemon that stops meanwhile reports the run at its next start.
  run.marker = runner::RunMarker::create(marker_path(run.schedule, run.job_id),
                                         {run.schedule, run.job_id, run.job_name, run.user, run.job_started},
                                         /*waiting=*/false);
  std::string command = job_text(job);
  // A local user needs no stored credential: only a remote one is checked, off the loop.
  if (geteuid() != 0 || check_if_user_local(nullptr, run.user.c_str())) {
    spawn(run, command);
    return;
  }
  // A user not local to the device runs only with a stored credential that PAM accepts.
  std::string name = run.schedule;
  run.credentials = runner::RunCredentials::check(
      loop_.context(), &sch_uname_q, run.user, [this, name, command](const runner::CredentialVerdict &verdict) {
        auto found = runs_.find(name);
        if (found == runs_.end()) return;
        if (verdict.passed) {
          spawn(found->second, command);
          return;
        }
        runner::JobOutcome refused;
        refused.wait_status = exit_status(runner::kExitNoPermission);
        refused.output = verdict.reason;
        refused.started_at = refused.ended_at = clock_.wall_seconds();
        job_ended(name, refused);
      });
  if (!run.credentials) {
    runner::JobOutcome failed;
    failed.wait_status = exit_status(runner::kExitSystem);
    failed.output = "the credentials of user " + run.user + " could not be checked: no worker thread\n";
    failed.started_at = failed.ended_at = clock_.wall_seconds();
    loop_.post([this, name, failed] { job_ended(name, failed); });
  }
}

runner::JobSpec Runner::job_spec_of(const std::string &schedule, const std::string &job, const std::string &user,
                                    const std::string &command) const {
  runner::JobSpec job_spec;
  job_spec.job = job;
  job_spec.schedule = schedule;
  job_spec.user = user;
  job_spec.command = command;
  job_spec.interpreter = settings_.interpreter;
  job_spec.time_limit = settings_.time_limit;
  job_spec.grace = settings_.grace;
  job_spec.output_limit = settings_.output_limit;
  job_spec.clock = [this] { return static_cast<int64_t>(clock_.wall_seconds()); };
  return job_spec;
}

void Runner::spawn(Run &run, const std::string &command) {
  std::string name = run.schedule;
  run.process = runner::JobProcess::start(loop_.context(), job_spec_of(name, run.job_name, run.user, command),
                                          [this, name](const runner::JobOutcome &outcome) { job_ended(name, outcome); });
  if (run.marker) note_session(*run.marker, run.process->pid());
}

void Runner::job_ended(const std::string &name, const runner::JobOutcome &outcome) {
  auto found = runs_.find(name);
  if (found == runs_.end()) return;
  Run &run = found->second;
  std::string result = mail::result_text(outcome.wait_status);
  std::time_t ended = outcome.ended_at ? outcome.ended_at : clock_.wall_seconds();
  if (run.marker) run.marker->remove();
  run.marker.reset();

  if (uint32_t status = model_.record_job_run(name, run.job_id, static_cast<uint32_t>(outcome.wait_status), ended)) {
    log_line(LOG_ERR, "RUN_NOT_RECORDED", "job " + run.job_name + " of schedule " + name +
                                              ": the result could not be recorded (" + std::to_string(status) + ")");
  }
  runner::RunLogEntry entry{run.job_name, name, run.user, static_cast<uint32_t>(outcome.wait_status),
                            static_cast<int32_t>(ended), outcome.output};
  runner::RunLogState state;
  append_run_log_entry(log_file_location(stored_log_path(sch_log_file)), sch_log_file.size_limit, entry, &state);

  bool failed = outcome.wait_status != 0;
  if (!outcome.started || outcome.setup_failed) {
    emit(syslog_msg_SCH_SYSLOG_USER_ERR, run.user.c_str(), WIFEXITED(outcome.wait_status) ? WEXITSTATUS(outcome.wait_status) : -1);
  }
  log_line(failed ? LOG_WARNING : LOG_INFO, "JOB_RUN",
           "job " + run.job_name + " of schedule " + name + " as user " + run.user + ": " + result +
               (outcome.timed_out ? ", ended by its time limit" : "") + " after " +
               duration(ended - (outcome.started_at ? outcome.started_at : run.job_started)));

  // Mail goes out when the schedule has addresses and a server is set.
  sch_schedule_email_entry *emails = nullptr;
  NameField field(name);
  sch_find_schedule_email_entry(&sch_schedule_email_list, field.text, &emails);
  if (emails && email_transport_conf.smtp_server[0]) {
    mail::MailRequest request;
    request.run = mail::RunReport{name, run.job_name, run.user, outcome.wait_status, "",
                                  static_cast<std::time_t>(outcome.started_at), ended, outcome.output, outcome.truncated};
    for (const sch_email_slot &slot : emails->slots) {
      if (slot.in_use) request.recipients.emplace_back(field_text(slot.address));
    }
    const sch_email_transport_conf &conf = email_transport_conf;
    request.transport = mail::Transport{std::string(field_text(conf.smtp_server)), conf.smtp_port,
                                        std::string(field_text(conf.from)), std::string(field_text(conf.reply_to)),
                                        std::string(field_text(conf.vrf))};
    mailer_->submit(request);
  }

  // The next job starts from the loop, not from within the ended one's report.
  loop_.post([this, name] {
    auto next = runs_.find(name);
    if (next != runs_.end()) start_next_job(next->second);
  });
}

void Runner::report_cut_short_runs() {
  std::error_code error;
  for (const auto &file : std::filesystem::directory_iterator(sysmgr_runtime_dir(), error)) {
    std::string base = file.path().filename();
    if (base.rfind(kRunMarkerPrefix, 0) != 0) continue;
    std::optional<runner::RunMarkerFacts> marker = runner::RunMarker::read(file.path());
    std::filesystem::remove(file.path(), error);
    if (!marker) continue;
    if (marker->session > 1) {
      int killed = end_leftover_session(marker->session, marker->session_started);
      if (killed && marker->job_started) {
        log_line(LOG_WARNING, "RUN_LEFTOVER_KILLED",
                 "job " + marker->job + " of schedule " + marker->schedule + ": " + std::to_string(killed) +
                     " process(es) left from the run cut short were killed");
      }
    }
    // A job made ready that never started is no run.
    if (!marker->job_started) continue;
    std::time_t now = clock_.wall_seconds();
    int killed = SIGKILL;  // as a wait status: ended by a signal
    model_.record_job_run(marker->schedule, marker->job_id, static_cast<uint32_t>(killed), now);
    runner::RunLogEntry entry{marker->job, marker->schedule, marker->user, static_cast<uint32_t>(killed),
                              static_cast<int32_t>(now),
                              "the run was cut short: the scheduler stopped while the job ran (started " +
                                  local_time(marker->started) + ")\n"};
    runner::RunLogState state;
    append_run_log_entry(log_file_location(stored_log_path(sch_log_file)), sch_log_file.size_limit, entry, &state);
    log_line(LOG_WARNING, "RUN_CUT_SHORT",
             "job " + marker->job + " of schedule " + marker->schedule + " as user " + marker->user +
                 " was cut short by a stop of the scheduler");
  }
}

void Runner::report_missed_fires() {
  if (!scheduler_enabled) return;
  std::time_t now = clock_.wall_seconds();
  for (GList *element = g_list_first(*database()->schedules); element; element = element->next) {
    auto *schedule = static_cast<sch_schedule_entry *>(element->data);
    const sch_schedule_record &record = *schedule->value;
    std::string name(field_text(schedule->key->name));
    if (jobs_of(record).empty()) continue;
    const tminfo &time = record.time;
    uint32_t missed = 0;
    switch (time.type) {
      case SCH_TM_ONESHOT:
        missed = record.last_execution == 0 && !library_next_run(time) ? 1 : 0;
        break;
      case SCH_TM_REPEAT: {
        uint32_t delta = 0;
        sch_compute_delta(&time, &delta);
        if (delta == 0 || time.last_time < time.start_time || time.last_time + int64_t{delta} >= now) break;
        missed = static_cast<uint32_t>((now - time.last_time) / delta);
        // The repeat goes on from the latest instant it would have run at.
        model_.skip_missed_repeats(name, static_cast<int32_t>(time.last_time + int64_t{missed} * delta));
        break;
      }
      case SCH_TM_DAILY:
      case SCH_TM_WEEKLY:
      case SCH_TM_MONTHLY: {
        std::time_t period = time.type == SCH_TM_DAILY ? kDay : time.type == SCH_TM_WEEKLY ? 7 * kDay : 31 * kDay;
        if (record.last_execution != 0 && now - static_cast<std::time_t>(record.last_execution) > period) {
          missed = static_cast<uint32_t>((now - record.last_execution) / period);
        }
        break;
      }
      default:
        break;
    }
    if (missed == 0) continue;
    timers_.note_missed(name, missed);
    log_line(LOG_WARNING, "SCHEDULE_MISSED",
             "schedule " + name + ": " + std::to_string(missed) +
                 " run(s) missed while the scheduler was not running; they are not replayed");
  }
}

std::string Runner::timers_text() const {
  std::ostringstream text;
  char line[512];
  std::snprintf(line, sizeof line, "%-20s %-8s %-28s %-14s %-28s %-13s %6s %7s\n", "Schedule", "State", "Next run",
                "Left", "Last run", "Last result", "Missed", "Skipped");
  text << line;
  std::time_t now = clock_.wall_seconds();
  for (const auto &[name, timer] : timers_.all()) {
    const sch_schedule_entry *schedule = find_schedule(name);
    std::time_t last = schedule ? static_cast<std::time_t>(schedule->value->last_execution) : 0;
    std::string result = schedule ? last_result(*schedule) : "-";
    bool armed = timer.state == TimerState::armed;
    std::snprintf(line, sizeof line, "%-20s %-8s %-28s %-14s %-28s %-13s %6u %7u\n", name.c_str(),
                  timer_state_name(timer.shown()), armed ? local_time(timer.next).c_str() : "-",
                  armed ? duration(timer.next - now).c_str() : "-", local_time(last).c_str(),
                  result.c_str(), timer.missed, timer.skipped);
    text << line;
  }
  return text.str();
}

}  // namespace schedd
