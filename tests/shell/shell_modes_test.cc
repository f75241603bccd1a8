// Modes: entering and leaving them, commands of the enclosing mode, job text, bad lines.
#include <gtest/gtest.h>

#include "schedcli/status.h"
#include "shell_testing.h"

namespace schedsh::testing {
namespace {

using Modes = ShellTest;

TEST_F(Modes, ExitGoesUpOneModeAndEndGoesToExec) {
  EXPECT_EQ(shell.prompt(), "schedsh# ");
  ASSERT_TRUE(run({"configure terminal", "scheduler schedule name s1"}));
  EXPECT_EQ(shell.prompt(), "schedsh(config-schedule)# ");
  ASSERT_TRUE(run({"exit"}));
  EXPECT_EQ(shell.prompt(), "schedsh(config)# ");
  EXPECT_EQ(shell.schedule_name(), "");
  ASSERT_TRUE(run({"scheduler job name j1"}));
  EXPECT_EQ(shell.prompt(), "schedsh(config-job)# ");
  ASSERT_TRUE(run({"end-job", "scheduler schedule name s1", "end"}));
  EXPECT_EQ(shell.mode(), Mode::Exec);
  ASSERT_TRUE(run({"exit"}));
  EXPECT_TRUE(shell.finished());
}

TEST_F(Modes, AConfigurationCommandInScheduleModeLeavesTheSchedule) {
  to_schedule("s1");
  ASSERT_TRUE(run({"scheduler schedule name s2", "time daily 10:00"}));
  ASSERT_EQ(backend.calls.size(), 2u);
  EXPECT_EQ(backend.calls[1].values(), (std::vector<std::string>{"s2", "10:00"}));
  ASSERT_TRUE(run({"no scheduler job name j9"}));
  EXPECT_EQ(shell.mode(), Mode::Config);
  EXPECT_FALSE(run({"time daily 10:00"}));
  // A line neither mode knows is reported by the mode whose words it gets further into.
  to_schedule("s1");
  EXPECT_FALSE(run({"time hourly 10", "scheduler jobs name j", "time daily"}));
  EXPECT_EQ(shell.mode(), Mode::Schedule);
  EXPECT_EQ(err.str(),
            "% Invalid command at 'time'\n% Invalid command at 'hourly'\n% Invalid command at 'jobs'\n"
            "% Incomplete command\n");
}

TEST_F(Modes, AnExistingScheduleIsEnteredQuietlyAndOtherRefusalsStayOut) {
  ASSERT_TRUE(run({"configure terminal"}));
  backend.results["create_delete_schedule"] = SCH_STATUS_EXISTS;
  EXPECT_TRUE(run({"scheduler schedule name s1"}));
  EXPECT_EQ(shell.mode(), Mode::Schedule);
  EXPECT_FALSE(run({"no scheduler schedule name s1"}));
  backend.results["create_delete_schedule"] = 255;
  EXPECT_FALSE(run({"scheduler schedule name s2"}));
  EXPECT_EQ(shell.mode(), Mode::Config);
}

TEST_F(Modes, JobModeGathersEveryLineUntilEndJob) {
  ASSERT_TRUE(run({"configure terminal", "scheduler job name j1"}));
  // Lines that look like commands, blanks and all, are the job's; a carriage return is not.
  ASSERT_TRUE(run({"  echo start", "exit", "", "no scheduler job name j1", "end", "show ?\r\n", "  end-job  "}));
  EXPECT_EQ(shell.mode(), Mode::Config);
  ASSERT_EQ(backend.calls.size(), 2u);
  EXPECT_EQ(backend.last().handler, "define_job");
  EXPECT_EQ(backend.last().job, "j1");
  EXPECT_EQ(backend.last().text, "  echo start\nexit\n\nno scheduler job name j1\nend\nshow ?\n");
  EXPECT_STREQ(backend.last().context.user, "operator");
  // A job whose creation failed swallows its lines and sends nothing.
  backend.results["create_delete_job"] = 255;
  EXPECT_FALSE(run({"scheduler job name j2"}));
  EXPECT_TRUE(run({"no scheduler schedule name s1", "end-job"}));
  EXPECT_EQ(backend.calls.size(), 3u);
  EXPECT_EQ(err.str(), "% Lines up to end-job are ignored: the job was not created\n");
  backend.results = {{"define_job", 1}};
  EXPECT_FALSE(run({"scheduler job name j3", "ls", "end-job"}));
  // Input that ends inside a job fails: its text is not sent.
  ASSERT_TRUE(run({"scheduler job name j4", "ls"}));
  EXPECT_FALSE(shell.finish());
  EXPECT_EQ(backend.calls.size(), 6u);
}

TEST_F(Modes, OddLinesAreRefusedWithoutHarm) {
  EXPECT_TRUE(run({"", "   \t", "! a comment", "\r"}));
  EXPECT_FALSE(run({std::string_view("show\0scheduler job", 18), "\x01\x02\xff", "\"unbalanced", "end-job"}));
  EXPECT_EQ(err.str(),
            "% Invalid command: the line holds a NUL byte\n"
            "% Invalid command at '\\x01\\x02\xff'\n"
            "% Invalid command at 'unbalanced'\n"
            "% Invalid command at 'end-job'\n");
  // Long lines, in many words or in one, are matched and reported like any other.
  std::string many;
  for (int i = 0; i < 100000; ++i) many += "show ";
  err.str("");
  EXPECT_FALSE(run({many, std::string(1 << 20, 'x')}));
  EXPECT_EQ(err.str(), "% Invalid command at 'show'\n% Invalid command at '" + std::string(40, 'x') + "...'\n");
  ASSERT_TRUE(run({"configure terminal", "scheduler job name j1 " + std::string(300000, ';')}));
  EXPECT_EQ(backend.last().params[1].value.size(), 300000u);
  EXPECT_TRUE(backend.calls.size() == 2u);
}

}  // namespace
}  // namespace schedsh::testing
