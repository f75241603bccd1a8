// Start-up, refusal, restart and shutdown of the daemon.
#include "daemon_testing.h"

namespace {

using namespace daemon_testing;

class DaemonLifecycle : public DaemonTest {
 protected:
  // A little of everything, to compare across restarts.
  void configure_some() {
    ASSERT_NO_FATAL_FAILURE(enable_feature());
    for (const Bytes &request :
         {job_request(SCH_REQ_CREATE_JOB, "backup"), job_request(SCH_REQ_DEFINE_JOB, "backup", std::string(1499, 'x') + "\n"),
          schedule_request(SCH_REQ_CREATE_SCHEDULE, "nightly"), modify_request("nightly", SCH_MODIFY_DAILY, daily(2, 30)),
          assign_request("nightly", "backup"), email_request(SCH_EMAIL_ADD, "nightly", "ops@example.com"),
          credential_request(SCH_CREDENTIAL_STORE, "alice", "7$secret")}) {
      ASSERT_TRUE(answered(configure(request), 0));
    }
  }
};

TEST_F(DaemonLifecycle, DetachedStartReturnsOnceServingAndSigtermEndsCleanly) {
  Exit started = start({"--debug", "100", "--debug", "103"});
  ASSERT_EQ(started.code, 0) << started.error_output;
  EXPECT_EQ(started.error_output, "");
  // No waiting: the command returned only when the socket could answer.
  configure_some();
  EXPECT_EQ(stop(), 0);
  EXPECT_FALSE(std::filesystem::exists(socket_path()));
  // A detached daemon's debug output goes to the state directory.
  std::ifstream log(state_dir_ + "/schedd-debug.log");
  std::string text(std::istreambuf_iterator<char>(log), {});
  EXPECT_NE(text.find("opcode 3, 56 bytes"), std::string::npos) << text;
  EXPECT_NE(text.find("stopped with 0 tracked blocks in use"), std::string::npos) << text;
}

TEST_F(DaemonLifecycle, SecondDaemonOnTheSameDirectoriesIsRefused) {
  start_or_fail({"--enable-feature"});  // on from the start: no request needed
  Exit second = run_schedd(directories());
  EXPECT_EQ(second.code, 1);
  EXPECT_NE(second.error_output.find("(pid " + std::to_string(daemon_pid_) + ") is already running"),
            std::string::npos)
      << second.error_output;
  EXPECT_TRUE(answered(configure(job_request(SCH_REQ_CREATE_JOB, "still-served")), 0));
}

TEST_F(DaemonLifecycle, StartsThatCannotWorkAreRefusedWithTheReason) {
  std::string long_runtime = root_ + "/" + std::string(40, 'r');
  Exit refused = run_schedd({"--state-dir", state_dir_, "--runtime-dir", long_runtime});
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.error_output.find("63 at most"), std::string::npos) << refused.error_output;
  EXPECT_FALSE(std::filesystem::exists(long_runtime + "/schedd.pid")) << "refused before anything was opened";

  std::filesystem::create_directories(runtime_dir_ + "/scheduler_runtime");
  std::ofstream(runtime_dir_ + "/running-stores-whole").flush();
  refused = start();
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.error_output.find("SCH_SYSLOG_PSS_ERR"), std::string::npos) << refused.error_output;
  EXPECT_NE(refused.error_output.find("cannot open the stores"), std::string::npos) << refused.error_output;

  EXPECT_EQ(run_schedd({"--help"}).code, 0);
  for (const std::vector<std::string> &wrong :
       {std::vector<std::string>{"--bogus"},
        {"--debug", "256"},
        {"--mail-retry-delays", "5,3600001"},
        {"x"}}) {
    // On the test's directories, so that an option wrongly taken cannot start a daemon on the host's.
    std::vector<std::string> arguments = directories();
    arguments.insert(arguments.end(), wrong.begin(), wrong.end());
    refused = run_schedd(arguments);
    EXPECT_EQ(refused.code, 2) << wrong[0];
    EXPECT_NE(refused.error_output.find("--help"), std::string::npos) << refused.error_output;
  }
}

}  // namespace
