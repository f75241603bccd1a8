// The shell's text end to end. Golden transcripts: a script on the shell's standard input against
// a fresh daemon, with the arguments NAME.args lists one a line when there is one, compared with the
// expected standard output, standard error and exit status.
// Then the configuration's text round trip, as a remote user with a type-7 password.
//
// The clock is stopped (see stopped_clock), so every time in the output is fixed. Expected files
// write the user's name as {{user}}; scripts and expected files write the daemon's temporary
// directory as {{dir}} and the transcripts' own as {{transcripts}}. SCHEDSH_E2E_UPDATE=1 rewrites
// the expected files from the actual output.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "processes.h"
#include "schedcli/platform/secrets.h"

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
  std::vector<std::string> arguments;
  std::istringstream listed(filled(read_file(base + ".args")));
  for (std::string line; std::getline(listed, line);) arguments.push_back(line);
  ShellRun run = daemon.shell(filled(read_file(base + ".cmds")), arguments);
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
                                           Transcript{"show_config", 0}, Transcript{"memory_and_open_job", 1},
                                           Transcript{"commands_as_arguments", 1}, Transcript{"script_file", 0},
                                           Transcript{"script_missing", 1}),
                         [](const ::testing::TestParamInfo<Transcript> &info) { return std::string(info.param.name); });

// The configuration's text end to end, typed as alice, a remote user, so that a type-7 password is
// part of it: pasted into a fresh daemon, saved and brought back by a stateless restart; saved to a
// file and given to the shell, which applies it rather than running it from exec mode: onto the
// daemon it came from it changes nothing, onto an empty one it gives the same text back. Byte for
// byte each time.
TEST(Configuration, ItsTextRebuildsItExactlyPastedReplayedAndAfterAStatelessRestart) {
  Daemon original, pasted_into, replayed_onto;
  std::string why;
  // The output of a shell run as alice that must succeed.
  auto shown = [](const Daemon &daemon, const std::string &input, const std::vector<std::string> &arguments = {}) {
    ShellRun run = daemon.shell(input, arguments, as_user(daemon.directory(), "alice"));
    EXPECT_EQ(run.err, "") << input;
    EXPECT_EQ(run.status, 0) << input;
    return run.out;
  };
  auto start = [&](Daemon &daemon) { return daemon.start(&why, as_user(daemon.directory(), "alice")); };
  // A daemon with no configuration on the device of `original`, whose key a type-7 password needs.
  auto start_beside = [&](Daemon &daemon) {
    const std::string key = "/state/" SECRETS_DEVICE_KEY_NAME;
    std::filesystem::create_directories(daemon.directory() + "/state");
    std::filesystem::copy_file(original.directory() + key, daemon.directory() + key);
    return start(daemon);
  };

  ASSERT_TRUE(start(original)) << why;
  shown(original, read_file(std::string(E2E_TRANSCRIPTS) + "/everything_typed.in"));
  const std::string text = shown(original, "show running-config\n");
  for (const char *line : {"feature scheduler\n", "logging level scheduler 6\n", "scheduler logfile size 48\n",
                           "scheduler aaa-authentication username alice password 7 ",
                           "scheduler transport email smtp-server mail.example.com port 587\n",
                           "  time weekly 06:23:00\n", "  time start 2031:01:01:10:00 repeat 1:2:3\n",
                           "  time start 2030:03:17:17:48 repeat 0:0:30\n", "  email-addr dev@example.com\n",
                           "scheduler schedule name s8_bare\n  \n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << "no \"" << line << "\" in:\n" << text;
  }
  // The exact texts of the copies are pinned by the replay_itself transcript.
  const std::string saved = original.directory() + "/saved.cfg";
  const std::string unchanged = "Copied " + saved + " to running-config: nothing to change; ";
  shown(original, "copy running-config " + saved + "\n");
  EXPECT_EQ(read_file(saved), text);
  EXPECT_EQ(shown(original, "", {saved}).substr(0, unchanged.size()), unchanged);
  EXPECT_EQ(shown(original, "show running-config\n"), text);

  ASSERT_TRUE(start_beside(pasted_into)) << why;
  shown(pasted_into, "configure terminal\n" + text);
  EXPECT_EQ(shown(pasted_into, "show running-config\n"), text);
  shown(pasted_into, "copy running-config startup-config\n");
  ASSERT_EQ(pasted_into.stop(), 0) << pasted_into.log();
  std::filesystem::remove_all(pasted_into.directory() + "/run");
  ASSERT_TRUE(start(pasted_into)) << why;
  EXPECT_EQ(shown(pasted_into, "show running-config\nshow startup-config\n"), text + text);

  ASSERT_TRUE(start_beside(replayed_onto)) << why;
  EXPECT_NE(shown(replayed_onto, "", {saved}).find("; 0 unchanged\n"), std::string::npos);
  EXPECT_EQ(shown(replayed_onto, "show running-config\n"), text);
}

}  // namespace
}  // namespace e2e
