// The waiting half of a job made ready ahead.
#include "runner/ready_job.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "runner/child_report.h"
#include "runner/run_marker.h"

extern char **environ;

namespace schedd::runner {

namespace {

int64_t nanoseconds_now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

bool parse_number(const char *text, long long lowest, long long highest, long long &number) {
  char *end = nullptr;
  errno = 0;
  number = std::strtoll(text, &end, 10);
  return errno == 0 && end != text && *end == '\0' && number >= lowest && number <= highest;
}

}  // namespace

std::vector<std::string> ready_job_arguments(const std::string &program, std::time_t instant,
                                             std::chrono::microseconds awake_before, pid_t daemon, int marker_fd,
                                             const std::vector<std::string> &job_argv) {
  std::vector<std::string> arguments{program,
                                     kReadyJobArgument,
                                     std::to_string(instant),
                                     std::to_string(awake_before.count()),
                                     std::to_string(daemon),
                                     std::to_string(marker_fd)};
  arguments.insert(arguments.end(), job_argv.begin(), job_argv.end());
  return arguments;
}

void wait_for_instant(std::time_t instant, std::chrono::microseconds awake_before) {
  const int64_t due = int64_t{instant} * 1'000'000'000;
  const int64_t awake = std::max<int64_t>(0, std::chrono::nanoseconds(awake_before).count());
  for (int64_t now = nanoseconds_now(); now < due; now = nanoseconds_now()) {
    // Also after a step of the clock back while awake: asleep again until the stretch before.
    if (due - now > awake) {
      const int64_t wake = due - awake;
      timespec at{static_cast<std::time_t>(wake / 1'000'000'000), static_cast<long>(wake % 1'000'000'000)};
      clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &at, nullptr);
    }
  }
}

int ready_job_main(int argc, char **argv) {
  // program --ready-job INSTANT AWAKE_US DAEMON MARKER_FD INTERPRETER ARGUMENTS...
  if (argc < 7 || std::strcmp(argv[1], kReadyJobArgument) != 0) return 2;
  long long instant = 0, awake_us = 0, daemon = 0, marker_fd = 0;
  if (!parse_number(argv[2], 1, std::numeric_limits<std::time_t>::max() / 1'000'000'000, instant) ||
      !parse_number(argv[3], 0, 1'000'000, awake_us) || !parse_number(argv[4], 2, INT_MAX, daemon) ||
      !parse_number(argv[5], kChildReportFd + 1, INT_MAX, marker_fd)) {
    return 2;
  }
  // The parent-death signal asked for before the exec holds: a daemon gone already ends it here.
  if (getppid() != static_cast<pid_t>(daemon)) _exit(0);
  wait_for_instant(static_cast<std::time_t>(instant), std::chrono::microseconds(awake_us));
  if (!RunMarker::claim_start(static_cast<int>(marker_fd))) _exit(0);  // cancelled: it never was the job
  close(static_cast<int>(marker_fd));
  prctl(PR_SET_PDEATHSIG, 0);
  // The report pipe closes on the job's exec, which tells the daemon the job started.
  fcntl(kChildReportFd, F_SETFD, FD_CLOEXEC);
  execve(argv[6], argv + 6, environ);
  report_exec_failure(argv[6], errno);
}

}  // namespace schedd::runner
