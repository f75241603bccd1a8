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
  EXPECT_EQ(shell.prompt(), "schedsh(config-job, end-job ends)# ");
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

TEST_F(Modes, ABlankLineEndsAScheduleBlockButNotAJobOrAComment) {
  to_schedule("s1");
  ASSERT_TRUE(run({"! still the schedule's", "time daily 10:00", "  \t"}));
  EXPECT_EQ(shell.mode(), Mode::Config);
  EXPECT_FALSE(run({"time daily 10:00"}));
  to_schedule("s1");
  ASSERT_TRUE(run({""}));
  EXPECT_EQ(shell.mode(), Mode::Config);
  ASSERT_TRUE(run({"", "scheduler job name j1", "", "ls", "end-job"}));
  EXPECT_EQ(backend.last().text, "\nls\n");
  EXPECT_EQ(shell.mode(), Mode::Config);
}

// The text the daemon's generator prints, every kind of line of it; pasted back, every line is
// taken and each block ends where it should.
TEST_F(Modes, PastedConfigurationTextIsTakenLineByLine) {
  const std::vector<std::string> text = {
      "feature scheduler", "logging level scheduler 3", "scheduler logfile size 32", "",
      "scheduler aaa-authentication username alice password 7 AbC=", "",
      "scheduler transport email from sched@example.com", "scheduler transport email reply-to ops@example.com",
      "scheduler transport email smtp-server  mail.example.com", "scheduler transport email smtp-server ::1 port 587",
      "scheduler job name backup", "tar czf /tmp/b.tgz /etc", "  echo \"indented ; kept\"", "end-job", "",
      "scheduler schedule name nightly", "  job name backup", "  time daily 02:30", "email-addr ops@example.com", "",
      "scheduler schedule name hourly", "  time daily 30", "",
      "scheduler schedule name weekly", "  time weekly 00:10:00", "",
      "scheduler schedule name repeat", "  time start 2031:01:01:10:00 repeat 0:0:30", "",
      "scheduler schedule name untimed", "  job name backup", "  email-addr ops@example.com", "",
      "scheduler schedule name bare", "  ",
      "scheduler schedule name last", "  time start 2031:12:31:23:59", ""};
  ASSERT_TRUE(run({"configure terminal"}));
  backend.config = "scheduler aaa-authentication username alice password 7 AbC=\n";
  for (const std::string &line : text) EXPECT_TRUE(shell.execute(line)) << line << ": " << err.str();
  EXPECT_EQ(shell.mode(), Mode::Config);
  EXPECT_EQ(err.str(), "");
  std::vector<std::string> sent;
  for (const Call &call : backend.calls) {
    std::string line = call.handler;
    for (const std::string &value : call.values()) line += " " + value;
    sent.push_back(line);
  }
  EXPECT_EQ(sent, (std::vector<std::string>{
                      "enable_scheduler", "logging_level", "logfile_resize 32", "aaa_auth_passwd alice AbC=",
                      "config_text", "email_transport sched@example.com", "email_transport ops@example.com",
                      "email_transport mail.example.com", "email_transport ::1 587", "create_delete_job backup",
                      "define_job", "create_delete_schedule nightly", "modify_schedule nightly backup",
                      "modify_schedule nightly 02:30", "modify_schedule_emailaddr nightly ops@example.com",
                      "create_delete_schedule hourly", "modify_schedule hourly 30", "create_delete_schedule weekly",
                      "modify_schedule weekly 00:10:00", "create_delete_schedule repeat",
                      "modify_schedule repeat 2031:01:01:10:00 0:0:30", "create_delete_schedule untimed",
                      "modify_schedule untimed backup", "modify_schedule_emailaddr untimed ops@example.com",
                      "create_delete_schedule bare", "create_delete_schedule last",
                      "modify_schedule last 2031:12:31:23:59"}));
  EXPECT_EQ(backend.calls[10].text, "tar czf /tmp/b.tgz /etc\n  echo \"indented ; kept\"\n");
}

