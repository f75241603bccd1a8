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

}  // namespace
}  // namespace schedsh
