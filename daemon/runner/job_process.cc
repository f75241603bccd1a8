// One job run: the runner child, the watches on its output and exit, and the time limit.
#include "runner/job_process.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <grp.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "runner/ready_job.h"

namespace schedd::runner {

namespace {

constexpr size_t kReadChunk = 64 * 1024;
// How long the output may still be read after the job ended and its group was killed: a process
// that left the group could hold the pipe open for ever.
constexpr guint kDrainMilliseconds = 1000;

struct UserEntry {
  std::string name;
  uid_t uid = 0;
  gid_t gid = 0;
  std::string home;
  std::string shell;
};

// The password entry of `name` (or of `uid` when name is null). 0, ENOENT when there is none,
// or the lookup's error.
int look_up_user(const char *name, uid_t uid, UserEntry *entry) {
  long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<size_t>(suggested) : 16384);
  for (;;) {
    passwd record{};
    passwd *found = nullptr;
    int error = name ? getpwnam_r(name, &record, buffer.data(), buffer.size(), &found)
                     : getpwuid_r(uid, &record, buffer.data(), buffer.size(), &found);
    if (error == ERANGE && buffer.size() < (1u << 20)) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (error != 0) return error;
    if (!found) return ENOENT;
    entry->name = record.pw_name;
    entry->uid = record.pw_uid;
    entry->gid = record.pw_gid;
    entry->home = record.pw_dir ? record.pw_dir : "";
    entry->shell = record.pw_shell ? record.pw_shell : "";
    return 0;
  }
}

// Everything the child needs, made before the fork so that the child mostly makes system calls.
struct ChildPlan {
  bool change_user = false;  // PAM and the drop to the user's ids (the daemon runs as root)
  UserEntry user;
  std::vector<std::string> arguments;
  std::vector<std::string> environment;
  std::vector<char *> argv;
  std::vector<char *> envp;
  std::time_t start_at = 0;
  std::chrono::microseconds awake_before{0};
  RunMarker *start_gate = nullptr;
  pid_t daemon = 0;
  std::vector<std::string> ready_arguments;  // the ready-job program's
  std::vector<char *> ready_argv;
};

// Where a child made ready ahead keeps the marker open for the ready-job program.
constexpr int kChildMarkerFd = kChildReportFd + 1;

std::vector<char *> pointers_to(std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  for (std::string &text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Nobody answers a job's PAM stack: any prompt ends the attempt.
int refuse_prompts(int, const pam_message **, pam_response **, void *) { return PAM_CONV_ERR; }

// A child made ready ahead waits for its instant in the ready-job program if it can, else here.
// The parent-death signal is asked for only now: a change of ids clears it.
void wait_for_start(const ChildPlan &plan, int marker_fd, int ready_program_fd) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != plan.daemon) _exit(0);  // the daemon died before the signal was asked for
  if (marker_fd == kChildMarkerFd && ready_program_fd >= 0) {
    fcntl(kChildReportFd, F_SETFD, 0);
    fcntl(kChildMarkerFd, F_SETFD, 0);
    fexecve(ready_program_fd, plan.ready_argv.data(), plan.envp.data());
    fcntl(kChildReportFd, F_SETFD, FD_CLOEXEC);  // it could not: the wait is made here
  }
  wait_for_instant(plan.start_at, plan.awake_before);
  // Cancelled: the daemon ends this child; it never was the job.
  if (plan.start_gate && !plan.start_gate->claim_start()) _exit(0);
  // Once started, a job outlives a daemon that dies, as every job does: the next start ends it.
  prctl(PR_SET_PDEATHSIG, 0);
}

// The runner child: becomes the job's process and never returns.
[[noreturn]] void run_child(const ChildPlan &plan, int output_fd, int report_fd) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  struct sigaction default_action {};
  default_action.sa_handler = SIG_DFL;
  for (int signal_number = 1; signal_number < NSIG; signal_number++) sigaction(signal_number, &default_action, nullptr);

