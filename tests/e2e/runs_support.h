// What the tests of job runs on the real clock share: the clock, the minute they wait for, the
// shell as another user.
#ifndef TESTS_E2E_RUNS_SUPPORT_H
#define TESTS_E2E_RUNS_SUPPORT_H

#include <chrono>
#include <ctime>
#include <functional>
#include <string>

#include "processes.h"

namespace e2e {

// The real clock in UTC, for the daemon and the shell alike.
Environment real_clock();
// The next whole minute at least `lead` from now: the schedules are made in that time.
std::time_t next_minute(std::chrono::seconds lead);
// `instant` as the one-shot time of "time start" (UTC): YYYY:MM:DD:HH:MM.
std::string start_text(std::time_t instant);
// Polls `done` every 200 ms until it holds (true) or the wall clock passes `deadline` (false).
bool wait_until(std::time_t deadline, const std::function<bool()> &done);
// The name of the daemon's socket in its runtime directory.
std::string socket_name();
// The shell as the local user `user` (who can reach the daemon's socket) with `input`.
ShellRun shell_as(const Daemon &daemon, const std::string &user, const std::string &input);

}  // namespace e2e

#endif
