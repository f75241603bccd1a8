// A daemon killed (SIGKILL) while a large configure replace goes on comes back with the old or
// the new configuration, never a mix of the two.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>
#include <thread>

#include "processes.h"

namespace e2e {
namespace {

// A configuration of `jobs` jobs and `schedules` schedules; every object differs between the
// two variants.
std::string configuration(char variant, int jobs, int schedules) {
  std::string text = "feature scheduler\n";
  for (int job = 0; job < jobs; job++) {
    text += "scheduler job name j" + std::to_string(job) + "\necho " + variant + std::to_string(job) + "\nend-job\n";
  }
  for (int schedule = 0; schedule < schedules; schedule++) {
    text += "scheduler schedule name s" + std::to_string(schedule) + "\n  job name j" +
            std::to_string((schedule + (variant == 'a' ? 0 : 1)) % jobs) + "\n  time daily " +
            (variant == 'a' ? "02:" : "03:") + std::to_string(10 + schedule % 50) + "\n\n";
  }
  return text;
}

TEST(ReplaceKilled, TheDaemonComesBackWithTheOldOrTheNewConfiguration) {
  Daemon daemon;
  std::string why;
  ASSERT_TRUE(daemon.start(&why)) << why;
  const std::string old_file = daemon.directory() + "/old.cfg";
  const std::string new_file = daemon.directory() + "/new.cfg";
  write_file(old_file, configuration('a', 200, 600));
  write_file(new_file, configuration('b', 200, 600));
  ASSERT_EQ(daemon.shell("copy " + old_file + " running-config\n").status, 0);
  const std::string old_text = daemon.shell("show running-config\n").out;
  auto started = std::chrono::steady_clock::now();
  ASSERT_EQ(daemon.shell("configure replace " + new_file + "\n").status, 0);
  auto took = std::chrono::steady_clock::now() - started;
  const std::string new_text = daemon.shell("show running-config\n").out;
  ASSERT_NE(old_text, new_text);

  // Kills spread over the time a replace takes, each from the old configuration.
  int olds = 0, news = 0;
  for (int step = 1; step <= 8; step++) {
    SCOPED_TRACE("kill " + std::to_string(step));
    ASSERT_EQ(daemon.shell("configure replace " + old_file + "\n").status, 0);
    ShellRun replace;
    std::thread shell([&] { replace = daemon.shell("configure replace " + new_file + "\n"); });
    std::this_thread::sleep_for(took * step / 8);
    daemon.signal(SIGKILL);
    daemon.reap();
    shell.join();
    ASSERT_TRUE(daemon.start(&why)) << why;
    std::string after = daemon.shell("show running-config\n").out;
    EXPECT_TRUE(after == old_text || after == new_text) << "a mix after the kill:\n" << after;
    olds += after == old_text;
    news += after == new_text;
  }
  // Whichever it was, each kill found one of the two whole.
  EXPECT_EQ(olds + news, 8);
  EXPECT_EQ(daemon.stop(), 0) << daemon.log();
}

}  // namespace
}  // namespace e2e