  if (setsid() < 0) give_up(report_fd, kReportSetup, kExitSystem, "cannot start a session: %s\n", strerror(errno));
  int null_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (null_fd < 0) give_up(report_fd, kReportSetup, kExitSystem, "cannot open /dev/null: %s\n", strerror(errno));
  // Above the standard three first, so that no dup2 below overwrites one still needed.
  int in = fcntl(null_fd, F_DUPFD_CLOEXEC, 3);
  int out = fcntl(output_fd, F_DUPFD_CLOEXEC, 3);
  int report = fcntl(report_fd, F_DUPFD_CLOEXEC, 3);
  if (in < 0 || out < 0 || report < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(out, 2) < 0) {
    give_up(report_fd, kReportSetup, kExitSystem, "cannot set up descriptors: %s\n", strerror(errno));
  }
  if (report != kChildReportFd && dup3(report, kChildReportFd, O_CLOEXEC) < 0) {
    give_up(report_fd, kReportSetup, kExitSystem, "cannot set up descriptors: %s\n", strerror(errno));
  }
  report_fd = kChildReportFd;
  if (close_range(kChildReportFd + 1, ~0u, 0) != 0) {
    for (int fd = kChildReportFd + 1, last = static_cast<int>(sysconf(_SC_OPEN_MAX)); fd < last; fd++) close(fd);
  }
  // Opened while still root: the marker is the daemon's file (the lowest free number is taken),
  // and the job's user need not reach the ready-job program's directory.
  int marker_fd = -1, ready_program_fd = -1;
  if (plan.start_gate && !plan.ready_argv.empty()) {
    marker_fd = open(plan.start_gate->path().c_str(), O_RDWR | O_CLOEXEC);
    ready_program_fd = open(plan.ready_argv[0], O_PATH | O_CLOEXEC);
  }

  const UserEntry &user = plan.user;
  if (plan.change_user) {
    pam_conv conversation{refuse_prompts, nullptr};
    pam_handle_t *pam = nullptr;
    int status = pam_start(kJobPamService, user.name.c_str(), &conversation, &pam);
    if (status != PAM_SUCCESS) {
      give_up(report_fd, kReportSetup, kExitNoPermission, "PAM could not start for user %s\n", user.name.c_str());
    }
    const char *step = "account";
    status = pam_acct_mgmt(pam, PAM_SILENT);
    if (status == PAM_SUCCESS) {
      step = "credentials";
      status = pam_setcred(pam, PAM_ESTABLISH_CRED | PAM_SILENT);
    }
    if (status == PAM_SUCCESS) {
      step = "session";
      status = pam_open_session(pam, PAM_SILENT);
    }
    if (status != PAM_SUCCESS) {
      give_up(report_fd, kReportSetup, kExitNoPermission, "PAM %s refused for user %s: %s\n", step,
              user.name.c_str(), pam_strerror(pam, status));
    }
    // The handle stays open into the job: the session lasts as long as the process.
    if (initgroups(user.name.c_str(), user.gid) != 0 || setresgid(user.gid, user.gid, user.gid) != 0 ||
        setresuid(user.uid, user.uid, user.uid) != 0) {
      give_up(report_fd, kReportSetup, kExitNoPermission, "cannot become user %s: %s\n", user.name.c_str(),
              strerror(errno));
    }
    uid_t real, effective, saved;
    gid_t real_group, effective_group, saved_group;
    bool dropped = getresuid(&real, &effective, &saved) == 0 && real == user.uid && effective == user.uid &&
                   saved == user.uid && getresgid(&real_group, &effective_group, &saved_group) == 0 &&
                   real_group == user.gid && effective_group == user.gid && saved_group == user.gid;
    // Never run a job as root by mistake: with the ids changed, root must be out of reach.
    if (!dropped || (user.uid != 0 && (setuid(0) != -1 || seteuid(0) != -1))) {
      give_up(report_fd, kReportSetup, kExitNoPermission, "privileges of user %s could not be dropped for good\n",
              user.name.c_str());
    }
  }
  umask(022);
  if ((user.home.empty() || chdir(user.home.c_str()) != 0) && chdir("/") != 0) {
    give_up(report_fd, kReportSetup, kExitSystem, "cannot change to a working directory: %s\n", strerror(errno));
  }
  if (plan.start_at > 0) wait_for_start(plan, marker_fd, ready_program_fd);
  if (marker_fd >= 0) close(marker_fd);
  if (ready_program_fd >= 0) close(ready_program_fd);
  execve(plan.argv[0], plan.argv.data(), plan.envp.data());
  report_exec_failure(plan.argv[0], errno);
}

