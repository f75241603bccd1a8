// Schedule timers: arming, firing, skipping and the transitions between their states.
#include "runner/schedule_timers.h"

#include <sys/time.h>

#include "core/debug.h"
#include "schedcli/tminfo.h"

namespace schedd {

const char *timer_state_name(TimerState state) {
  switch (state) {
    case TimerState::idle:
      return "idle";
    case TimerState::armed:
      return "armed";
    case TimerState::running:
      return "running";
    case TimerState::done:
      return "done";
  }
  return "?";
}

std::optional<std::time_t> library_next_run(const tminfo &time) {
  timeval interval{};
  std::time_t next = 0;
  if (sch_compute_timer_interval(&time, &interval, &next) != 0) return std::nullopt;
  return next;
}

void ScheduleTimers::set_state(const std::string &name, ScheduleTimer &timer, TimerState state) {
  if (timer.state != state) {
    debug(kDebugRequest, "schedule %s: %s -> %s", name.c_str(), timer_state_name(timer.state),
          timer_state_name(state));
  }
  timer.state = state;
}

void ScheduleTimers::set_running(const std::string &name, ScheduleTimer &timer, bool running) {
  if (timer.running != running) {
    debug(kDebugRequest, "schedule %s: %s", name.c_str(), running ? "running" : "run ended");
  }
  timer.running = running;
}

void ScheduleTimers::unqueue(const std::string &name, const ScheduleTimer &timer) {
  if (timer.state == TimerState::armed) queue_.erase({timer.next, name});
}

void ScheduleTimers::arm(const std::string &name, ScheduleTimer &timer, const ScheduleFacts &facts) {
  unqueue(name, timer);
  if (!facts.runnable) {
    set_state(name, timer, TimerState::idle);
    return;
  }
  std::optional<std::time_t> next = next_run_(facts.time);
  // A one-shot whose time has passed or which has had its run, or a repeat that would have to
  // catch up: nothing to arm.
  // An instant already fired that has come again (a next-run computation that does not move on)
  // is not armed either: it would wake the loop again and again for nothing.
  bool fired_already = next && *next <= timer.last_fire;
  if (!next || (fired_already && (facts.time.type == SCH_TM_ONESHOT || *next <= clock_.wall_seconds()))) {
    set_state(name, timer, TimerState::done);
    return;
  }
  timer.next = *next;
  queue_.insert({timer.next, name});
  set_state(name, timer, TimerState::armed);
}

void ScheduleTimers::refresh(const std::string &name, const ScheduleFacts &facts) {
  auto [found, created] = timers_.try_emplace(name);
  ScheduleTimer &timer = found->second;
  if (created) timer.last_fire = facts.last_execution;
  arm(name, timer, facts);
}

void ScheduleTimers::remove(const std::string &name) {
  auto found = timers_.find(name);
  if (found == timers_.end()) return;
  unqueue(name, found->second);
  timers_.erase(found);
}

void ScheduleTimers::recompute_all(const std::function<ScheduleFacts(const std::string &)> &facts_of) {
  for (auto &[name, timer] : timers_) {
    if (timer.state != TimerState::idle) arm(name, timer, facts_of(name));
  }
}

std::vector<std::pair<std::string, std::time_t>> ScheduleTimers::armed_until(std::time_t limit) const {
  std::vector<std::pair<std::string, std::time_t>> armed;
  for (auto at = queue_.begin(); at != queue_.end() && at->first <= limit; ++at) armed.emplace_back(at->second, at->first);
  return armed;
}

std::optional<std::time_t> ScheduleTimers::earliest_after(std::time_t limit) const {
  auto after = queue_.lower_bound({limit + 1, std::string()});
  if (after == queue_.end()) return std::nullopt;
  return after->first;
}

std::optional<std::time_t> ScheduleTimers::earliest() const {
  if (queue_.empty()) return std::nullopt;
  return queue_.begin()->first;
}

std::vector<std::pair<std::string, std::time_t>> ScheduleTimers::take_due(
    const std::function<ScheduleFacts(const std::string &)> &facts_of) {
  std::time_t now = clock_.wall_seconds();
  // Each schedule due now is looked at once, even if it is armed again for an instant that has
  // come already.
  std::vector<std::pair<std::time_t, std::string>> taken;
  while (!queue_.empty() && queue_.begin()->first <= now) {
    taken.push_back(*queue_.begin());
    queue_.erase(queue_.begin());
  }
  std::vector<std::pair<std::string, std::time_t>> due;
  for (auto &[instant, name] : taken) {
    ScheduleTimer &timer = timers_[name];
    timer.state = TimerState::idle;  // out of the queue
    if (instant <= timer.last_fire) {
      // The clock was set back across a fire already made: that fire is not made again.
      debug(kDebugRequest, "schedule %s: %ld already fired", name.c_str(), static_cast<long>(instant));
      arm(name, timer, facts_of(name));
      continue;
    }
    timer.last_fire = instant;
    if (timer.running) {
      timer.skipped++;
      skipped_.emplace_back(name, instant);
      arm(name, timer, facts_of(name));
      continue;
    }
    set_running(name, timer, true);
    due.emplace_back(name, instant);
  }
  return due;
}

void ScheduleTimers::run_finished(const std::string &name) {
  auto found = timers_.find(name);
  if (found != timers_.end()) set_running(name, found->second, false);
}

std::vector<std::pair<std::string, std::time_t>> ScheduleTimers::take_skipped() {
  return std::exchange(skipped_, {});
}

void ScheduleTimers::note_missed(const std::string &name, uint32_t count) { timers_[name].missed += count; }

const ScheduleTimer *ScheduleTimers::find(const std::string &name) const {
  auto found = timers_.find(name);
  return found == timers_.end() ? nullptr : &found->second;
}

}  // namespace schedd
