// Replay of configuration text through the shell: what is sent, in which mode, and the line
// that ends it.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "replay.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/status.h"
#include "shell_testing.h"

namespace schedsh::testing {
namespace {

using List = std::vector<std::string>;

class Replay : public ShellTest {
 protected:
  // The handlers called, each with its values, the reading of the running text left out.
  List sent() const {
    List lines;
    for (const Call &call : backend.calls) {
      if (call.handler == "config_text") continue;
      std::string line = call.handler;
      for (const std::string &value : call.values()) line += " " + value;
      if (call.handler == "define_job") line += " " + call.job + " [" + call.text + "]";
      lines.push_back(line);
    }
    return lines;
  }
};

constexpr std::string_view kSaved =
    "feature scheduler\nscheduler logfile size 20\n\n"
    "scheduler job name nightly\n/bin/echo start\n  ls -l\nend-job\n\n"
    "scheduler job name fresh\nend-job\n\n"
    "scheduler schedule name every_day\n  job name nightly\n  time daily 02:30\nemail-addr ops@example.com\n\n"
    "scheduler schedule name bare\n  \n";

TEST_F(Replay, ATextOntoItselfSendsNothing) {
  backend.config = std::string(kSaved);
  ASSERT_TRUE(run({"copy startup-config running-config", "configure terminal"}));
  EXPECT_TRUE(replay_configuration(shell, kSaved, "saved.cfg"));
  EXPECT_EQ(sent(), List{});
  EXPECT_EQ(backend.calls.front().number, ACFG_CFG_STARTUP);
  EXPECT_EQ(out.str(), "Copied startup-config to running-config: nothing to change; 6 unchanged\n"
                       "Copied saved.cfg to running-config: nothing to change; 6 unchanged\n");
  EXPECT_EQ(shell.mode(), Mode::Config);
}

TEST_F(Replay, ARefusedChangeSendsNoneAndTheSettingsWait) {
  backend.results["create_delete_schedule"] = 255;
  EXPECT_FALSE(replay_configuration(shell, kSaved, "saved.cfg"));
  // The settings hold on their own; nothing of the objects is applied.
  EXPECT_EQ(sent().back(), "drop_gathered");
  EXPECT_EQ(out.str(), "Copied saved.cfg to running-config: 2 settings changed, 2 changes failed; "
                       "0 unchanged; no job or schedule changed\n");

  // What the daemon refuses is named by the line of its object.
  backend.calls.clear();
  backend.results.clear();
  out.str("");
  backend.config = "feature scheduler\n";
  backend.apply_failures = {{4, SCH_STATUS_NO_SUCH_JOB}, {5, SCH_STATUS_NO_SUCH_JOB}};
  EXPECT_FALSE(replay_configuration(shell, kSaved, "saved.cfg"));
  EXPECT_EQ(err.str(), std::string("% scheduler schedule name every_day: ") + syserr2str(SCH_STATUS_NO_SUCH_JOB) +
                           "\n% scheduler schedule name every_day: " + syserr2str(SCH_STATUS_NO_SUCH_JOB) + "\n");
  EXPECT_EQ(out.str(),
            "Copied saved.cfg to running-config: 1 setting changed, 1 change failed; 1 unchanged; "
            "no job or schedule changed\n");
  EXPECT_EQ(sent().back(), "apply_gathered");

  // A job line that would not read back is refused before the job is redefined.
  backend.calls.clear();
  backend.apply_failures.clear();
  err.str("");
  backend.config = "scheduler job name j1\nls\nend-job\n";
  EXPECT_FALSE(replay_configuration(shell, "scheduler job name j1\necho \x1b[0m\nend-job\n", "f"));
  EXPECT_EQ(sent(), (List{"gather_changes", "drop_gathered"}));
  EXPECT_EQ(err.str(), "% Job j1 not redefined: a job line holds a control character\n");
}

TEST_F(Replay, AReplaceShowsTheDifferenceAndTakesAwayWhatTheFileLacks) {
  backend.config = "feature scheduler\nscheduler logfile size 48\nscheduler transport email from a@example.com\n"
                   "scheduler job name old\nls\nend-job\n\n"
                   "scheduler job name nightly\n/bin/echo start\n  ls -l\nend-job\n\n"
                   "scheduler schedule name gone\n  job name old\n\n"
                   "scheduler schedule name every_day\n  job name nightly\n  job name old\n  time weekly 1:02:30\n"
                   "  email-addr dev@example.com\n  email-addr ops@example.com\n\n";
  EXPECT_TRUE(replace_configuration(shell, "feature scheduler\nscheduler transport email from b@example.com\n"
                                           "scheduler job name nightly\n/bin/echo start\n  ls -l\n"
                                           "end-job\nscheduler schedule name every_day\n  job name nightly\n"
                                           "  email-addr ops@example.com\n",
                                    "new.cfg"));
  EXPECT_EQ(out.str(), "+ scheduler transport email from b@example.com\n- scheduler logfile size 48\n"
                       "- scheduler schedule name gone\n- scheduler job name old\n~ scheduler schedule name every_day\n"
                       "    no time weekly 1:02:30\n    no email-addr dev@example.com\n"
                       "Replaced running-config with new.cfg: 1 setting changed, 1 setting removed, 1 job removed, "
                       "1 schedule changed, 1 schedule removed; 2 unchanged\n");
  // The removed job's assignment goes with it, not by a line of its own.
  // A setting given another value is set, not removed; one the file lacks goes after the apply.
  EXPECT_EQ(sent(), (List{"email_transport b@example.com", "gather_changes", "create_delete_schedule gone",
                          "create_delete_job old", "create_delete_schedule every_day",
                          "modify_schedule every_day 1:02:30", "modify_schedule_emailaddr every_day dev@example.com",
                          "apply_gathered", "logfile_resize"}));
  EXPECT_EQ(backend.calls[3].context.no_flag, 1u);
  EXPECT_EQ(backend.last().context.no_flag, 1u);

  // At a terminal the operator is asked, and a no keeps everything.
  backend.calls.clear();
  out.str("");
  shell.set_interactive(true);
  shell.set_confirm([](std::string_view) { return false; });
  EXPECT_FALSE(replace_configuration(shell, "feature scheduler\n", "empty.cfg"));
  EXPECT_EQ(sent(), List{});
  EXPECT_NE(out.str().find("Nothing replaced: running-config kept\n"), std::string::npos) << out.str();
}

TEST_F(Replay, NothingIsSentWhenEitherTextCannotBeRead) {
  EXPECT_FALSE(replay_configuration(shell, "scheduler job name j1\nls\n", "broken.cfg"));
  backend.results["config_text"] = CMI_ERR_NO_DAEMON;
  EXPECT_FALSE(replay_configuration(shell, kSaved, "saved.cfg"));
  EXPECT_EQ(sent(), List{});
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), std::string("% Nothing copied from broken.cfg: line 1: job j1 has no end-job\n"
                                   "% Nothing copied from saved.cfg: the running configuration could not be read: ") +
                           syserr2str(CMI_ERR_NO_DAEMON) + "\n");
}

TEST_F(Replay, ConfigurationTextIsToldFromExecCommands) {
  EXPECT_TRUE(shell.reads_as_configuration(kSaved));
  EXPECT_TRUE(shell.reads_as_configuration("\n! saved\n  scheduler job name j\nend-job\n"));
  EXPECT_FALSE(shell.reads_as_configuration("configure terminal\nfeature scheduler\n"));
  EXPECT_FALSE(shell.reads_as_configuration("show running-config\n"));
  EXPECT_FALSE(shell.reads_as_configuration("frobnicate\n"));
  EXPECT_FALSE(shell.reads_as_configuration("\n! nothing\n"));
}

}  // namespace
}  // namespace schedsh::testing
