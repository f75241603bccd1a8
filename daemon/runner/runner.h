// The runner: hears of every change the model announces, keeps each schedule's timer, fires
// schedules when their instant comes, runs their jobs one after another as the schedule's user,
// records each result, appends it to the run log and hands it to the mailer.
#ifndef SCHEDD_RUNNER_RUNNER_H
#define SCHEDD_RUNNER_RUNNER_H

#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/model.h"
#include "core/clock.h"
#include "core/event_loop.h"
#include "runner/job_process.h"
#include "runner/mailer.h"
#include "runner/run_marker.h"
#include "runner/run_credentials.h"
#include "runner/schedule_timers.h"
#include "runner/wall_timer.h"

namespace schedd {

struct RunnerSettings {
  std::string interpreter = runner::kDefaultInterpreter;
  std::chrono::milliseconds time_limit{std::chrono::hours(1)};
  std::chrono::milliseconds grace{std::chrono::seconds(5)};
  size_t output_limit = 64 * 1024;
  std::string mail_ca_file;
  std::vector<std::chrono::milliseconds> mail_retry_delays = mail::MailerSettings().retry_delays;
  // Off in tests that drive the clock themselves and call fire_due().
  bool wall_timer = true;
  // How long before its instant the first job of a fire is made ready (user, session, directory),
  // so that it starts at the instant itself. Only with the wall timer; zero: never ahead.
  std::chrono::milliseconds start_ahead{std::chrono::seconds(2)};
  // How long before the instant a job made ready stays awake, and for how many jobs of one
  // instant: one per CPU keeps every CPU busy when the instant comes, so the others' timers wake
  // them at once (see wait_for_instant). Zero jobs: all sleep to the instant.
  std::chrono::microseconds awake_before{std::chrono::milliseconds(5)};
  unsigned awake_jobs = 0;
  // The ready-job program, in which a job made ready waits (see ready_job.h); empty: the job's
  // child waits as it is.
  std::string ready_program;
};

class Runner final : public ModelListener {
 public:
  Runner(Model &model, EventLoop &loop, const Clock &clock, RunnerSettings settings,
         NextRunFunction next_run = library_next_run);
  Runner(const Runner &) = delete;
  Runner &operator=(const Runner &) = delete;
  // Runs still going are ended; their records say so at the next start.
  ~Runner() override;

  // Reports runs that a stop of the daemon cut short and fires missed while it was down, then
  // arms every schedule. False when the wall-clock timer could not be had.
  bool start();

  void model_changed(const Change &change) override;

  // Fires every schedule whose instant has come (the wall timer calls it).
  void fire_due();
  // The clock was set or the zone changed: every schedule is computed again.
  void clock_changed();

  // One line per schedule: next run, time left, last run and result, missed and skipped fires.
  std::string timers_text() const;
  const ScheduleTimers &timers() const { return timers_; }
  bool running(const std::string &schedule) const { return runs_.count(schedule) != 0; }

 private:
  // The first job of a schedule's next fire, made ready ahead of its instant.
  struct Prepared {
    std::time_t instant = 0;
    int job_id = -1;
    std::string job_name;
    std::string user;
    std::string command;
    bool awake = false;  // stays awake before its instant
    std::unique_ptr<runner::RunMarker> marker;
    std::unique_ptr<runner::JobProcess> process;
    std::optional<runner::JobOutcome> ended;  // it ended before its fire was taken
  };

  struct Run {
    std::string schedule;
    std::string user;
    std::time_t instant = 0;
    std::vector<int> jobs;  // ascending ids, taken at the fire
    size_t next = 0;
    int job_id = -1;        // the job now running
    std::string job_name;
    std::time_t job_started = 0;
    std::unique_ptr<runner::RunCredentials> credentials;
    std::unique_ptr<runner::RunMarker> marker;
    std::unique_ptr<runner::JobProcess> process;
  };

  ScheduleFacts facts_of(const std::string &schedule) const;
  void refresh(const std::string &schedule);
  void refresh_all();
  void arm_wall_timer();
  bool runs_as_local_user(const std::string &user) const;
  void prepare_due_soon();
  void prepare(const std::string &schedule, std::time_t instant);
  void drop_stale_prepared();
  bool cancel_prepared(const std::string &schedule);
  void adopt_started(const std::string &schedule);
  bool adopt_prepared(Run &run);
  void prepared_job_ended(const std::string &schedule, const runner::JobOutcome &outcome);
  runner::JobSpec job_spec_of(const std::string &schedule, const std::string &job, const std::string &user,
                              const std::string &command) const;
  void fire(const std::string &schedule, std::time_t instant);
  void record_fires(const std::vector<std::pair<std::string, std::time_t>> &fires);
  void start_next_job(Run &run);
  void spawn(Run &run, const std::string &command);
  void job_ended(const std::string &schedule, const runner::JobOutcome &outcome);
  void report_cut_short_runs();
  void report_missed_fires();
  std::string marker_path(const std::string &schedule, int job_id) const;

  Model &model_;
  EventLoop &loop_;
  const Clock &clock_;
  RunnerSettings settings_;
  ScheduleTimers timers_;
  std::unique_ptr<WallTimer> wall_timer_;
  std::unique_ptr<mail::Mailer> mailer_;
  std::map<std::string, Run> runs_;
  std::map<std::string, Prepared> prepared_;
  GSource *prepare_source_ = nullptr;
  bool firing_ = false;
};

}  // namespace schedd

#endif
