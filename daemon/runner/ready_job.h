// A job made ready ahead waits for its instant in a process of its own: the runner's child, once
// it is the job's user, executes the small ready-job program (schedd-ready), so that the copy of
// the daemon it was forked from is gone before the instant and the start at the instant is one
// exec, from a process with next to nothing to tear down.
#ifndef SCHEDD_RUNNER_READY_JOB_H
#define SCHEDD_RUNNER_READY_JOB_H

#include <chrono>
#include <ctime>
#include <string>
#include <vector>

#include <sys/types.h>

namespace schedd::runner {

inline constexpr const char *kReadyJobProgramName = "schedd-ready";
// The ready-job program's first argument, against running it by mistake.
inline constexpr const char *kReadyJobArgument = "--ready-job";

// The arguments that make `program` wait for `instant` and then execute `job_argv`, if the start
// is claimed in the marker open as `marker_fd`; `daemon` is the daemon's pid. See wait_for_instant
// for `awake_before`.
std::vector<std::string> ready_job_arguments(const std::string &program, std::time_t instant,
                                             std::chrono::microseconds awake_before, pid_t daemon, int marker_fd,
                                             const std::vector<std::string> &job_argv);

// Returns at `instant` (seconds since the epoch on the system's clock), not before. The last
// `awake_before` of the wait is spent awake reading the clock: a sleeper whose timer goes off on
// an idle CPU starts only when that CPU has left idle, which takes milliseconds on some machines
// (virtual ones above all), while a CPU kept busy hands over to the job at once.
void wait_for_instant(std::time_t instant, std::chrono::microseconds awake_before);

// The ready-job program's main: waits, claims the start and executes the job; returns only on a usage error.
// The job's setup failures are reported as the runner's child reports them.
int ready_job_main(int argc, char **argv);

}  // namespace schedd::runner

#endif
