// The daemon's command line.
#ifndef SCHEDD_OPTIONS_H
#define SCHEDD_OPTIONS_H

#include <cstdio>
#include <string>
#include <vector>

namespace schedd {

struct Options {
  std::string state_dir;    // absolute
  std::string runtime_dir;  // absolute
  bool foreground = false;
  bool standby = false;
  bool enable_feature = false;  // turn the scheduler feature on at start, as 'feature scheduler' does
  std::vector<int> debug_levels;  // -1 stands for every level
  std::string interpreter = "/bin/sh";  // runs each job's command text, given with -c
  std::string ready_program;  // the daemon's own executable, where jobs made ready wait (not an option)
  int job_time_limit_seconds = 3600;    // a job still running then is ended
  std::string mail_ca_file;             // certificates for STARTTLS; empty: the system's
  // Delays before each mail retry, in milliseconds; empty: the mailer's own (minutes). Set only by
  // the hidden --mail-retry-delays, so that tests see a delivery given up without waiting.
  std::vector<int> mail_retry_delays_ms;
};

// What the command line asks for: to serve, or only to print something and exit.
enum class Parsed { run, help, version, print_directories, usage_error };

// Fills `options` from the command line, the directories defaulting to the platform's (for
// print_directories too). On a usage error `error` says what is wrong.
Parsed parse_options(int argc, char **argv, Options *options, std::string *error);
void print_usage(std::FILE *out);

}  // namespace schedd

#endif
