// The runner child's last words.
#include "runner/child_report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace schedd::runner {

void give_up(int report_fd, char kind, int exit_code, const char *format, ...) {
  char text[kReportSize];
  text[0] = kind;
  va_list arguments;
  va_start(arguments, format);
  int length = vsnprintf(text + 1, sizeof text - 1, format, arguments);
  va_end(arguments);
  size_t size = 1 + (length < 0 ? 0 : std::min(static_cast<size_t>(length), sizeof text - 2));
  // There is nothing to do if it fails.
  ssize_t ignored = write(report_fd, text, size);
  (void)ignored;
  _exit(exit_code);
}

void report_exec_failure(const char *program, int error) {
  give_up(kChildReportFd, kReportExec, kExitUnavailable, "cannot execute %s: %s\n", program, strerror(error));
}

}  // namespace schedd::runner
