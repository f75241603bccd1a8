// What the tests of job runs share: a wall clock shifted to a whole minute that is seconds away.
#ifndef TESTS_E2E_RUNS_SUPPORT_H
#define TESTS_E2E_RUNS_SUPPORT_H

#include <chrono>
#include <ctime>
#include <functional>
#include <string>

#include "processes.h"

namespace e2e {

// The real clock moved ahead by under a minute (libfaketime, in UTC) for the daemon, its shells,
// its jobs and this test alike, so that the next whole minute is `lead` away when it is made.
// The shift is fixed: every process sees the same running clock.
class ShiftedClock {
 public:
  explicit ShiftedClock(std::chrono::seconds lead);
  std::time_t now() const;
  // The whole minute ahead, at least `lead` from when the clock was made.
  std::time_t minute() const { return minute_; }
  // For the daemon and the shell; `base` adds to it (its LD_PRELOAD comes after the clock's).
  Environment environment(Environment base = {}) const;
  void sleep_until(std::time_t instant) const;
  // Polls `done` every 200 ms until it holds (true) or the clock passes `deadline` (false).
  bool wait_until(std::time_t deadline, const std::function<bool()> &done) const;

 private:
  long shift_ = 0;
  std::time_t minute_ = 0;
};

// `instant` as the one-shot time of "time start" (UTC): YYYY:MM:DD:HH:MM.
std::string start_text(std::time_t instant);

}  // namespace e2e

#endif