// A duration as a GLib timeout: at least 1 ms, at most what a guint holds.
guint milliseconds_of(std::chrono::milliseconds duration) {
  return static_cast<guint>(std::clamp<int64_t>(duration.count(), 1, G_MAXUINT));
}

}  // namespace

void keep_pam_modules_loaded() {
  static pam_handle_t *kept = nullptr;
  if (kept || geteuid() != 0) return;
  static pam_conv conversation{refuse_prompts, nullptr};
  // Never ended: the modules stay loaded for the daemon's life.
  if (pam_start(kJobPamService, "root", &conversation, &kept) != PAM_SUCCESS) kept = nullptr;
}

std::string truncation_marker(size_t limit) {
  return "\n[output truncated after " + std::to_string(limit) + " bytes]\n";
}

JobProcess::JobProcess(GMainContext *context, const JobSpec &job_spec, Completion done)
    : context_(context), spec_(job_spec), done_(std::move(done)) {
  g_main_context_ref(context_);
}

std::unique_ptr<JobProcess> JobProcess::start(GMainContext *context, const JobSpec &job_spec, Completion done) {
  std::unique_ptr<JobProcess> process(new JobProcess(context, job_spec, std::move(done)));
  process->launch();
  return process;
}

JobProcess::~JobProcess() {
  if (!finished_ && pid_ > 0) {
    kill_group(SIGKILL);
    remove_sources();
    if (!exited_) {
      int status;
      while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
      }
    }
  }
  remove_sources();
  if (output_fd_ >= 0) close(output_fd_);
  if (report_fd_ >= 0) close(report_fd_);
  g_main_context_unref(context_);
}

int64_t JobProcess::now() const { return spec_.clock ? spec_.clock() : static_cast<int64_t>(time(nullptr)); }

void JobProcess::attach(GSource *source, GSourceFunc callback) {
  g_source_set_callback(source, callback, this, nullptr);
  g_source_attach(source, context_);
}

