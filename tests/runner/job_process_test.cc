// Job processes: output and status, the time limit and what a job leaves behind, the output
// bound, failures to start, running as another user, and the run credentials of remote users.
#include "runner/job_process.h"
#include "runner/run_credentials.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>
#include <tuple>

#include "schedcli/db.h"
#include "schedcli/platform/auth.h"
#include "schedcli/platform/secrets.h"
#include "support/temp_dir.h"

namespace {

using namespace schedd::runner;
using namespace std::chrono_literals;

class JobRun : public ::testing::Test {
 protected:
  void SetUp() override { context_ = g_main_context_new(); }
  void TearDown() override { g_main_context_unref(context_); }

  JobSpec job_spec(const std::string &command) {
    JobSpec s;
    s.job = "backup";
    s.schedule = "nightly";
    const passwd *self = getpwuid(geteuid());
    s.user = self ? self->pw_name : "root";
    s.command = command;
    s.time_limit = 10s;
    s.grace = 200ms;
    return s;
  }
  // Runs to completion (at most 15 s) and returns the outcome.
  JobOutcome run(const JobSpec &s) {
    std::optional<JobOutcome> outcome;
    auto process = JobProcess::start(context_, s, [&](const JobOutcome &o) { outcome = o; });
    EXPECT_FALSE(outcome) << "never reported from within start()";
    auto deadline = std::chrono::steady_clock::now() + 15s;
    while (!outcome && std::chrono::steady_clock::now() < deadline) g_main_context_iteration(context_, TRUE);
    EXPECT_TRUE(outcome) << "no completion";
    EXPECT_TRUE(process->finished());
    return outcome.value_or(JobOutcome{});
  }

