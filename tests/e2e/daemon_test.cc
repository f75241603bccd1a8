// The shell with a real daemon: its memory statistics, and commands from arguments and files.
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
