// Modes: entering and leaving them, commands of the enclosing mode, job text, bad lines.
#include <gtest/gtest.h>

#include "schedcli/status.h"
#include "shell_testing.h"

namespace schedsh::testing {
namespace {

using Modes = ShellTest;

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

TEST_F(Modes, ShowAndDoRunFromConfigurationModesWithoutLeavingThem) {
  to_schedule("s1");
  ASSERT_TRUE(run({"show scheduler job name j1", "do show scheduler schedule", "do configure terminal", "do exit"}));
  EXPECT_EQ(shell.mode(), Mode::Schedule);
  EXPECT_EQ(shell.schedule_name(), "s1");
  EXPECT_FALSE(shell.finished());
  ASSERT_EQ(backend.calls.size(), 2u);
  EXPECT_EQ(backend.calls[0].handler, "show_jobs");
  EXPECT_EQ(backend.calls[1].handler, "show_schedules");
  ASSERT_TRUE(run({"time daily 10:00"}));
  EXPECT_EQ(backend.last().values(), (std::vector<std::string>{"s1", "10:00"}));
  EXPECT_FALSE(run({"do feature scheduler", "do show nothing"}));
  EXPECT_EQ(err.str(), "% Invalid command at 'feature'\n% Invalid command at 'nothing'\n");
  std::vector<std::string> words;
  for (const HelpItem &item : shell.help("do show scheduler j")) words.push_back(item.word);
  EXPECT_EQ(words, std::vector<std::string>{"job"});
  EXPECT_EQ(shell.complete("do show runn").candidates, std::vector<std::string>{"running-config"});
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
