// Tab completion where the transcripts cannot reach: the names of existing jobs and schedules.
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

}  // namespace
}  // namespace schedsh::testing