void JobProcess::launch() {
  outcome_.started_at = spec_.start_at > 0 ? static_cast<int64_t>(spec_.start_at) : now();
  UserEntry target;
  int error = look_up_user(spec_.user.c_str(), 0, &target);
  if (error != 0) {
    // Never a fall-back to root or to the daemon's user: the run fails with the reason.
    fail_before_start(kExitNoUser, error == ENOENT ? "unknown user " + spec_.user + "\n"
                                                   : "cannot look up user " + spec_.user + ": " + strerror(error) + "\n");
    return;
  }
  ChildPlan plan;
  plan.change_user = geteuid() == 0;
  if (plan.change_user) {
    plan.user = target;
  } else if (look_up_user(nullptr, geteuid(), &plan.user) != 0) {
    // A daemon without a password entry of its own still runs the job, as itself, in "/".
    plan.user = UserEntry{spec_.user, geteuid(), getegid(), "/", kDefaultInterpreter};
  }
  const char *daemon_zone = getenv("TZ");
  std::string zone = !spec_.time_zone.empty() ? spec_.time_zone : daemon_zone ? daemon_zone : ":/etc/localtime";
  std::string shell = plan.user.shell.empty() ? kDefaultInterpreter : plan.user.shell;
  plan.environment = {"HOME=" + (plan.user.home.empty() ? std::string("/") : plan.user.home),
                      "USER=" + plan.user.name,
                      "LOGNAME=" + plan.user.name,
                      "SHELL=" + shell,
                      std::string("PATH=") + kJobPath,
                      "TZ=" + zone,
                      "SCHEDULER_JOB=" + spec_.job,
                      "SCHEDULER_SCHEDULE=" + spec_.schedule};
  plan.arguments = {spec_.interpreter, "-c", spec_.command};
  plan.argv = pointers_to(plan.arguments);
  plan.envp = pointers_to(plan.environment);
  plan.start_at = spec_.start_at;
  plan.awake_before = spec_.awake_before;
  plan.start_gate = spec_.start_gate;
  plan.daemon = getpid();
  if (spec_.start_at > 0 && spec_.start_gate && !spec_.ready_program.empty()) {
    plan.ready_arguments = ready_job_arguments(spec_.ready_program, spec_.start_at, spec_.awake_before, plan.daemon,
                                               kChildMarkerFd, plan.arguments);
    plan.ready_argv = pointers_to(plan.ready_arguments);
  }

  int output[2], report[2];
  if (pipe2(output, O_CLOEXEC) != 0) {
    fail_before_start(kExitSystem, std::string("cannot make a pipe: ") + strerror(errno) + "\n");
    return;
  }
  if (pipe2(report, O_CLOEXEC) != 0) {
    close(output[0]);
    close(output[1]);
    fail_before_start(kExitSystem, std::string("cannot make a pipe: ") + strerror(errno) + "\n");
    return;
  }
  pid_t pid = fork();
  if (pid == 0) run_child(plan, output[1], report[1]);
  int fork_error = errno;
  close(output[1]);
  close(report[1]);
  if (pid < 0) {
    close(output[0]);
    close(report[0]);
    fail_before_start(kExitSystem, std::string("cannot start a process: ") + strerror(fork_error) + "\n");
    return;
  }
  pid_ = pid;
  outcome_.started = true;
  output_fd_ = output[0];
  report_fd_ = report[0];
  fcntl(output_fd_, F_SETFL, fcntl(output_fd_, F_GETFL) | O_NONBLOCK);
  fcntl(report_fd_, F_SETFL, fcntl(report_fd_, F_GETFL) | O_NONBLOCK);

  output_source_ = g_unix_fd_source_new(output_fd_, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR));
  attach(output_source_, G_SOURCE_FUNC(on_output));
  child_source_ = g_child_watch_source_new(pid_);
  attach(child_source_, G_SOURCE_FUNC(on_exit));
  // A job made ready ahead is limited from its instant.
  std::chrono::milliseconds until_start{spec_.start_at > 0 ? std::max<int64_t>(0, int64_t{spec_.start_at} * 1000 - g_get_real_time() / 1000) : 0};
  limit_source_ = g_timeout_source_new(milliseconds_of(spec_.time_limit + until_start));
  attach(limit_source_, on_time_limit);
}

void JobProcess::fail_before_start(int exit_code, const std::string &reason) {
  outcome_.started = false;
  outcome_.wait_status = exit_code << 8;
  outcome_.output = reason;
  report_source_ = g_idle_source_new();
  attach(report_source_, on_report);
}

gboolean JobProcess::on_report(gpointer self) {
  auto *process = static_cast<JobProcess *>(self);
  process->finish();
  return G_SOURCE_REMOVE;
}

void JobProcess::keep_output(const char *bytes, size_t length) {
  size_t room = spec_.output_limit - std::min(spec_.output_limit, outcome_.output.size());
  if (length > room) outcome_.truncated = true;
  outcome_.output.append(bytes, std::min(length, room));
}

