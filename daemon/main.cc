// schedd, the scheduler daemon: start-up, serving until told to stop, and shutdown.
#include <signal.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cctype>
#include <climits>
#include <cstdio>
#include <string>

#include "core/clock.h"
#include "core/daemon.h"
#include "core/syslog_lines.h"
#include "detach.h"
#include "options.h"
#include "runner/ready_job.h"
#include "schedcli/diag.h"
#include "schedcli/platform/syslog.h"
#include "schedcli/platform/sysmgr.h"
#include "schedcli_version.h"

namespace {

constexpr int kStartFailed = 1;
constexpr int kUsageError = 2;

// The ready-job program: beside this one (a build tree, or a relocated installation), else where
// it is installed. None: a job made ready waits in its copy of the daemon.
std::string ready_job_program() {
  std::string self(PATH_MAX, '\0');
  ssize_t length = readlink("/proc/self/exe", self.data(), self.size());
  if (length > 0 && static_cast<size_t>(length) < self.size()) {
    self.resize(static_cast<size_t>(length));
    std::string beside = self.substr(0, self.rfind('/') + 1) + schedd::runner::kReadyJobProgramName;
    if (access(beside.c_str(), X_OK) == 0) return beside;
  }
  return access(SCHEDD_READY_PROGRAM, X_OK) == 0 ? SCHEDD_READY_PROGRAM : "";
}

std::string start_text(const schedd::Options &options) {
  return std::string("schedd " SCHED_VERSION " started as ") + (options.standby ? "standby" : "active") +
         ": state directory " + options.state_dir + ", runtime directory " + options.runtime_dir +
         (sysmgr_is_stateless_restart() ? " (first start since boot: startup configuration)"
                                        : " (running configuration kept)");
}

int serve(const schedd::Options &options) {
  schedd::Detacher detacher;
  if (!options.foreground && !detacher.detach()) return kStartFailed;
  // Until the daemon serves, whoever started it sees its log messages (why a store would not
  // open, for one); a detached daemon's standard error goes nowhere after that. Under systemd
  // standard error may be the journal, which has the syslog line already.
  nost_syslog_copy_to_stderr(schedd::stderr_is_journal() ? 0 : 1);

  schedd::SystemClock clock;
  schedd::Daemon daemon(options, clock);
  std::string error;
  if (!daemon.start(&error)) {
    std::fprintf(stderr, "schedd: %s\n", error.c_str());
    nost_syslog_copy_to_stderr(0);
    schedd::log_line(LOG_ERR, "SCHEDD_START_FAILED", "schedd " SCHED_VERSION " cannot start: " + error);
    return kStartFailed;
  }
  // Logged once ready: a detached start says nothing on its terminal, the foreground copies it.
  detacher.ready(daemon.socket_path());
  schedd::log_line(LOG_NOTICE, "SCHEDD_START", start_text(options));
  daemon.run();
  schedd::notify_service_manager("STOPPING=1");
  // Said while the operator's logging level is still in force: stopping releases it.
  schedd::log_line(LOG_NOTICE, "SCHEDD_STOP", "schedd " SCHED_VERSION " stopped");
  daemon.stop();
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  schedd::Options options;
  std::string error;
  switch (schedd::parse_options(argc, argv, &options, &error)) {
    case schedd::Parsed::help:
      schedd::print_usage(stdout);
      return 0;
    case schedd::Parsed::version:
      std::printf("schedd (schedcli) %s\n", SCHED_VERSION);
      return 0;
    case schedd::Parsed::print_directories:
      std::printf("state directory: %s\nruntime directory: %s\n", options.state_dir.c_str(),
                  options.runtime_dir.c_str());
      return 0;
    case schedd::Parsed::usage_error:
      std::fprintf(stderr, "schedd: %s\nTry 'schedd --help' for the options.\n", error.c_str());
      return kUsageError;
    case schedd::Parsed::run:
      break;
  }
  options.ready_program = ready_job_program();
  openlog("schedd", LOG_PID, LOG_DAEMON);
  // Replies to a client that has gone must not end the daemon.
  signal(SIGPIPE, SIG_IGN);
  // Stores, keys, logs and lock files are the daemon's own, whatever umask it was started with;
  // job processes set their own.
  umask(077);
  return serve(options);
}
