// Golden transcripts: a script on the shell's standard input against a fresh daemon, compared
// with the expected standard output, standard error and exit status.
//
// The clock is stopped (see stopped_clock), so every time in the output is fixed. Expected files
// write the user's name as {{user}}; scripts and expected files write the daemon's temporary
// directory as {{dir}} and the transcripts' own as {{transcripts}}. SCHEDSH_E2E_UPDATE=1 rewrites
// the expected files from the actual output.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "processes.h"

namespace e2e {
namespace {

std::string replaced(std::string text, const std::string &from, const std::string &to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

struct Transcript {
  const char *name;
  int status;
};

class Transcripts : public ::testing::TestWithParam<Transcript> {};

TEST_P(Transcripts, MatchTheExpectedOutput) {
  Daemon daemon;
  std::string why;
  ASSERT_TRUE(daemon.start(&why)) << why;
  std::string base = std::string(E2E_TRANSCRIPTS) + "/" + GetParam().name;
  const std::string user_line = "User Name           : ";
  const std::vector<std::pair<std::string, std::string>> placeholders = {
      {user_line + "{{user}}", user_line + user_name()},
      {"{{dir}}", daemon.directory()},
      {"{{transcripts}}", E2E_TRANSCRIPTS}};
  auto filled = [&](std::string text) {
    for (const auto &[placeholder, value] : placeholders) text = replaced(std::move(text), placeholder, value);
    return text;
  };
  ShellRun run = daemon.shell(filled(read_file(base + ".cmds")));
  auto expected = [&](const char *kind) {
    if (std::getenv("SCHEDSH_E2E_UPDATE")) {
      std::string text = kind[1] == 'o' ? run.out : run.err;
      for (const auto &[placeholder, value] : placeholders) text = replaced(std::move(text), value, placeholder);
      write_file(base + kind, text);
    }
    return filled(read_file(base + kind));
  };
  EXPECT_EQ(run.out, expected(".out"));
  EXPECT_EQ(run.err, expected(".err"));
  EXPECT_EQ(run.status, GetParam().status);
  EXPECT_EQ(daemon.stop(), 0) << daemon.log();
}

INSTANTIATE_TEST_SUITE_P(Shell, Transcripts,
                         ::testing::Values(Transcript{"help_and_modes", 1}, Transcript{"jobs", 1},
                                           Transcript{"schedules", 1}, Transcript{"paste_back", 0},
                                           Transcript{"feature_off", 1}, Transcript{"feature_disable", 1},
                                           Transcript{"logfile_and_transport", 1}, Transcript{"grammar", 1},
                                           Transcript{"job_mode", 0}, Transcript{"replay_itself", 0},
                                           Transcript{"replay_empty", 0}, Transcript{"replace", 1},
                                           Transcript{"limits", 1}, Transcript{"words", 1},
                                           Transcript{"show_config", 0}, Transcript{"memory_and_open_job", 1}),
                         [](const ::testing::TestParamInfo<Transcript> &info) { return std::string(info.param.name); });

}  // namespace
}  // namespace e2e
