// How a runner child that cannot start its job says why: one message on its report pipe, then an
// exit code of its own. Used between fork and exec, and by the ready-job program: no allocation,
// nothing beyond the C library.
#ifndef SCHEDD_RUNNER_CHILD_REPORT_H
#define SCHEDD_RUNNER_CHILD_REPORT_H

#include <cstddef>

namespace schedd::runner {

// Exit codes of a runner child that could not start the job; the reason is the run's output.
// (sysexits values: apart from the shell's 126 and 127 and from signals.)
inline constexpr int kExitNoUser = 67;       // the user is not known to the system
inline constexpr int kExitUnavailable = 69;  // the interpreter could not be executed
inline constexpr int kExitSystem = 71;       // descriptors, directory or another system call failed
inline constexpr int kExitNoPermission = 77; // PAM refused the user, or dropping privileges failed

// The runner child's report pipe, while it sets the job up: what it writes there before giving
// up is the run's reason; the pipe closes unread when the job's exec succeeds.
inline constexpr int kChildReportFd = 3;

// A report: one kind byte, then the reason; one write below PIPE_BUF, so it arrives whole.
inline constexpr size_t kReportSize = 512;
inline constexpr char kReportSetup = 'S';  // the child could not become the user
inline constexpr char kReportExec = 'E';   // the interpreter could not be executed

// Writes a report of `kind` on `report_fd` and exits with `exit_code`.
[[noreturn]] void give_up(int report_fd, char kind, int exit_code, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

// Reports on the report pipe that `program` could not be executed (errno `error`), and exits.
[[noreturn]] void report_exec_failure(const char *program, int error);

}  // namespace schedd::runner

#endif