TEST_F(Modes, AFeatureTurnedOffTakesItsCommandsUntilItIsTurnedOnAgain) {
  to_schedule("s1");
  // What the handler's hook does once the daemon has turned the feature off.
  ASSERT_TRUE(run({"no feature scheduler"}));
  shell.remove_feature("scheduler");
  EXPECT_EQ(shell.mode(), Mode::Config);
  EXPECT_FALSE(run({"scheduler job name j1", "logging level scheduler 3"}));
  EXPECT_EQ(shell.mode(), Mode::Config);   // the job's lines are not taken as text either
  EXPECT_EQ(err.str(), "% Invalid command at 'scheduler'\n% Invalid command at 'logging'\n");
  ASSERT_TRUE(run({"end", "show running-config"}));
  EXPECT_FALSE(run({"show scheduler job"}));
  // A failed enable leaves them out; one the handler takes brings them back.
  backend.results["enable_scheduler"] = 1;
  EXPECT_FALSE(run({"configure terminal", "feature scheduler", "scheduler schedule name s1"}));
  backend.results.clear();
  EXPECT_TRUE(run({"feature scheduler", "scheduler schedule name s1", "end", "show scheduler job"}));
  ASSERT_EQ(backend.calls.size(), 6u);
  EXPECT_EQ(backend.calls[0].context.no_flag, 1);
  EXPECT_EQ(backend.calls[3].context.no_flag, 0);
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

TEST_F(Modes, JobModeExplainsItselfAndCanBeAbandoned) {
  shell.set_interactive(true);
  ASSERT_TRUE(run({"configure terminal", "scheduler job name j1"}));
  EXPECT_EQ(out.str(), "% Every line is now a command of the job, until end-job; '?' for help, Ctrl-C abandons the job\n");
  out.str("");
  // '?' alone asks for help and is no line of the job; within a line it is text.
  ASSERT_TRUE(run({" ? ", "ls /tmp/?"}));
  EXPECT_EQ(out.str(),
            "  Every line is one command of job j1, stored as typed (exit and end too)\n"
            "  end-job   Ends the job and sends its commands\n"
            "  Ctrl-C    Abandons the job: nothing typed here is sent\n");
  EXPECT_TRUE(shell.help("").empty());
  EXPECT_TRUE(shell.abandon_job());
  EXPECT_EQ(err.str(), "% Job j1 abandoned: its commands were not sent (the job stays, empty)\n");
  EXPECT_EQ(shell.mode(), Mode::Config);
  EXPECT_FALSE(shell.abandon_job());
  EXPECT_TRUE(shell.finish());
  ASSERT_TRUE(run({"scheduler job name j2", "ls", "end-job"}));
  EXPECT_EQ(backend.last().text, "ls\n");
  ASSERT_EQ(backend.calls.size(), 3u);   // nothing of j1 but its creation
  // A line that would not read back is refused, and the job goes on.
  err.str("");
  ASSERT_TRUE(run({"scheduler job name j3"}));
  EXPECT_FALSE(run({"echo \x1b[1m"}));
  EXPECT_TRUE(run({"echo ok", "end-job"}));
  EXPECT_EQ(backend.last().text, "echo ok\n");
  EXPECT_EQ(err.str(), "% Line not taken: a job line holds a control character\n");
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

TEST_F(Modes, TurningTheFeatureOffAtATerminalAsksWhenThereIsSomethingToLose) {
  std::vector<std::string> asked;
  bool answer = false;
  shell.set_confirm([&](std::string_view question) {
    asked.emplace_back(question);
    return answer;
  });
  ASSERT_TRUE(run({"configure terminal"}));
  // A script is not asked.
  EXPECT_TRUE(run({"no feature scheduler"}));
  EXPECT_TRUE(asked.empty());
  shell.set_interactive(true);
  backend.calls.clear();
  EXPECT_TRUE(run({"no feature scheduler"}));   // nothing to lose
  backend.config = "feature scheduler\nscheduler job name j1\nend-job\n\nscheduler schedule name s1\n  \n"
                   "scheduler schedule name s2\n  \n";
  EXPECT_FALSE(run({"no feature scheduler"}));
  EXPECT_EQ(asked, std::vector<std::string>{"Turning the scheduler off deletes its 1 job and 2 schedules. Turn it off?"});
  EXPECT_EQ(err.str(), "% The scheduler stays on\n");
  answer = true;
  EXPECT_TRUE(run({"no feature scheduler"}));
  std::vector<std::string> handlers;
  for (const Call &call : backend.calls) handlers.push_back(call.handler);
  EXPECT_EQ(handlers, (std::vector<std::string>{"config_text", "enable_scheduler", "config_text", "config_text",
                                                "enable_scheduler"}));
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