// Reads what the pipe holds; true at its end.
bool JobProcess::drain_output() {
  char buffer[kReadChunk];
  for (;;) {
    ssize_t got = read(output_fd_, buffer, sizeof buffer);
    if (got > 0) {
      // Read on past the limit, so that the job never blocks on a full pipe.
      keep_output(buffer, static_cast<size_t>(got));
      continue;
    }
    if (got < 0 && errno == EINTR) continue;
    return got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
  }
}

gboolean JobProcess::on_output(gint, GIOCondition, gpointer self) {
  auto *process = static_cast<JobProcess *>(self);
  if (!process->drain_output()) return G_SOURCE_CONTINUE;
  g_source_destroy(process->output_source_);
  g_source_unref(process->output_source_);
  process->output_source_ = nullptr;
  close(process->output_fd_);
  process->output_fd_ = -1;
  if (process->exited_) process->finish();
  return G_SOURCE_REMOVE;
}

void JobProcess::on_exit(GPid, gint status, gpointer self) {
  auto *process = static_cast<JobProcess *>(self);
  process->exited_ = true;
  process->outcome_.wait_status = status;
  // Whatever the job left behind in its group goes with it.
  process->kill_group(SIGKILL);
  if (process->output_fd_ < 0) {
    process->finish();
    return;
  }
  process->drain_source_ = g_timeout_source_new(kDrainMilliseconds);
  process->attach(process->drain_source_, on_drain_over);
}

gboolean JobProcess::on_time_limit(gpointer self) {
  auto *process = static_cast<JobProcess *>(self);
  process->outcome_.timed_out = true;
  process->kill_group(SIGTERM);
  process->grace_source_ = g_timeout_source_new(milliseconds_of(process->spec_.grace));
  process->attach(process->grace_source_, on_grace_over);
  return G_SOURCE_REMOVE;
}

gboolean JobProcess::on_grace_over(gpointer self) {
  static_cast<JobProcess *>(self)->kill_group(SIGKILL);
  return G_SOURCE_REMOVE;
}

gboolean JobProcess::on_drain_over(gpointer self) {
  auto *process = static_cast<JobProcess *>(self);
  process->drain_output();
  process->finish();
  return G_SOURCE_REMOVE;
}

void JobProcess::kill_group(int signal) {
  if (pid_ <= 0) return;
  // The child leads its own session, so its process group has its pid; a child too young to have
  // made its session yet is reached directly (a reaped one never is: its pid may be reused).
  kill(-pid_, signal);
  if (!exited_) kill(pid_, signal);
}

void JobProcess::read_setup_report() {
  if (report_fd_ < 0) return;
  char report[kReportSize];
  ssize_t got;
  while ((got = read(report_fd_, report, sizeof report)) < 0 && errno == EINTR) {
  }
  close(report_fd_);
  report_fd_ = -1;
  if (got <= 0) return;
  outcome_.exec_failed = report[0] == kReportExec;
  outcome_.setup_failed = report[0] == kReportSetup;
  // The job never ran: its output is the reason.
  outcome_.output.assign(report + 1, static_cast<size_t>(got - 1));
  outcome_.truncated = false;
}

void JobProcess::remove_sources() {
  for (GSource **source : {&output_source_, &child_source_, &limit_source_, &grace_source_, &drain_source_,
                           &report_source_}) {
    if (*source) {
      g_source_destroy(*source);
      g_source_unref(*source);
      *source = nullptr;
    }
  }
}

void JobProcess::finish() {
  if (finished_) return;
  finished_ = true;
  read_setup_report();
  remove_sources();
  if (output_fd_ >= 0) {
    close(output_fd_);
    output_fd_ = -1;
  }
  if (outcome_.truncated) outcome_.output += truncation_marker(spec_.output_limit);
  outcome_.ended_at = now();
  // The callback may destroy this object: nothing of it is touched afterwards.
  Completion done = std::move(done_);
  JobOutcome outcome = std::move(outcome_);
  done(outcome);
}

}  // namespace schedd::runner
