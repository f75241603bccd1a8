// schedd, the scheduler daemon: start-up, serving until told to stop, and shutdown.
#include <signal.h>

#include <cstdio>
#include <string>

#include "detach.h"
#include "options.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/syslog.h"
#include "server.h"
#include "startup.h"

namespace {

constexpr int kStartFailed = 1;
constexpr int kUsageError = 2;

int serve(const schedd::Options &options) {
  schedd::Detacher detacher;
  if (!options.foreground && !detacher.detach()) return kStartFailed;
  // Until the daemon serves, whoever started it sees its log messages (why a store would not
  // open, for one); a detached daemon's standard error goes nowhere after that.
  nost_syslog_copy_to_stderr(1);

  schedd::Service service;
  std::string error;
  if (!service.start(options, &error)) {
    std::fprintf(stderr, "schedd: %s\n", error.c_str());
    return kStartFailed;
  }
  schedd::Server server(options.standby);
  if (uint32_t status = server.listen()) {
    std::fprintf(stderr, "schedd: cannot listen on %s: %s\n", server.socket_path().c_str(), syserr2str(status));
    return kStartFailed;
  }
  detacher.ready(server.socket_path());
  server.run();
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
