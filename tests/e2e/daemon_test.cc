// The shell with a daemon that restarts, fills up or stops; commands from arguments and files.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "processes.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/status.h"

namespace e2e {
namespace {

std::string error_line(const std::string &what, uint32_t code) { return what + ": " + syserr2str(code) + "\n"; }

std::size_t count(const std::string &text, const std::string &what) {
  std::size_t found = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++found;
  return found;
}

std::string job_display(const std::string &name, const std::string &text) {
  return "Job Name: " + name + "\n" + std::string(10 + name.size(), '-') + "\n" + text + std::string(78, '=') + "\n";
}

class WithDaemon : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(daemon.start(&why)) << why;
    ASSERT_TRUE(daemon.enable_feature(&why)) << why;
  }
  void restart() {
    ASSERT_EQ(daemon.stop(), 0) << daemon.log();
    ASSERT_TRUE(daemon.start(&why)) << why;
  }

  Daemon daemon;
  std::string why;
};

TEST_F(WithDaemon, TheJobTableHolds256Jobs) {
  std::string input = "configure terminal\n";
  for (int i = 1; i <= 257; ++i) input += "scheduler job name job" + std::to_string(i) + "\nend-job\n";
  ShellRun fill = daemon.shell(input);
  const std::string full = error_line("Error: create job failed", SCH_STATUS_JOB_TABLE_FULL);
  EXPECT_EQ(fill.err, full + "% Lines up to end-job are ignored: the job was not created\n");
  EXPECT_EQ(fill.status, 1);
  EXPECT_EQ(count(daemon.shell("show scheduler job\n").out, "Job Name: "), 256u);
  // Still full after a restart, until a job is deleted.
  restart();
  EXPECT_EQ(daemon.shell("configure terminal\nscheduler job name job257 echo x\n").err, full);
  ShellRun replaced = daemon.shell("configure terminal\nno scheduler job name job1\n"
                                   "scheduler job name job257 echo x\nend\nshow scheduler job name job257\n");
  EXPECT_EQ(replaced.err, "");
  // The one-line form drops the last character of a single command: that is its rule.
  EXPECT_EQ(replaced.out, job_display("job257", "echo \n"));
}

TEST_F(WithDaemon, ADaemonThatStopsAnsweringIsAClearError) {
  daemon.signal(SIGSTOP);
  auto started = std::chrono::steady_clock::now();
  ShellRun waited = daemon.shell("show scheduler job\n", {"--timeout", "1"});
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
  EXPECT_EQ(waited.err, error_line("Error", CMI_ERR_TIMEOUT));
  EXPECT_EQ(waited.status, 1);
  // The abandoned request does not disturb the daemon once it goes on.
  daemon.signal(SIGCONT);
  ShellRun after = daemon.shell("configure terminal\nscheduler job name j1 ls\nend\nshow scheduler job\n");
  EXPECT_EQ(after.out, job_display("j1", "l\n"));
  EXPECT_EQ(after.status, 0);
}

TEST_F(WithDaemon, ADaemonKilledDuringACommandIsAClearError) {
  daemon.signal(SIGSTOP);
  ShellRun run;
  std::thread command([&] { run = daemon.shell("configure terminal\nscheduler schedule name s1\ntime daily 10:00\n"); });
  // Time for the shell to queue its request at the stopped daemon.
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  daemon.signal(SIGKILL);
  daemon.reap();
  command.join();
  // In flight or not yet sent, the request fails clearly and the shell goes on.
  const std::string rest = "% Invalid command at 'time'\n";
  EXPECT_TRUE(run.err == error_line("Error: create schedule failed", CMI_ERR_DAEMON_CLOSED) + rest ||
              run.err == error_line("Error: create schedule failed", CMI_ERR_NO_DAEMON) + rest)
      << run.err;
  EXPECT_EQ(run.status, 1);
  ShellRun gone = daemon.shell("show scheduler job\n");
  EXPECT_EQ(gone.err, error_line("Error", CMI_ERR_NO_DAEMON));
  EXPECT_EQ(gone.status, 1);
}

TEST_F(WithDaemon, MemoryStatisticsAreTheDaemons) {
  ShellRun before = daemon.shell("show scheduler memory-statistics\n");
  ShellRun after = daemon.shell("configure terminal\nscheduler job name j1 ls\nend\nshow scheduler memory-statistics\n");
  EXPECT_EQ(after.err, "");
  EXPECT_EQ(after.status, 0);
  // The job was allocated in the daemon, not in this shell.
  EXPECT_EQ(count(before.out, "add job entry"), 0u) << before.out;
  EXPECT_NE(count(after.out, "add job entry"), 0u) << after.out;
}

TEST_F(WithDaemon, CommandsFromArgumentsAndFiles) {
  // Standard input is not read when commands are given; a failure does not stop the rest.
  ShellRun arguments = daemon.shell("show scheduler schedule\n",
                                    {"-c", "configure terminal", "-c", "scheduler schedule name -x", "-c",
                                     "scheduler job name j1 ls", "-c", "end", "-c", "show scheduler job"});
  EXPECT_EQ(arguments.err, "Invalid name. Name should begin with alphanumeric and may have '_' or '-'.\n");
  EXPECT_EQ(arguments.out, job_display("j1", "l\n"));
  EXPECT_EQ(arguments.status, 1);

  std::string file = daemon.directory() + "/commands";
  write_file(file, "configure terminal\r\nscheduler job name j2\r\nls\r\nend-job\r\nend\r\nshow scheduler job name j2\r\n");
  ShellRun from_file = daemon.shell("", {file});
  EXPECT_EQ(from_file.err, "");
  EXPECT_EQ(from_file.out, job_display("j2", "ls\n"));
  EXPECT_EQ(from_file.status, 0);
  EXPECT_EQ(daemon.shell("", {file + ".missing"}).err, "schedsh: cannot read " + file + ".missing\n");
  ShellRun open_job = daemon.shell("configure terminal\nscheduler job name j3\nls\n");
  EXPECT_EQ(open_job.err, "% Job j3 has no end-job: its commands were not sent\n");
  EXPECT_EQ(open_job.status, 1);
}

}  // namespace
}  // namespace e2e
