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

TEST_F(Contexts, JobAndScheduleCommands) {
  EXPECT_EQ(call_of("show scheduler job name j1").params, (std::vector<RecordedParam>{{0, SCH_VALUE_STRING, "j1"}}));
  backend.results["show_jobs"] = 1;   // a display that failed fails the command
  call_of("show scheduler job", false);
  struct Case {
    const char *line, *handler;
    Values values;
    bool no_flag;
  };
  for (const Case &c : {Case{"no scheduler job name j1", "create_delete_job", {"j1"}, true},
                        Case{"scheduler schedule name s1", "create_delete_schedule", {"s1"}, false},
                        Case{"no scheduler schedule name s1", "create_delete_schedule", {"s1"}, true}}) {
    shell.enter(Mode::Config);
    Call call = call_of(c.line);
    EXPECT_EQ(call.handler, c.handler) << c.line;
    EXPECT_EQ(call.values(), c.values) << c.line;
    EXPECT_EQ(call.context.no_flag, c.no_flag) << c.line;
  }
  shell.enter(Mode::Config);
  // The one-line form creates the job, then hands over the rest of the line exactly as typed.
  backend.calls.clear();
  ASSERT_TRUE(run({"scheduler job name j2 echo  a ; date;x ;  "}));
  ASSERT_EQ(backend.calls.size(), 2u);
  EXPECT_EQ(backend.calls[0].handler, "create_delete_job");
  EXPECT_EQ(backend.calls[1].handler, "semicolon_define_job");
  EXPECT_EQ(backend.calls[1].values(), (Values{"j2", "echo  a ; date;x ;"}));
  // A job that cannot be created is not defined.
  backend.calls.clear();
  backend.results["create_delete_job"] = 255;
  EXPECT_FALSE(run({"scheduler job name j2 ls"}));
  EXPECT_EQ(backend.calls.size(), 1u);
}

TEST_F(Contexts, ScheduleModeCommandsNameTheScheduleFirst) {
  to_schedule("nightly");
  struct Case {
    const char *line;
    uint32_t code;
    Values values;
    bool no_flag;
  };
  for (const Case &c : {
           Case{"job name backup", SCH_MODIFY_JOB, {"nightly", "backup"}, false},
           Case{"no job name backup", SCH_MODIFY_JOB, {"nightly", "backup"}, true},
           Case{"time daily 02:30", SCH_MODIFY_DAILY, {"nightly", "02:30"}, false},
           Case{"time weekly Mon:02:30", SCH_MODIFY_WEEKLY, {"nightly", "Mon:02:30"}, false},
           Case{"time monthly 15:02:30", SCH_MODIFY_MONTHLY, {"nightly", "15:02:30"}, false},
           Case{"time start 2030:Jan:01:00:00", SCH_MODIFY_ONESHOT, {"nightly", "2030:Jan:01:00:00"}, false},
           Case{"time start +1:00 repeat 0:30", SCH_MODIFY_START_REPEAT, {"nightly", "+1:00", "0:30"}, false},
           // Without a start time the handler is told so by the two parameters.
           Case{"time start now repeat 1:00:00", SCH_MODIFY_START_REPEAT, {"nightly", "1:00:00"}, false},
           // The handler itself refuses the no form of a time, with its own message.
           Case{"no time daily 02:30", SCH_MODIFY_DAILY, {"nightly", "02:30"}, true},
       }) {
    Call call = call_of(c.line);
    EXPECT_EQ(call.handler, "modify_schedule") << c.line;
    EXPECT_EQ(call.context.command_code, c.code) << c.line;
    EXPECT_EQ(call.values(), c.values) << c.line;
    EXPECT_EQ(call.context.param_count, c.values.size()) << c.line;
    EXPECT_EQ(call.context.no_flag, c.no_flag) << c.line;
  }
  Call add = call_of("email-addr ops@example.com");
  EXPECT_EQ(add.handler, "modify_schedule_emailaddr");
  EXPECT_EQ(add.values(), (Values{"nightly", "ops@example.com"}));
  EXPECT_EQ(call_of("no email-addr ops@example.com").context.no_flag, 1);
  EXPECT_EQ(call_of("no email-addr notanemail").values(), (Values{"nightly", "notanemail"}));
  backend.calls.clear();
  EXPECT_FALSE(run({"email-addr notanemail"}));
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_EQ(shell.mode(), Mode::Schedule);
  backend.results["modify_schedule"] = static_cast<uint32_t>(-1);   // a refused time
  call_of("time daily 25:00", false);
}

