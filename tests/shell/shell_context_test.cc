// What each command hands its handler: parameters in order with their kinds, code, no flag.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "cli/request.h"
#include "schedcli/cli_config.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"
#include "shell_testing.h"

namespace schedsh::testing {
namespace {

using Values = std::vector<std::string>;

class Contexts : public ShellTest {
 protected:
  // Runs one line and returns the one call it made.
  Call call_of(const std::string &line, bool expect_ok = true) {
    backend.calls.clear();
    EXPECT_EQ(shell.execute(line), expect_ok) << line << ": " << err.str();
    EXPECT_EQ(backend.calls.size(), 1u) << line;
    return backend.calls.empty() ? Call{} : backend.calls.front();
  }
};

TEST_F(Contexts, EveryContextCarriesTheSession) {
  Call call = call_of("show scheduler job");
  EXPECT_EQ(call.context.session, test_session());
  EXPECT_STREQ(call.context.user, "operator");
  EXPECT_EQ(call.context.param_count, 0);
  EXPECT_EQ(call.context.debug, 0);
  // The debug command reaches every later context, and its no form ends it.
  ASSERT_TRUE(run({"debug scheduler"}));
  EXPECT_EQ(call_of("show scheduler schedule name s1").context.debug, 1);
  ASSERT_TRUE(run({"no debug scheduler"}));
  EXPECT_EQ(call_of("show scheduler schedule").context.debug, 0);
  // A user name longer than its field is cut there.
  Shell other(table(), backend, SessionInfo{nullptr, std::string(40, 'u'), true}, out, err);
  ASSERT_TRUE(other.execute("show scheduler job"));
  EXPECT_EQ(std::string(backend.last().context.user), std::string(SCH_CLI_USER_SIZE - 1, 'u'));
}

// The handler answers success also when the daemon kept nothing (a standby, a full disk): what
// the daemon holds is read back, and a credential that is not there as sent is an error.
TEST_F(Contexts, ACredentialTheDaemonDidNotKeepIsAnError) {
  std::string key = ::testing::TempDir() + "schedsh_key_" + std::to_string(getpid());
  ASSERT_EQ(secrets_device_key_path_set(key.c_str()), 0u);
  secrets_use_device_key(1);  // as the daemon would, without one
  struct Restore {
    ~Restore() { secrets_use_device_key(0); }
  } restore;
  char *encrypted = nullptr;
  uint32_t length = 0;
  ASSERT_EQ(security_conf_encrypt("secret", 7, 0, 0, &encrypted, &length), 0u);
  const std::string stored(encrypted, length);
  std::free(encrypted);
  const std::string line = "scheduler aaa-authentication username operator password 7 ";
  ASSERT_TRUE(run({"configure terminal"}));

  backend.config = line + stored + "\n";
  EXPECT_TRUE(run({"scheduler aaa-authentication password secret", "scheduler aaa-authentication password 7 " + stored}));
  EXPECT_EQ(err.str(), "");
  // Another password, none at all, or a store the daemon answered with the old one.
  EXPECT_FALSE(run({"scheduler aaa-authentication password other", "scheduler aaa-authentication password 7 AbC=",
                    "scheduler aaa-authentication username bob password secret", "no scheduler aaa-authentication"}));
  const std::string not_stored = "% The daemon did not store the credential of user ";
  EXPECT_EQ(err.str(), not_stored + "operator\n" + not_stored + "operator\n" + not_stored + "bob\n" +
                           "% The daemon did not delete the credential of user operator\n");
  err.str("");
  backend.results["config_text"] = CMI_ERR_NO_DAEMON;
  EXPECT_FALSE(run({"scheduler aaa-authentication password secret"}));
  EXPECT_EQ(err.str(), std::string("% Could not read back the credential of user operator: ") +
                           syserr2str(CMI_ERR_NO_DAEMON) + "\n");
  secrets_device_key_path_set(nullptr);
  unlink(key.c_str());
}

TEST_F(Contexts, ValuesLongerThanTheirFieldAreRefusedNotCut) {
  std::string longest(SCH_NAME_SIZE - 1, 'n'), too_long(SCH_NAME_SIZE, 'n');
  const std::string refused = "% Name too long: at most 31 characters\n";
  EXPECT_EQ(call_of("show scheduler job name " + longest).values(), Values{longest});
  backend.calls.clear();
  EXPECT_FALSE(run({"show scheduler job name " + too_long, "configure terminal",
                    "scheduler job name " + too_long + " ls", "scheduler schedule name " + too_long}));
  EXPECT_EQ(err.str(), refused + refused + refused);
  // The lines of a job refused so are still kept from running as commands.
  EXPECT_FALSE(run({"scheduler job name " + too_long, "no scheduler schedule name s1", "end-job",
                    "scheduler schedule name s1",
                    "email-addr " + std::string(SCH_EMAIL_SIZE - 12, 'e') + "@example.com"}));
  ASSERT_EQ(backend.calls.size(), 1u);
  EXPECT_EQ(backend.last().handler, "create_delete_schedule");
  EXPECT_EQ(err.str(), refused + refused + refused + refused +
                           "% Lines up to end-job are ignored: the job was not created\n"
                           "% Email address too long: at most 63 characters\n");
}

TEST_F(Contexts, LoggingLevelAndTheConfigurationRequestsUseTheSession) {
  ASSERT_TRUE(run({"configure terminal"}));
  Call set = call_of("logging level scheduler 7");
  EXPECT_EQ(set.handler, "logging_level");
  EXPECT_EQ(set.text, "scheduler");
  EXPECT_EQ(set.number, 7u);
  EXPECT_EQ(set.context.session, test_session());
  EXPECT_EQ(call_of("no logging level scheduler").number, ACFG_LEVEL_DEFAULT);
  EXPECT_EQ(call_of("no logging level scheduler 3").number, ACFG_LEVEL_DEFAULT);
  backend.results["logging_level"] = ACFG_ERR_BAD_ARGUMENT;
  call_of("logging level scheduler 0", false);
  EXPECT_EQ(err.str(), std::string("% Could not set the scheduler's logging level: ") +
                           syserr2str(ACFG_ERR_BAD_ARGUMENT) + "\n");

  ASSERT_TRUE(run({"end"}));
  err.str("");
  backend.config = "feature scheduler\nscheduler transport email smtp-server  mail\n\n";
  EXPECT_EQ(call_of("show running-config").number, ACFG_CFG_RUNNING);
  EXPECT_EQ(call_of("show running-config scheduler").number, ACFG_CFG_RUNNING);
  EXPECT_EQ(call_of("show startup-config scheduler").number, ACFG_CFG_STARTUP);
  // Exactly as received, blanks and empty lines included.
  EXPECT_EQ(out.str(), backend.config + backend.config + backend.config);
  EXPECT_EQ(call_of("copy running-config startup-config").handler, "copy_running_to_startup");
  EXPECT_EQ(out.str(), backend.config + backend.config + backend.config + "Copied running-config to startup-config\n");

  backend.results = {{"config_text", CMI_ERR_NO_DAEMON}, {"copy_running_to_startup", CMI_ERR_TIMEOUT}};
  out.str("");
  call_of("show startup-config", false);
  call_of("copy running-config startup-config", false);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), std::string("% Could not show the startup configuration: ") + syserr2str(CMI_ERR_NO_DAEMON) +
                           "\n% Could not copy the running configuration to the startup configuration: " +
                           syserr2str(CMI_ERR_TIMEOUT) + "\n");
}

}  // namespace
}  // namespace schedsh::testing
