// The waiting half of a job made ready ahead.
#include "runner/ready_job.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "runner/job_process.h"
#include "runner/run_marker.h"

extern char **environ;

namespace schedd::runner {

std::vector<std::string> ready_job_arguments(const std::string &program, std::time_t instant, pid_t daemon,
                                             int marker_fd, const std::vector<std::string> &job_argv) {
  std::vector<std::string> arguments{program, kReadyJobArgument, std::to_string(instant), std::to_string(daemon),
                                     std::to_string(marker_fd)};
  arguments.insert(arguments.end(), job_argv.begin(), job_argv.end());
  return arguments;
}

int ready_job_main(int argc, char **argv) {
  // program --ready-job INSTANT DAEMON MARKER_FD INTERPRETER ARGUMENTS...
  if (argc < 6 || std::strcmp(argv[1], kReadyJobArgument) != 0) return 2;
  char *end = nullptr;
  long long instant = std::strtoll(argv[2], &end, 10);
  long daemon = std::strtol(argv[3], nullptr, 10);
  int marker_fd = static_cast<int>(std::strtol(argv[4], nullptr, 10));
  if (*end != '\0' || instant <= 0 || daemon <= 1 || marker_fd <= kChildReportFd) return 2;
  // The parent-death signal asked for before the exec holds: a daemon gone already ends it here.
  if (getppid() != static_cast<pid_t>(daemon)) _exit(0);
  timespec at{static_cast<std::time_t>(instant), 0};
  while (clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &at, nullptr) == EINTR) {
  }
  if (!RunMarker::claim_start(marker_fd)) _exit(0);  // cancelled: it never was the job
  close(marker_fd);
  prctl(PR_SET_PDEATHSIG, 0);
  // The report pipe closes on the job's exec, which tells the daemon the job started.
  fcntl(kChildReportFd, F_SETFD, FD_CLOEXEC);
  execve(argv[5], argv + 5, environ);
  report_exec_failure(argv[5], errno);
}

}  // namespace schedd::runner
