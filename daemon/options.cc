// The daemon's command line.
#include "options.h"

#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "schedcli/platform/sdwrap.h"
#include "schedcli/platform/sysmgr.h"

namespace schedd {

namespace {

enum OptionCode {
  kStateDir = 1,
  kRuntimeDir,
  kForeground,
  kStandby,
  kEnableFeature,
  kDebug,
  kHelp,
  kVersion,
  kPrintDirectories,
  kInterpreter,
  kJobTimeLimit,
  kMailCaFile,
  kMailRetryDelays
};

constexpr option kOptions[] = {
    {"interpreter", required_argument, nullptr, kInterpreter},
    {"job-time-limit", required_argument, nullptr, kJobTimeLimit},
    {"mail-ca-file", required_argument, nullptr, kMailCaFile},
    // Not in the usage text: for tests only.
    {"mail-retry-delays", required_argument, nullptr, kMailRetryDelays},
    {"state-dir", required_argument, nullptr, kStateDir},
    {"runtime-dir", required_argument, nullptr, kRuntimeDir},
    {"foreground", no_argument, nullptr, kForeground},
    {"standby", no_argument, nullptr, kStandby},
    {"enable-feature", no_argument, nullptr, kEnableFeature},
    {"debug", required_argument, nullptr, kDebug},
    {"help", no_argument, nullptr, kHelp},
    {"version", no_argument, nullptr, kVersion},
    {"print-directories", no_argument, nullptr, kPrintDirectories},
    {nullptr, 0, nullptr, 0},
};

// "MS[,MS...]": up to ten delays of 0 to 3600000 milliseconds each.
bool parse_delays(const char *text, std::vector<int> *delays) {
  std::vector<int> parsed;
  const char *at = text;
  while (true) {
    char *end = nullptr;
    errno = 0;
    long value = std::strtol(at, &end, 10);
    if (errno != 0 || end == at || value < 0 || value > 3600000 || parsed.size() == 10) return false;
    parsed.push_back(static_cast<int>(value));
    if (*end == '\0') break;
    if (*end != ',') return false;
    at = end + 1;
  }
  *delays = parsed;
  return true;
}

bool parse_level(const char *text, int *level) {
  if (std::strcmp(text, "all") == 0) {
    *level = -1;
    return true;
  }
  char *end = nullptr;
  errno = 0;
  long value = std::strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || value < 0 || value > SDWRAP_MAX_LEVEL) return false;
  *level = static_cast<int>(value);
  return true;
}

// The daemon leaves its working directory, so a relative path is taken from where it started.
bool make_absolute(std::string *path, std::string *error) {
  if (path->empty()) {
    *error = "a directory must not be empty";
    return false;
  }
  if ((*path)[0] == '/') return true;
  char *cwd = getcwd(nullptr, 0);
  if (!cwd) {
    *error = std::string("cannot resolve ") + *path + ": " + std::strerror(errno);
    return false;
  }
  std::string base(cwd);
  if (base.back() != '/') base += '/';  // the root directory ends in one already
  *path = base + *path;
  std::free(cwd);
  return true;
}

bool default_directory(int (*get)(char *, size_t), std::string *path, std::string *error) {
  char buffer[4096];
  if (get(buffer, sizeof buffer) != 0) {
    *error = "cannot work out a default directory; give --state-dir and --runtime-dir";
    return false;
  }
  *path = buffer;
  return true;
}

}  // namespace

