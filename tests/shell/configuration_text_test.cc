// Configuration text read back into its objects, and the changes that make one text hold.
#include <gtest/gtest.h>

#include "configuration.h"

namespace schedsh {
namespace {

using List = std::vector<std::string>;

// The daemon's rendering with its odd corners: the untimed schedule's first address indented
// by the missing time line, a bare schedule's blank time line, a job with an empty line.
constexpr std::string_view kText =
    "feature scheduler\n"
    "logging level scheduler 4\n"
    "scheduler logfile size 20\n\n\n"
    "scheduler transport email smtp-server  mail.example.com\n"
    "scheduler job name nightly\n"
    "/bin/echo start\n"
    "\n"
    "  end-jobs are not this\n"
    "end-job\n\n"
    "scheduler job name empty\n"
    "end-job\n\n"
    "scheduler schedule name every_day\n"
    "  job name nightly\n"
    "  time daily 02:30\n"
    "email-addr ops@example.com\n\n"
    "scheduler schedule name untimed\n"
    "  job name empty\n"
    "  email-addr dev@example.com\n"
    "email-addr ops@example.com\n\n"
    "scheduler schedule name bare\n"
    "  \n";

Configuration parsed(std::string_view text) {
  std::string error;
  std::optional<Configuration> configuration = parse_configuration(text, &error);
  EXPECT_TRUE(configuration) << error;
  return configuration.value_or(Configuration{});
}

TEST(ConfigurationText, EveryBlockOfTheDaemonsTextIsReadBack) {
  Configuration configuration = parsed(kText);
  EXPECT_EQ(configuration.settings,
            (List{"feature scheduler", "logging level scheduler 4", "scheduler logfile size 20",
                  "scheduler transport email smtp-server mail.example.com"}));
  ASSERT_EQ(configuration.jobs.size(), 2u);
  EXPECT_EQ(configuration.jobs[0].lines, (List{"/bin/echo start", "", "  end-jobs are not this"}));
  EXPECT_EQ(configuration.jobs[0].text(), "/bin/echo start\n\n  end-jobs are not this\n");
  EXPECT_TRUE(configuration.jobs[1].lines.empty());
  ASSERT_EQ(configuration.schedules.size(), 3u);
  const ScheduleBlock *every_day = configuration.schedule("every_day");
  ASSERT_TRUE(every_day);
  EXPECT_EQ(every_day->time, "time daily 02:30");
  EXPECT_EQ(every_day->jobs, List{"nightly"});
  EXPECT_EQ(every_day->emails, List{"ops@example.com"});
  EXPECT_EQ(configuration.schedule("untimed")->emails, (List{"dev@example.com", "ops@example.com"}));
  EXPECT_EQ(configuration.schedule("untimed")->time, "");
  EXPECT_EQ(configuration.schedule("bare")->jobs, List{});
}

TEST(ConfigurationText, HandWrittenTextReadsAsTheShellWouldRunIt) {
  // Mode lines and comments are skipped, a configuration line ends a schedule's block, and
  // abbreviated keywords are understood.
  Configuration configuration = parsed(
      "! saved by hand\nconfigure terminal\nsched sched name s1\ntime weekly Fri:23:00\n"
      "scheduler transport email from a@b\njob name j1\nend\n");
  ASSERT_EQ(configuration.schedules.size(), 1u);
  EXPECT_EQ(configuration.schedules[0].name, "s1");
  EXPECT_EQ(configuration.schedules[0].time, "time weekly Fri:23:00");
  EXPECT_EQ(configuration.settings, (List{"scheduler transport email from a@b", "job name j1"}));
  std::string error;
  EXPECT_FALSE(parse_configuration("feature scheduler\nscheduler job name j1\nls\n", &error));
  EXPECT_EQ(error, "line 2: job j1 has no end-job");
  EXPECT_TRUE(parse_configuration("", &error));
}

TEST(ConfigurationChanges, OnlyWhatDiffersIsSentAndNothingIsTakenAway) {
  Configuration running = parsed(
      "feature scheduler\nscheduler logfile size 30\n"
      "scheduler job name nightly\n/bin/echo start\nend-job\n\n"
      "scheduler job name other\nls\nend-job\n\n"
      "scheduler schedule name every_day\n  job name empty\n  time daily 03:00\nemail-addr ops@example.com\n\n"
      "scheduler schedule name untimed\n  job name empty\nemail-addr dev@example.com\nemail-addr ops@example.com\n\n");
  ConfigurationChanges changes = changes_to_hold(parsed(kText), running);
  EXPECT_EQ(changes.settings, (List{"logging level scheduler 4", "scheduler logfile size 20",
                                    "scheduler transport email smtp-server mail.example.com"}));
  ASSERT_EQ(changes.jobs.size(), 2u);
  EXPECT_EQ(changes.jobs[0].name, "nightly");
  EXPECT_TRUE(changes.jobs[0].exists);   // other commands: redefined
  EXPECT_EQ(changes.jobs[1].name, "empty");
  EXPECT_FALSE(changes.jobs[1].exists);
  ASSERT_EQ(changes.schedules.size(), 2u);
  EXPECT_EQ(changes.schedules[0].name, "every_day");
  EXPECT_TRUE(changes.schedules[0].exists);
  // The job empty stays assigned: copying adds, it does not replace.
  EXPECT_EQ(changes.schedules[0].lines, (List{"job name nightly", "time daily 02:30"}));
  EXPECT_EQ(changes.schedules[1].name, "bare");
  EXPECT_FALSE(changes.schedules[1].exists);
  EXPECT_TRUE(changes.schedules[1].lines.empty());
  EXPECT_EQ(changes.unchanged, 2u);   // feature scheduler and the schedule untimed
}

}  // namespace
}  // namespace schedsh