  GMainContext *context_ = nullptr;
};

TEST_F(JobRun, JobIgnoringTerminationIsKilledAfterTheGrace) {
  JobSpec s = job_spec("trap '' TERM; sleep 30");
  s.time_limit = 200ms;
  JobOutcome outcome = run(s);
  EXPECT_TRUE(outcome.timed_out);
  EXPECT_TRUE(WIFSIGNALED(outcome.wait_status) && WTERMSIG(outcome.wait_status) == SIGKILL);
}

TEST_F(JobRun, OutputIsCutAtTheBoundWithAMarkerAndTheJobStillEnds) {
  JobSpec s = job_spec("head -c 300000 /dev/zero | tr '\\0' x; echo done >&2");
  s.output_limit = 1000;
  JobOutcome outcome = run(s);
  EXPECT_EQ(outcome.wait_status, 0) << "the job never blocked on a full pipe";
  EXPECT_TRUE(outcome.truncated);
  EXPECT_EQ(outcome.output, std::string(1000, 'x') + truncation_marker(1000));

  s = job_spec("printf 1234567890");
  s.output_limit = 10;
  outcome = run(s);
  EXPECT_FALSE(outcome.truncated) << "exactly the bound is not cut";
  EXPECT_EQ(outcome.output, "1234567890");
}

TEST_F(JobRun, ExecFailureIsTellableFromExitCode127) {
  JobSpec s = job_spec("true");
  s.interpreter = "/nonexistent/interpreter";
  JobOutcome failed = run(s);
  EXPECT_TRUE(failed.started);
  EXPECT_TRUE(failed.exec_failed);
  EXPECT_FALSE(failed.setup_failed);
  EXPECT_EQ(WEXITSTATUS(failed.wait_status), kExitUnavailable);
  EXPECT_EQ(failed.output, "cannot execute /nonexistent/interpreter: No such file or directory\n");

  JobOutcome missing_command = run(job_spec("/nonexistent/command"));
  EXPECT_FALSE(missing_command.exec_failed);
  EXPECT_EQ(WEXITSTATUS(missing_command.wait_status), 127);
}

TEST_F(JobRun, UnknownUserFailsWithoutRunningAnything) {
  JobSpec s = job_spec("touch /tmp/schedd-runner-must-not-exist");
  s.user = "no-such-user-schedd";
  JobOutcome outcome = run(s);
  EXPECT_FALSE(outcome.started);
  EXPECT_EQ(WEXITSTATUS(outcome.wait_status), kExitNoUser);
  EXPECT_EQ(outcome.output, "unknown user no-such-user-schedd\n");
  EXPECT_FALSE(std::ifstream("/tmp/schedd-runner-must-not-exist").good());
}

// A job made ready ahead: ready now, waiting in the daemon's program (or, without it, as it is),
// started at its instant only if nobody cancelled it first; its marker then says which happened,
// and its time limit counts from the instant.
TEST_F(JobRun, AJobMadeReadyStartsAtItsInstantUnlessCancelledFirst) {
  sch::testing::TempDir temp;
  const std::string dir = temp.path();
  std::time_t instant = time(nullptr) + 2;
  auto started = RunMarker::create(dir + "/started", {"nightly", 1, "backup", "root", instant}, /*waiting=*/true);
  auto cancelled = RunMarker::create(dir + "/cancelled", {"nightly", 2, "backup", "root", instant}, true);
  ASSERT_TRUE(started && cancelled);
  EXPECT_FALSE(started->started());

  JobSpec going = job_spec("date +%s.%N; sleep 1.5");
  going.start_at = instant;
  going.start_gate = started.get();
  going.time_limit = 3s;  // counted from the preparation, it would end the job
  going.ready_program = SCHEDD_READY_PROGRAM;
  going.awake_before = 300ms;  // the last stretch awake must not start it early either
  JobSpec stopped = job_spec("touch " + dir + "/ran");
  stopped.start_at = instant;
  stopped.start_gate = cancelled.get();
  std::optional<JobOutcome> dropped;
  auto never = JobProcess::start(context_, stopped, [&](const JobOutcome &o) { dropped = o; });
  EXPECT_TRUE(cancelled->cancel());
  EXPECT_FALSE(cancelled->claim_start()) << "a cancelled job never claims its start";
  never.reset();

  std::optional<JobOutcome> finished;
  auto process = JobProcess::start(context_, going, [&](const JobOutcome &o) { finished = o; });
  std::string waiting;
  for (auto deadline = std::chrono::steady_clock::now() + 1s;
       waiting.find("--ready-job") == std::string::npos && std::chrono::steady_clock::now() < deadline;) {
    std::ifstream cmdline("/proc/" + std::to_string(process->pid()) + "/cmdline");
    std::getline(cmdline, waiting);
  }
  EXPECT_NE(waiting.find(std::string(SCHEDD_READY_PROGRAM) + '\0' + "--ready-job"), std::string::npos) << waiting;
  while (!finished) g_main_context_iteration(context_, TRUE);
  JobOutcome outcome = *finished;
  EXPECT_EQ(outcome.wait_status, 0) << outcome.output;
  EXPECT_FALSE(outcome.timed_out);
  EXPECT_EQ(outcome.started_at, instant);
  double began = std::strtod(outcome.output.c_str(), nullptr);
  EXPECT_GE(began, static_cast<double>(instant));
  EXPECT_LT(began, instant + 0.5);
  EXPECT_TRUE(started->started());
  EXPECT_FALSE(started->cancel()) << "a started job cannot be cancelled";
  EXPECT_FALSE(std::ifstream(dir + "/ran").good());
  EXPECT_FALSE(dropped);

  // What a later start reads back from each marker.
  started->note_session(1234, 99);
  auto read_started = RunMarker::read(dir + "/started");
  auto read_cancelled = RunMarker::read(dir + "/cancelled");
  ASSERT_TRUE(read_started && read_cancelled);
  const RunMarkerFacts &facts = *read_started;
  EXPECT_EQ(std::tie(facts.schedule, facts.job_id, facts.job, facts.user, facts.started, facts.job_started,
                     facts.session, facts.session_started),
            std::make_tuple("nightly", 1, "backup", "root", instant, true, 1234, 99ull));
  EXPECT_FALSE(read_cancelled->job_started);
  started->remove();
  cancelled->remove();
  EXPECT_FALSE(RunMarker::read(dir + "/started"));
}

// As root the job runs as its user, after PAM's account and session checks.
class JobRunAsUser : public JobRun {
 protected:
  static void SetUpTestSuite() {
    if (geteuid() != 0) return;
    for (const char *name : {"schedjob", "schedjobx"}) {
      if (getpwnam(name)) continue;
      std::string command = std::string("useradd -m -s /bin/sh ") + name + " >/dev/null 2>&1";
      if (std::system(command.c_str()) == 0) created_.push_back(name);
    }
  }
  static void TearDownTestSuite() {
    for (const std::string &name : created_) std::system(("userdel -r " + name + " >/dev/null 2>&1").c_str());
    created_.clear();
  }
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "running a job as another user needs root (the tests run as uid " << geteuid() << ")";
    if (!getpwnam("schedjob") || !getpwnam("schedjobx")) GTEST_SKIP() << "useradd could not create the test users";
    JobRun::SetUp();
  }
  static inline std::vector<std::string> created_;
};

