// '?' help and Tab completion where the transcripts cannot reach: fall-back, quotes, job mode.
#include <gtest/gtest.h>

#include "shell_testing.h"

namespace schedsh::testing {
namespace {

using List = std::vector<std::string>;

class Help : public ShellTest {
 protected:
  List words(std::string_view text) {
    List listed;
    for (const HelpItem &item : shell.help(text)) listed.push_back(item.word);
    return listed;
  }
  List completions(std::string_view text) { return shell.complete(text).candidates; }
};

TEST_F(Help, ScheduleModeFallsBackToConfigurationMode) {
  to_schedule("nightly");
  EXPECT_EQ(words("time start 10:00 "), (List{"repeat", "<cr>"}));
  // Nothing of schedule mode starts so: configuration mode's commands are offered.
  EXPECT_EQ(words("sch"), (List{"scheduler"}));
  EXPECT_EQ(words("scheduler job "), (List{"name"}));
  EXPECT_EQ(completions("sch"), (List{"scheduler"}));
  EXPECT_EQ(completions("e"), (List{"email-addr", "end", "exit"}));
}

TEST_F(Help, CompletionOffersKeywordsOnly) {
  EXPECT_EQ(completions("conf"), (List{"configure"}));
  EXPECT_EQ(completions("show scheduler "), (List{"config", "job", "logfile", "memory-statistics", "schedule", "timers"}));
  EXPECT_EQ(completions("SHOW SCHEDULER J"), (List{"job"}));
  EXPECT_EQ(shell.complete("show scheduler j").partial, "j");
  EXPECT_TRUE(completions("show scheduler job name ").empty());
  EXPECT_TRUE(completions("show scheduler job name b").empty());
  EXPECT_TRUE(completions("nothing").empty());
  EXPECT_TRUE(completions("show \"sch").empty());
}

TEST_F(Help, ExistingJobAndScheduleNamesComplete) {
  backend.config = "scheduler job name backup\nend-job\n\nscheduler job name bulk\nend-job\n\n"
                   "scheduler schedule name nightly\n  \n";
  EXPECT_EQ(completions("show scheduler job name "), (List{"backup", "bulk"}));
  EXPECT_EQ(completions("show scheduler job name ba"), (List{"backup"}));
  EXPECT_EQ(completions("show scheduler schedule name "), (List{"nightly"}));
  to_schedule("nightly");
  EXPECT_EQ(completions("job name b"), (List{"backup", "bulk"}));
  EXPECT_EQ(completions("scheduler schedule "), (List{"name"}));
  // No daemon, no names; the keywords still complete.
  backend.results["config_text"] = 1;
  EXPECT_TRUE(completions("job name b").empty());
  EXPECT_EQ(completions("ti"), (List{"time"}));
}

TEST_F(Help, AQuestionMarkIsTextInsideQuotesAndInJobMode) {
  ASSERT_TRUE(run({"configure terminal"}));
  // An unclosed quote runs to the end of the line, mark included.
  backend.config = "scheduler aaa-authentication username operator password 7 what?\n";
  EXPECT_TRUE(shell.execute("scheduler aaa-authentication password 7 \"what?")) << err.str();
  EXPECT_EQ(backend.calls.front().values(), List{"what?"});
  ASSERT_TRUE(run({"scheduler job name j1"}));
  EXPECT_TRUE(words("").empty());
  EXPECT_TRUE(completions("en").empty());
  EXPECT_TRUE(run({"ls /tmp/?", "end-job"}));
  EXPECT_EQ(backend.last().text, "ls /tmp/?\n");
  EXPECT_EQ(out.str(), "");
}

TEST_F(Help, HelpOnABadLineNamesTheWordAndDoesNotFail) {
  ASSERT_TRUE(run({"configure terminal"}));
  EXPECT_TRUE(shell.execute("scheduler jub ?"));
  EXPECT_TRUE(shell.execute("frob?"));
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), "% Invalid command at 'jub'\n% Invalid command at 'frob'\n");
  EXPECT_TRUE(backend.calls.empty());
}

}  // namespace
}  // namespace schedsh::testing
