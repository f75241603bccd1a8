// Running the real daemon and the real shell from a test.
#ifndef TESTS_E2E_PROCESSES_H
#define TESTS_E2E_PROCESSES_H

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace e2e {

// Changes to the test's own environment for a child; an empty value removes the variable.
using Environment = std::map<std::string, std::string>;

// The preloaded libfaketime's clock as `faketime` sets it, read with `format` (none when empty), in
// UTC; `more` follows it in LD_PRELOAD. The monotonic clock, which timeouts use, still runs.
Environment fake_clock(const std::string &faketime, const std::string &format = "", const std::string &more = "");
// The clock of the transcripts: stopped at 1900000000 (Sun Mar 17 17:46:40 2030 UTC).
Environment stopped_clock();
// Preloads `libraries` (colon-separated); the sanitizer runtime is told to accept that.
void preload(Environment &environment, const std::string &libraries);
// The stopped clock, with this process's user called `user` by nss_wrapper (its files are
// written into `directory`) and PAM from pam_wrapper with the tests' schedcli service, where
// pam_matrix knows the remote user alice with the password wonderland.
Environment as_user(const std::string &directory, const std::string &user);

// A finished run of the shell or of the daemon's command.
struct ShellRun {
  std::string out, err;
  int status = -1;   // exit status, or 128 + the signal that ended it
};

// A temporary directory (removed at the end) with a daemon in the foreground on "<dir>/state"
// and "<dir>/run", its output in "<dir>/schedd.log".
class Daemon {
 public:
  Daemon() = default;
  ~Daemon();
  Daemon(const Daemon &) = delete;
  Daemon &operator=(const Daemon &) = delete;

  const std::string &directory() const { return directory_; }
  // The state and runtime directory options.
  std::vector<std::string> directories() const;
  // Starts it and waits until it serves; false, with the reason in `why`, when it does not.
  // `options` follow the directory options (--standby, ...).
  bool start(std::string *why, const Environment &environment = stopped_clock(),
             const std::vector<std::string> &options = {});
  // Starts it detached, as an operator does, with `options` after the directory options, and
  // returns the command's run: once that ended with 0 the daemon serves. This process becomes a
  // subreaper, so that the detached daemon is its child and stop() has its exit status.
  ShellRun start_detached(const std::vector<std::string> &options = {});
  // Runs the daemon's command with exactly `arguments`, in the test's environment, and waits for it.
  static ShellRun schedd(const std::vector<std::string> &arguments);
  pid_t pid() const { return pid_; }
  // SIGTERM and wait: the exit status (0 for a clean stop), or -1 when it was not running.
  int stop();
  // SIGKILL, as a crash would end it, and waits for its end.
  void kill_now();
  std::string log() const;
  // start(), then the scheduler feature turned on through the shell (as root, on the stopped
  // clock), as an operator does first; false, with the reason in `why`, when either fails.
  bool serve(std::string *why, const Environment &environment = stopped_clock(),
             const std::vector<std::string> &options = {});

  // Runs the shell against this daemon with `input` on its standard input and `arguments` after
  // the directory options, as the local user `user` when one is named; a run that takes over 60 s
  // is killed.
  ShellRun shell(const std::string &input, const std::vector<std::string> &arguments = {},
                 const Environment &environment = stopped_clock(), const std::string &user = "") const;
  // Makes `group` the socket's group, which may reach it and nothing else of the directory.
  bool share_socket(const std::string &group) const;
  std::string socket_path() const;

 private:
  sch::testing::TempDir temp_;  // removed after the destructor has stopped the daemon
  std::string directory_ = temp_.path();
  pid_t pid_ = -1;
};

// As root: `group` and `users` in it made afresh (useradd), true when made; removed again.
bool make_users(const std::string &group, const std::vector<std::string> &users);
void remove_users(const std::string &group, const std::vector<std::string> &users);

// The login name of the effective user, as the programs see it without wrappers.
std::string user_name();
std::string read_file(const std::string &path);
// The state letter of process `pid` in /proc (R, S, Z, ...), 0 when there is none.
char process_state(pid_t pid);
// A new connection to the socket at `path`, or -1.
int connect_to(const std::string &path);
// How often `what` occurs in `text`, without overlaps.
std::size_t count(const std::string &text, const std::string &what);
void write_file(const std::string &path, const std::string &text);

}  // namespace e2e

#endif