TEST_F(Contexts, CredentialParametersCarryTheirKinds) {
  ASSERT_TRUE(run({"configure terminal"}));
  const uint32_t s = SCH_VALUE_STRING;
  struct Case {
    const char *line;
    std::vector<RecordedParam> params;
  };
  for (const Case &c : {
           Case{"scheduler aaa-authentication username bob password 7 AbC=",
                {{SCH_PARAM_USER_NAME, s, "bob"}, {SCH_PARAM_ENCRYPTED_PASSWORD, s, "AbC="}}},
           Case{"scheduler aaa-authentication password 7 AbC=", {{SCH_PARAM_ENCRYPTED_PASSWORD, s, "AbC="}}},
           Case{"no scheduler aaa-authentication username carol", {{SCH_PARAM_USER_NAME, s, "carol"}}},
           Case{"no scheduler aaa-authentication", {}},
       }) {
    // What the daemon holds afterwards is read back: bob's and the operator's password.
    backend.config = "scheduler aaa-authentication username bob password 7 AbC=\n"
                     "scheduler aaa-authentication username operator password 7 AbC=\n";
    if (c.line[0] == 'n') backend.config.clear();
    backend.calls.clear();
    EXPECT_TRUE(shell.execute(c.line)) << c.line << ": " << err.str();
    ASSERT_EQ(backend.calls.size(), 2u) << c.line;
    Call call = backend.calls.front();
    EXPECT_EQ(call.handler, "aaa_auth_passwd") << c.line;
    EXPECT_EQ(call.params, c.params) << c.line;
    EXPECT_EQ(call.context.no_flag, c.line[0] == 'n') << c.line;
    EXPECT_EQ(backend.calls[1].number, ACFG_CFG_RUNNING) << c.line;
  }
  for (const char *line : {"scheduler aaa-authentication password secret",
                           "scheduler aaa-authentication password 0 secret"}) {
    backend.calls.clear();
    shell.execute(line);
    EXPECT_EQ(backend.calls.front().params, (std::vector<RecordedParam>{{SCH_PARAM_CLEAR_PASSWORD, s, "secret"}}));
  }
  // This handler's success is 8; anything else is a failure, and nothing is read back.
  backend.results["aaa_auth_passwd"] = 0;
  call_of("scheduler aaa-authentication password 7 AbC=", false);
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

TEST_F(Contexts, LogFileParametersAreANumberOfKilobytesAndAFileUri) {
  ASSERT_TRUE(run({"configure terminal"}));
  const uint32_t integer = SCH_VALUE_INTEGER;
  EXPECT_EQ(call_of("scheduler logfile size 1").params, (std::vector<RecordedParam>{{0, integer, "1"}}));
  EXPECT_EQ(call_of("scheduler logfile size 65536").params, (std::vector<RecordedParam>{{0, integer, "65536"}}));
  // The no form needs no size, and a size given to it is not sent.
  for (const char *line : {"no scheduler logfile size", "no scheduler logfile size 64"}) {
    Call call = call_of(line);
    EXPECT_EQ(call.handler, "logfile_resize");
    EXPECT_EQ(call.context.param_count, 0) << line;
    EXPECT_EQ(call.context.no_flag, 1) << line;
  }
  EXPECT_EQ(call_of("scheduler logfile name logs:runs.dat").params,
            (std::vector<RecordedParam>{{0, kValueFileUri, "logs:runs.dat"}}));
  EXPECT_EQ(call_of("scheduler logfile name /var/tmp/runs.dat").values(), Values{":/var/tmp/runs.dat"});
  EXPECT_EQ(call_of("no scheduler logfile name").context.no_flag, 1);
  shell.enter(Mode::Exec);
  EXPECT_EQ(call_of("clear scheduler logfile").handler, "logfile_clear");

  // Sizes the daemon does not take, and names no file system holds, are refused before anything
  // is sent.
  backend.calls.clear();
  shell.enter(Mode::Config);
  EXPECT_FALSE(run({"scheduler logfile size 0", "scheduler logfile size 65537", "scheduler logfile name nfs:x",
                    "scheduler logfile name logs:../../etc/passwd", "scheduler logfile name " + std::string(300, 'f')}));
  EXPECT_TRUE(backend.calls.empty());
  const std::string invalid_name =
      "% Invalid file name: a path, or logs:, bootflash: or volatile: followed by a path without \"..\"\n";
  EXPECT_EQ(err.str(), "% Invalid command at '0'\n% Invalid command at '65537'\n" + invalid_name + invalid_name +
                           invalid_name);
}

TEST_F(Contexts, TransportOptionsTravelByCommandCode) {
  ASSERT_TRUE(run({"configure terminal"}));
  struct Case {
    const char *line;
    uint32_t code;
    Values values;
  };
  for (const Case &c : {Case{"scheduler transport email from sched@example.com", SCH_TRANSPORT_FROM,
                             {"sched@example.com"}},
                        Case{"no scheduler transport email from sched@example.com", SCH_TRANSPORT_FROM, {}},
                        Case{"scheduler transport email reply-to ops@example.com", SCH_TRANSPORT_REPLY_TO,
                             {"ops@example.com"}},
                        Case{"no scheduler transport email reply-to", SCH_TRANSPORT_REPLY_TO, {}},
                        Case{"no scheduler transport email smtp-server mail port 26", SCH_TRANSPORT_SMTP_SERVER, {}}}) {
    Call call = call_of(c.line);
    EXPECT_EQ(call.handler, "email_transport") << c.line;
    EXPECT_EQ(call.context.command_code, c.code) << c.line;
    EXPECT_EQ(call.values(), c.values) << c.line;
    EXPECT_EQ(call.context.no_flag, c.line[0] == 'n') << c.line;
  }
  // An address the handler would cut is refused; the no form sends none, so takes any.
  backend.calls.clear();
  const std::string too_long = std::string(SCH_EMAIL_SIZE - 12, 'a') + "@example.com";
  EXPECT_FALSE(run({"scheduler transport email from " + too_long}));
  EXPECT_EQ(err.str(), "% Email address too long: at most 63 characters\n");
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_TRUE(run({"no scheduler transport email reply-to " + too_long}));
}

TEST_F(Contexts, TheSmtpServerCarriesItsAddressKindPortAndVrf) {
  ASSERT_TRUE(run({"configure terminal"}));
  const std::string command = "scheduler transport email smtp-server ";
  struct Case {
    std::string host;
    uint32_t kind;
  };
  for (const Case &c : {Case{"192.0.2.25", SCH_ADDRESS_IPV4}, Case{"2001:db8::25", SCH_ADDRESS_IPV6},
                        Case{"::1", SCH_ADDRESS_IPV6}, Case{"mail.example.com", SCH_ADDRESS_HOST_NAME},
                        Case{"localhost", SCH_ADDRESS_HOST_NAME}, Case{"3com.example", SCH_ADDRESS_HOST_NAME},
                        Case{"mx-1", SCH_ADDRESS_HOST_NAME}, Case{std::string(63, 'h') + ".example", SCH_ADDRESS_HOST_NAME},
                        // Neither an address nor a name: the handler refuses these.
                        Case{"192.0.2.256", 0}, Case{"192.0.2", 0}, Case{"1:2", 0}, Case{"-mail", 0},
                        Case{"mail-", 0}, Case{"mail..example", 0}, Case{"mail.example.", 0},
                        Case{"mail_server", 0}, Case{std::string(64, 'h') + ".example", 0}}) {
    Call call = call_of(command + c.host);
    EXPECT_EQ(call.values(), Values{c.host});
    EXPECT_EQ(call.address_kinds, std::vector<uint32_t>{c.kind}) << c.host;
  }
  // A port is an integer; the VRF follows it, or takes its place.
  const uint32_t s = SCH_VALUE_STRING, integer = SCH_VALUE_INTEGER;
  EXPECT_EQ(call_of(command + "mail port 587 vrf blue").params,
            (std::vector<RecordedParam>{{0, s, "mail"}, {0, integer, "587"}, {0, s, "blue"}}));
  EXPECT_EQ(call_of(command + "mail vrf blue").params, (std::vector<RecordedParam>{{0, s, "mail"}, {0, s, "blue"}}));
  EXPECT_EQ(call_of(command + "mail port 1").values(), (Values{"mail", "1"}));
  backend.calls.clear();
  EXPECT_FALSE(run({command + "mail port 0", command + "mail vrf blue port 25", command + "mail port"}));
  EXPECT_TRUE(backend.calls.empty());

  // The handler's refusal of a host has no line end of its own; the shell ends the line.
  err.str("");
  backend.results["email_transport"] = 1;
  call_of(command + "bad_host", false);
  EXPECT_EQ(err.str(), "\n");
  err.str("");
  call_of(command + "mail", false);
  EXPECT_EQ(err.str(), "");
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
