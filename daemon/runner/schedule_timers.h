// The timer of every schedule: its state, the instant of its next fire, and which schedules are due.
// Pure bookkeeping on the daemon's clock: the wall-clock timer that wakes the loop, the job runs
// and the records are elsewhere.
#ifndef SCHEDD_RUNNER_SCHEDULE_TIMERS_H
#define SCHEDD_RUNNER_SCHEDULE_TIMERS_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/clock.h"
#include "schedcli/tminfo.h"

namespace schedd {

// idle: no time, no job, or the feature is off. armed: waits for `next`. running: its jobs run (and
// it is armed for its next fire meanwhile, which is skipped if the run is still going then).
// done: a one-shot after its run, or a time with no run to come.
enum class TimerState { idle, armed, running, done };
const char *timer_state_name(TimerState state);

struct ScheduleTimer {
  TimerState state = TimerState::idle;  // idle, armed or done
  bool running = false;
  std::time_t next = 0;       // armed: the instant of the next fire
  std::time_t last_fire = 0;  // the latest instant fired; a fire at or before it is never repeated
  uint32_t skipped = 0;       // fires skipped since start: the previous run was still going
  uint32_t missed = 0;        // fires missed while the daemon was down
  // What a display shows: running while the jobs run, else the state.
  TimerState shown() const { return running ? TimerState::running : state; }
};

// What the timers need to know of a schedule: taken from the live configuration.
struct ScheduleFacts {
  bool runnable = false;  // the feature is on, and it has a time and at least one job
  tminfo time{};
  std::time_t last_execution = 0;
};

// The next-run computation: the instant of the schedule's next run after now, or none.
using NextRunFunction = std::function<std::optional<std::time_t>(const tminfo &time)>;
// The library's computation (it reads the clock through time()).
std::optional<std::time_t> library_next_run(const tminfo &time);

class ScheduleTimers {
 public:
  ScheduleTimers(const Clock &clock, NextRunFunction next_run) : clock_(clock), next_run_(std::move(next_run)) {}

  // Takes the schedule's facts afresh (after any change to it, its jobs or the feature) and arms it
  // for its next instant. A run in progress goes on.
  void refresh(const std::string &name, const ScheduleFacts &facts);
  void remove(const std::string &name);
  // The clock was set or the time zone changed: every armed schedule is computed again.
  void recompute_all(const std::function<ScheduleFacts(const std::string &)> &facts_of);

  // The earliest instant any schedule is armed for.
  std::optional<std::time_t> earliest() const;
  // The armed schedules whose instant is at or before `limit`, in the order of their instants.
  std::vector<std::pair<std::string, std::time_t>> armed_until(std::time_t limit) const;
  // The earliest instant a schedule is armed for after `limit`.
  std::optional<std::time_t> earliest_after(std::time_t limit) const;
  // The schedules whose instant has come, each marked running, in the order of their instants.
  // A schedule still running from its previous fire is skipped (counted), and a fire at or before
  // the last one made is not made again; both are armed for their next instant. The caller records
  // each fire and refreshes the schedule, which arms it for the instant after.
  std::vector<std::pair<std::string, std::time_t>> take_due(const std::function<ScheduleFacts(const std::string &)> &facts_of);
  // The run of a fire is over.
  void run_finished(const std::string &name);

  // The fires skipped by take_due since the last call, for the log.
  std::vector<std::pair<std::string, std::time_t>> take_skipped();

  // Counts a fire missed while the daemon was down.
  void note_missed(const std::string &name, uint32_t count);

  const ScheduleTimer *find(const std::string &name) const;
  const std::map<std::string, ScheduleTimer> &all() const { return timers_; }

 private:
  void arm(const std::string &name, ScheduleTimer &timer, const ScheduleFacts &facts);
  void set_state(const std::string &name, ScheduleTimer &timer, TimerState state);
  void set_running(const std::string &name, ScheduleTimer &timer, bool running);
  void unqueue(const std::string &name, const ScheduleTimer &timer);

  const Clock &clock_;
  NextRunFunction next_run_;
  std::map<std::string, ScheduleTimer> timers_;
  std::set<std::pair<std::time_t, std::string>> queue_;  // armed schedules by instant
  std::vector<std::pair<std::string, std::time_t>> skipped_;
};

}  // namespace schedd

#endif