Parsed parse_options(int argc, char **argv, Options *options, std::string *error) {
  optind = 1;
  opterr = 0;
  int code;
  bool print_directories = false;
  while ((code = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    switch (code) {
      case kStateDir:
        options->state_dir = optarg;
        break;
      case kRuntimeDir:
        options->runtime_dir = optarg;
        break;
      case kForeground:
        options->foreground = true;
        break;
      case kStandby:
        options->standby = true;
        break;
      case kEnableFeature:
        options->enable_feature = true;
        break;
      case kDebug: {
        int level;
        if (!parse_level(optarg, &level)) {
          *error = std::string("--debug takes a level from 0 to 255 or 'all', not '") + optarg + "'";
          return Parsed::usage_error;
        }
        options->debug_levels.push_back(level);
        break;
      }
      case kInterpreter:
        if (optarg[0] != '/') {
          *error = std::string("--interpreter takes an absolute path, not '") + optarg + "'";
          return Parsed::usage_error;
        }
        options->interpreter = optarg;
        break;
      case kJobTimeLimit: {
        char *end = nullptr;
        errno = 0;
        long seconds = std::strtol(optarg, &end, 10);
        if (errno != 0 || end == optarg || *end != '\0' || seconds < 1 || seconds > 7 * 86400) {
          *error = std::string("--job-time-limit takes seconds from 1 to 604800, not '") + optarg + "'";
          return Parsed::usage_error;
        }
        options->job_time_limit_seconds = static_cast<int>(seconds);
        break;
      }
      case kMailCaFile:
        options->mail_ca_file = optarg;
        break;
      case kMailRetryDelays:
        if (!parse_delays(optarg, &options->mail_retry_delays_ms)) {
          *error = std::string("--mail-retry-delays takes up to ten milliseconds counts, comma-separated, not '") +
                   optarg + "'";
          return Parsed::usage_error;
        }
        break;
      case kHelp:
        return Parsed::help;
      case kVersion:
        return Parsed::version;
      case kPrintDirectories:
        print_directories = true;
        break;
      default:
        *error = optopt == 0 ? std::string("unknown option ") + argv[optind - 1]
                             : std::string("option is missing its value: ") + argv[optind - 1];
        return Parsed::usage_error;
    }
  }
  if (optind < argc) {
    *error = std::string("unexpected argument ") + argv[optind];
    return Parsed::usage_error;
  }
  if (options->standby && options->enable_feature) {
    *error = "--enable-feature changes the configuration, which a standby does not";
    return Parsed::usage_error;
  }
  if (options->state_dir.empty() && !default_directory(sysmgr_default_state_dir, &options->state_dir, error)) {
    return Parsed::usage_error;
  }
  if (options->runtime_dir.empty() &&
      !default_directory(sysmgr_default_runtime_dir, &options->runtime_dir, error)) {
    return Parsed::usage_error;
  }
  if (!make_absolute(&options->state_dir, error) || !make_absolute(&options->runtime_dir, error)) {
    return Parsed::usage_error;
  }
  return print_directories ? Parsed::print_directories : Parsed::run;
}

void print_usage(std::FILE *out) {
  std::fputs(
      "Usage: schedd [OPTION]...\n"
      "The scheduler daemon: keeps the scheduler's jobs, schedules, email addresses,\n"
      "credentials, log file and mail transport, and serves the scheduler shell's\n"
      "requests on its socket.\n"
      "\n"
      "  --state-dir DIR     startup configuration, debug stores, device key and the\n"
      "                      log file scheduler_circular_log.dat\n"
      "                      (default /var/lib/schedcli for root, else\n"
      "                      $XDG_STATE_HOME/schedcli or ~/.local/state/schedcli)\n"
      "  --runtime-dir DIR   running stores and the socket schedd.sock; a missing\n"
      "                      directory means a first start after boot, which takes\n"
      "                      the startup configuration (default /run/schedcli for\n"
      "                      root, else $XDG_RUNTIME_DIR/schedcli or /tmp/schedcli-UID)\n"
      "  --foreground        stay attached to the terminal and copy log messages to\n"
      "                      standard error\n"
      "  --standby           start as the standby: open the stores, restore nothing,\n"
      "                      refuse changes\n"
      "  --enable-feature    turn the scheduler feature on at start when it is off,\n"
      "                      as 'feature scheduler' does (for set-ups without a shell)\n"
      "  --debug LEVEL       write debug output of LEVEL (0-255, or 'all'; the\n"
      "                      scheduler uses 100 start-up, 102 details, 103 records\n"
      "                      and requests); may be repeated. Detached, the output\n"
      "                      goes to schedd-debug.log in the state directory\n"
      "  --interpreter PATH  the command interpreter that runs each job's text, given\n"
      "                      as its -c argument (default /bin/sh)\n"
      "  --job-time-limit S  end a job still running after S seconds: SIGTERM to its\n"
      "                      processes, SIGKILL 5 seconds later (default 3600)\n"
      "  --mail-ca-file FILE certificates to verify the SMTP server's STARTTLS\n"
      "                      certificate with (default: the system's store)\n"
      "  --print-directories print the state and runtime directories the other\n"
      "                      options select, and exit\n"
      "  --help              show this text and exit\n"
      "  --version           show the version and exit\n"
      "\n"
      "Without --foreground the command returns once the daemon serves (status 0), or\n"
      "with a message and status 1 when it cannot start. SIGTERM or SIGINT stops it.\n"
      "Start, stop and start-up failures are logged to syslog (facility daemon) at the\n"
      "scheduler's logging level; under systemd, readiness is reported on\n"
      "$NOTIFY_SOCKET.\n",
      out);
}

}  // namespace schedd
