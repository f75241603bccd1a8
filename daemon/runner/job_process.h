// One job run: a child process under the job's user with a fresh environment, its output
// captured up to a bound, a time limit, and its end reported on the daemon's main context.
#ifndef SCHEDD_RUNNER_JOB_PROCESS_H
#define SCHEDD_RUNNER_JOB_PROCESS_H

#include <glib.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>

#include "runner/child_report.h"
#include "runner/run_marker.h"

namespace schedd::runner {

inline constexpr const char *kDefaultInterpreter = "/bin/sh";
inline constexpr const char *kJobPath = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
inline constexpr const char *kJobPamService = "schedcli";

struct JobSpec {
  std::string job;
  std::string schedule;
  std::string user;                       // whom the job runs as (the schedule's user)
  std::string command;                    // the job's command text
  std::string interpreter = kDefaultInterpreter;  // given the text with -c
  std::string time_zone;                  // TZ of the job; empty: the daemon's TZ, else ":/etc/localtime"
  std::chrono::milliseconds time_limit{std::chrono::hours(1)};
  std::chrono::milliseconds grace{std::chrono::seconds(5)};  // between SIGTERM and SIGKILL
  size_t output_limit = 64 * 1024;       // bytes kept; the marker follows where it was cut
  std::function<int64_t()> clock;         // wall clock for start and end; empty: time()
  // Made ready ahead: the child does everything up to the exec now, then waits for this instant
  // (seconds since the epoch, on the system's clock) and starts the job only if it claims the
  // start in `start_gate` (when given). A daemon that dies before the instant takes the child
  // with it. 0: the job starts at once.
  std::time_t start_at = 0;
  RunMarker *start_gate = nullptr;
  // How long before `start_at` the waiting child stays awake (see wait_for_instant in ready_job.h).
  std::chrono::microseconds awake_before{0};
  // The ready-job program (see ready_job.h): with a start gate, the child waits for the instant
  // in it rather than as a copy of the daemon. Empty: the child waits itself.
  std::string ready_program;
};

struct JobOutcome {
  int wait_status = 0;      // as waitpid reports it; a run that never started has exit code 67 or 71
  bool started = false;     // false: the user was unknown or no child could be made (see output)
  bool exec_failed = false; // the child ran but the interpreter could not be executed
  bool setup_failed = false;// the child could not become the user (PAM, groups, ids, directory)
  bool timed_out = false;   // ended by the time limit
  std::string output;       // standard output and error as one stream, or the reason it failed
  bool truncated = false;   // output went past the limit; the marker ends what was kept
  int64_t started_at = 0;   // seconds since the epoch
  int64_t ended_at = 0;
};

// Loads the PAM service's modules into this process and keeps them there, so that each job's
// child, which starts PAM for its user, finds them loaded rather than loading them again: that
// load is most of the time between a fire and the job's first instruction. Safe to call more than
// once; does nothing when the process is not root.
void keep_pam_modules_loaded();

// Text put at the end of kept output when more was discarded.
std::string truncation_marker(size_t limit);

class JobProcess {
 public:
  using Completion = std::function<void(const JobOutcome &)>;

  // Starts the run. `done` is called once, from `context`'s loop and never from within start(),
  // also for a run that could not start (unknown user, no child). The JobProcess must outlive
  // the call or be destroyed first; nothing is called after it is destroyed.
  //
  // When the daemon runs as root the child opens a PAM account check and session for the user
  // (service "schedcli") and drops to the user's ids, verifying that root cannot be regained;
  // otherwise the job runs as the daemon's own user.
  static std::unique_ptr<JobProcess> start(GMainContext *context, const JobSpec &job_spec, Completion done);

  // A run still going is killed with its whole process group, and reaped.
  ~JobProcess();
  JobProcess(const JobProcess &) = delete;
  JobProcess &operator=(const JobProcess &) = delete;

  pid_t pid() const { return pid_; }
  bool finished() const { return finished_; }

 private:
  JobProcess(GMainContext *context, const JobSpec &job_spec, Completion done);
  void launch();
  void fail_before_start(int exit_code, const std::string &reason);
  void attach(GSource *source, GSourceFunc callback);
  static gboolean on_output(gint fd, GIOCondition condition, gpointer self);
  static void on_exit(GPid pid, gint status, gpointer self);
  static gboolean on_time_limit(gpointer self);
  static gboolean on_grace_over(gpointer self);
  static gboolean on_drain_over(gpointer self);
  static gboolean on_report(gpointer self);
  bool drain_output();
  void keep_output(const char *bytes, size_t length);
  void read_setup_report();
  void kill_group(int signal);
  void finish();
  void remove_sources();
  int64_t now() const;

  GMainContext *context_;
  JobSpec spec_;
  Completion done_;
  JobOutcome outcome_;
  pid_t pid_ = -1;
  int output_fd_ = -1;
  int report_fd_ = -1;  // the child's setup failures; closes unread on a successful exec
  bool exited_ = false;
  bool finished_ = false;
  GSource *output_source_ = nullptr;
  GSource *child_source_ = nullptr;
  GSource *limit_source_ = nullptr;
  GSource *grace_source_ = nullptr;
  GSource *drain_source_ = nullptr;
  GSource *report_source_ = nullptr;
};

}  // namespace schedd::runner

#endif
