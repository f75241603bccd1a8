// schedd, the scheduler daemon: start-up, serving until told to stop, and shutdown.
#include <signal.h>

#include <cstdio>
#include <string>

#include "core/clock.h"
#include "core/daemon.h"
#include "detach.h"
#include "options.h"
#include "schedcli/platform/syslog.h"

namespace {

constexpr int kStartFailed = 1;
constexpr int kUsageError = 2;

int serve(const schedd::Options &options) {
  schedd::Detacher detacher;
  if (!options.foreground && !detacher.detach()) return kStartFailed;
  // Until the daemon serves, whoever started it sees its log messages (why a store would not
  // open, for one); a detached daemon's standard error goes nowhere after that.
  nost_syslog_copy_to_stderr(1);

  schedd::SystemClock clock;
  schedd::Daemon daemon(options, clock);
  std::string error;
  if (!daemon.start(&error)) {
    std::fprintf(stderr, "schedd: %s\n", error.c_str());
    return kStartFailed;
  }
  detacher.ready(daemon.socket_path());
  daemon.run();
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
    case schedd::Parsed::usage_error:
      std::fprintf(stderr, "schedd: %s\nTry 'schedd --help' for the options.\n", error.c_str());
      return kUsageError;
    case schedd::Parsed::run:
      break;
  }
  // Replies to a client that has gone must not end the daemon.
  signal(SIGPIPE, SIG_IGN);
  return serve(options);
}