TEST_F(JobRunAsUser, DropsToTheUsersIdsGroupsAndHome) {
  const passwd *user = getpwnam("schedjob");
  ASSERT_NE(user, nullptr);
  std::string home = user->pw_dir;
  JobSpec s = job_spec("id -u; id -g; id -G; pwd; echo $HOME $USER; umask");
  s.user = "schedjob";
  JobOutcome outcome = run(s);
  ASSERT_EQ(outcome.wait_status, 0) << outcome.output;
  std::istringstream output(outcome.output);
  std::string line[6];
  for (std::string &each : line) std::getline(output, each);
  EXPECT_EQ(line[0] + " " + line[1], std::to_string(user->pw_uid) + " " + std::to_string(user->pw_gid));
  EXPECT_EQ((" " + line[2] + " ").find(" 0 "), std::string::npos) << "root's group is gone: " << line[2];
  EXPECT_EQ(line[3] + "|" + line[4] + "|" + line[5], home + "|" + home + " schedjob|0022");
}

TEST_F(JobRunAsUser, UserThatPamRefusesNeverRuns) {
  JobSpec s = job_spec("touch /tmp/schedd-runner-refused");
  s.user = "schedjobx";  // a local account that the schedcli service does not admit
  JobOutcome outcome = run(s);
  EXPECT_TRUE(outcome.setup_failed);
  EXPECT_FALSE(outcome.exec_failed);
  EXPECT_EQ(WEXITSTATUS(outcome.wait_status), kExitNoPermission);
  EXPECT_EQ(outcome.output.rfind("PAM account refused for user schedjobx", 0), 0u) << outcome.output;
  EXPECT_FALSE(std::ifstream("/tmp/schedd-runner-refused").good());
}

// A remote user whose stored password is wrong, missing or damaged does not run; the verdict comes
// back on the loop.
class RunCredentialsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(directory_ + "/passwd") << "alice:x:1000:1000::/home/alice:/bin/sh\n";
    ASSERT_EQ(auth_local_passwd_file_set((directory_ + "/passwd").c_str()), 0u);
    ASSERT_EQ(secrets_device_key_path_set((directory_ + "/device.key").c_str()), 0u);
    secrets_use_device_key(1);
    context_ = g_main_context_new();
  }
  void TearDown() override {
    g_main_context_unref(context_);
    auth_local_passwd_file_set(nullptr);
    secrets_use_device_key(0);
    secrets_device_key_path_set(nullptr);
  }

  // Stores `password` for `user` as the credential command would: encrypted, type 7.
  void store(const char *user, const char *password) {
    sch_user_element &element = elements_.emplace_back();
    std::snprintf(element.record.user, sizeof element.record.user, "%s", user);
    char *encrypted = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(security_conf_encrypt(password, 7, 0, 0, &encrypted, &length), 0u);
    std::snprintf(element.record.password, sizeof element.record.password, "%s", encrypted);
    std::free(encrypted);
  }
  CredentialVerdict check(const char *user) {
    for (sch_user_element &element : elements_) enqueue_tail(&queue_, &element);
    std::optional<CredentialVerdict> verdict;
    std::thread::id reported_on;
    auto pending = RunCredentials::check(context_, &queue_, user, [&](const CredentialVerdict &v) {
      verdict = v;
      reported_on = std::this_thread::get_id();
    });
    EXPECT_NE(pending, nullptr);
    EXPECT_FALSE(verdict) << "never reported from within check()";
    for (auto deadline = std::chrono::steady_clock::now() + 10s; !verdict && std::chrono::steady_clock::now() < deadline;) {
      g_main_context_iteration(context_, TRUE);
    }
    EXPECT_TRUE(verdict);
    EXPECT_EQ(reported_on, std::this_thread::get_id());
    return verdict.value_or(CredentialVerdict{false, "no verdict"});
  }

  sch::testing::TempDir temp_;
  std::string directory_ = temp_.path();
  GMainContext *context_ = nullptr;
  std::deque<sch_user_element> elements_;  // stable addresses for the queue's links
  queue_header queue_{};
};

TEST_F(RunCredentialsTest, RemoteUserFailsWithAWrongMissingOrDamagedCredential) {
  store("rita", "wrong");
  EXPECT_EQ(check("rita").reason, "authentication of user rita failed\n");

  elements_.clear();
  queue_ = {};
  EXPECT_EQ(check("rita").reason, "no stored credential for remote user rita\n");

  store("rita", "rosebud");
  elements_.back().record.password[10] ^= 1;
  CredentialVerdict verdict = check("rita");
  EXPECT_FALSE(verdict.passed);
  EXPECT_EQ(verdict.reason.rfind("stored credential of user rita cannot be used: ", 0), 0u) << verdict.reason;
}

}  // namespace
