// What the transcripts cannot reach: the shell over the real command table and a backend that
// records each handler call (contexts, completion, injected failures), declaring commands, and
// the command line.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <sstream>
#include <stdexcept>

#include "backend.h"
#include "command_table.h"
#include "commands.h"
#include "options.h"
#include "replay.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/status.h"
#include "shell.h"
#include "support/temp_dir.h"

namespace schedsh {
namespace {

using List = std::vector<std::string>;

// One handler call, with a copy of its context and its values as text.
struct Call {
  std::string handler;
  sch_cli_context context{};
  List values;
};

#define RECORDED(type, name) \
  type name(sch_cli_context *c) override { return static_cast<type>(record(#name, c)); }

class FakeBackend final : public Backend {
 public:
  std::vector<Call> calls;
  std::map<std::string, uint32_t> results;   // by handler; unset: the handler's success
  std::string config;                         // what config_text answers
  std::vector<ApplyFailure> apply_failures;   // what apply_gathered answers

  RECORDED(uint32_t, create_delete_job) RECORDED(uint32_t, semicolon_define_job)
  RECORDED(uint32_t, create_delete_schedule) RECORDED(uint32_t, modify_schedule)
  RECORDED(uint32_t, modify_schedule_emailaddr) RECORDED(uint32_t, email_transport)
  RECORDED(uint32_t, logfile_resize) RECORDED(uint32_t, logfile_clear) RECORDED(uint32_t, logfile_rename)
  RECORDED(int, show_jobs) RECORDED(int, show_schedules) RECORDED(int, show_config) RECORDED(int, show_logfile)
  RECORDED(int, enable_scheduler) RECORDED(int, show_memstats) RECORDED(uint32_t, show_timers)
  int aaa_auth_passwd(sch_cli_context *c) override { return static_cast<int>(record("aaa_auth_passwd", c, 8)); }
  uint32_t define_job(const sch_cli_context &c, std::string_view, std::string_view) override {
    return record("define_job", &c);
  }
  uint32_t config_text(cmi_session *, uint32_t, std::string *text) override {
    // Not recorded: replay and completion read it as they please.
    uint32_t result = result_of("config_text", 0);
    if (result == 0) *text = config;
    return result;
  }
  uint32_t copy_running_to_startup(cmi_session *) override { return record("copy_running_to_startup", nullptr); }
  uint32_t logging_level(cmi_session *, std::string_view, uint32_t) override {
    return record("logging_level", nullptr);
  }
  cmi_session *gather_changes(cmi_session *session, std::string *) override {
    record("gather_changes", nullptr);
    return session;
  }
  // The calls whose changes an apply carries.
  std::size_t gathered() override {
    return std::count_if(calls.begin(), calls.end(), [](const Call &call) {
      return call.handler.starts_with("create_delete") || call.handler.starts_with("modify") ||
             call.handler == "define_job";
    });
  }
  uint32_t apply_gathered(cmi_session *, bool send, bool, std::vector<ApplyFailure> *failures) override {
    record(send ? "apply_gathered" : "drop_gathered", nullptr);
    if (!send) return 0;
    *failures = apply_failures;
    return apply_failures.empty() ? 0 : apply_failures.front().status;
  }

 private:
  uint32_t record(const char *handler, const sch_cli_context *context, uint32_t success = 0) {
    Call call{handler, context ? *context : sch_cli_context{}, {}};
    for (unsigned i = 0; context && i < context->param_count; ++i) {
      const sch_cli_param &param = *context->params[i];
      call.values.push_back(param.value_type == SCH_VALUE_STRING ? static_cast<const char *>(param.value) : "");
    }
    calls.push_back(call);
    return result_of(handler, success);
  }
  uint32_t result_of(const std::string &handler, uint32_t success) const {
    auto found = results.find(handler);
    return found == results.end() ? success : found->second;
  }
};

// The session the tests hand the shell; the fake backend never uses it.
cmi_session *const kSession = reinterpret_cast<cmi_session *>(0x5e55);

const CommandTable &table() {
  static const CommandTable commands = [] {
    CommandTable built;
    register_commands(built);
    return built;
  }();
  return commands;
}

class ShellTest : public ::testing::Test {
 protected:
  // Runs the lines in order; true when all succeeded.
  bool run(std::initializer_list<std::string_view> lines) {
    bool ok = true;
    for (std::string_view line : lines) ok = shell.execute(line) && ok;
    return ok;
  }
  // Runs one line and returns the one call it made.
  Call call_of(const std::string &line) {
    backend.calls.clear();
    EXPECT_TRUE(shell.execute(line)) << line << ": " << err.str();
    EXPECT_EQ(backend.calls.size(), 1u) << line;
    return backend.calls.empty() ? Call{} : backend.calls.front();
  }

  FakeBackend backend;
  std::ostringstream out, err;
  Shell shell{table(), backend, SessionInfo{kSession, "operator", false}, out, err};
};

TEST_F(ShellTest, EveryContextCarriesTheSessionUserAndDebug) {
  Call call = call_of("show scheduler job");
  EXPECT_EQ(call.context.session, kSession);
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
  EXPECT_EQ(std::string(backend.calls.back().context.user), std::string(SCH_CLI_USER_SIZE - 1, 'u'));
}

// The handler answers success also when the daemon kept nothing (a standby, a full disk): what
// the daemon holds is read back, and a credential that is not there as sent is an error.
TEST_F(ShellTest, ACredentialTheDaemonDidNotKeepIsAnError) {
  sch::testing::TempDir directory;
  ASSERT_EQ(secrets_device_key_path_set(directory.file("device.key").c_str()), 0u);
  secrets_use_device_key(1);  // as the daemon would, without one
  struct Restore {
    ~Restore() {
      secrets_use_device_key(0);
      secrets_device_key_path_set(nullptr);
    }
  } restore;
  char *encrypted = nullptr;
  uint32_t length = 0;
  ASSERT_EQ(security_conf_encrypt("secret", 7, 0, 0, &encrypted, &length), 0u);
  const std::string stored(encrypted, length);
  std::free(encrypted);
  ASSERT_TRUE(run({"configure terminal"}));
  backend.config = "scheduler aaa-authentication username operator password 7 " + stored + "\n";
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
}

// A request the daemon fails is named, with its status, and nothing is printed as if it held.
TEST_F(ShellTest, ARequestThatFailsIsNamedWithItsStatus) {
  const std::tuple<const char *, uint32_t, const char *, std::string> cases[] = {  // handler, status, line, said
      {"config_text", CMI_ERR_NO_DAEMON, "show startup-config", "% Could not show the startup configuration: "},
      {"copy_running_to_startup", CMI_ERR_TIMEOUT, "do copy running-config startup-config",
       "% Could not copy the running configuration to the startup configuration: "},
      {"config_text", CMI_ERR_NO_DAEMON, "do copy startup-config running-config",
       "% Could not read the startup-config: "}};
  shell.enter(Mode::Config);
  for (const auto &[handler, status, line, said] : cases) {
    backend.results = {{handler, status}};
    err.str("");
    EXPECT_FALSE(shell.execute(line)) << line;
    EXPECT_EQ(err.str(), said + syserr2str(status) + "\n") << line;
    EXPECT_EQ(out.str(), "") << line;
  }
}

TEST_F(ShellTest, ExistingJobAndScheduleNamesComplete) {
  auto completions = [&](std::string_view text) { return shell.complete(text).candidates; };
  backend.config = "scheduler job name backup\nend-job\n\nscheduler job name bulk\nend-job\n\n"
                   "scheduler schedule name nightly\n  \n";
  EXPECT_EQ(completions("show scheduler job name "), (List{"backup", "bulk"}));
  EXPECT_EQ(completions("show scheduler job name ba"), (List{"backup"}));
  EXPECT_EQ(completions("show scheduler schedule name "), (List{"nightly"}));
  ASSERT_TRUE(run({"configure terminal", "scheduler schedule name nightly"}));
  EXPECT_EQ(completions("job name b"), (List{"backup", "bulk"}));
  EXPECT_EQ(completions("scheduler schedule "), (List{"name"}));
  EXPECT_EQ(completions("do show runn"), (List{"running-config"}));
  // No daemon, no names; the keywords still complete.
  backend.results["config_text"] = 1;
  EXPECT_TRUE(completions("job name b").empty());
  EXPECT_EQ(completions("ti"), (List{"time"}));
}

TEST_F(ShellTest, LongLinesAreMatchedAndReportedLikeAnyOther) {
  std::string many;
  for (int i = 0; i < 100000; ++i) many += "show ";
  EXPECT_FALSE(run({many, std::string(1 << 20, 'x')}));
  EXPECT_EQ(err.str(), "% Invalid command at 'show'\n% Invalid command at '" + std::string(40, 'x') + "...'\n");
  ASSERT_TRUE(run({"configure terminal", "scheduler job name j1 " + std::string(300000, ';')}));
  ASSERT_EQ(backend.calls.size(), 2u);
  EXPECT_EQ(backend.calls.back().values.at(1).size(), 300000u);
}

constexpr std::string_view kSaved =
    "feature scheduler\nscheduler logfile size 20\n\n"
    "scheduler job name nightly\n/bin/echo start\n  ls -l\nend-job\n\n"
    "scheduler job name fresh\nend-job\n\n"
    "scheduler schedule name every_day\n  job name nightly\n  time daily 02:30\nemail-addr ops@example.com\n\n"
    "scheduler schedule name bare\n  \n";

TEST_F(ShellTest, ARefusedChangeSendsNoneAndTheSettingsWait) {
  backend.results["create_delete_schedule"] = 255;
  EXPECT_FALSE(replay_configuration(shell, kSaved, "saved.cfg"));
  // The settings hold on their own; nothing of the objects is applied.
  EXPECT_EQ(backend.calls.back().handler, "drop_gathered");
  EXPECT_EQ(out.str(), "Copied saved.cfg to running-config: 2 settings changed, 2 changes failed; "
                       "0 unchanged; no job or schedule changed\n");

  // What the daemon refuses is named by the line of its object, counted once: changes 4 and 5
  // are the schedule every_day's.
  backend.calls.clear();
  backend.results.clear();
  out.str("");
  backend.config = "feature scheduler\n";
  backend.apply_failures = {{4, SCH_STATUS_NO_SUCH_JOB}, {5, SCH_STATUS_NO_SUCH_JOB}};
  EXPECT_FALSE(replay_configuration(shell, kSaved, "saved.cfg"));
  const std::string named = std::string("% scheduler schedule name every_day: ") + syserr2str(SCH_STATUS_NO_SUCH_JOB);
  EXPECT_EQ(err.str(), named + "\n" + named + "\n");
  EXPECT_EQ(out.str(), "Copied saved.cfg to running-config: 1 setting changed, 1 change failed; 1 unchanged; "
                       "no job or schedule changed\n");
  EXPECT_EQ(backend.calls.back().handler, "apply_gathered");
}

TEST_F(ShellTest, NothingIsReplacedOrCopiedWithoutTheRunningText) {
  // At a terminal the operator is asked, and a no keeps everything.
  shell.set_interactive(true);
  shell.set_confirm([](std::string_view) { return false; });
  backend.config = std::string(kSaved);
  EXPECT_FALSE(replace_configuration(shell, "feature scheduler\n", "empty.cfg"));
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_NE(out.str().find("Nothing replaced: running-config kept\n"), std::string::npos) << out.str();
  backend.results["config_text"] = CMI_ERR_NO_DAEMON;
  out.str("");
  EXPECT_FALSE(replay_configuration(shell, kSaved, "saved.cfg"));
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), std::string("% Nothing copied from saved.cfg: the running configuration could not be read: ") +
                           syserr2str(CMI_ERR_NO_DAEMON) + "\n");
}

TEST_F(ShellTest, ConfigurationTextIsToldFromExecCommands) {
  for (auto [text, configuration] : std::initializer_list<std::pair<std::string_view, bool>>{
           {kSaved, true}, {"\n! saved\n  scheduler job name j\nend-job\n", true},
           {"configure terminal\nfeature scheduler\n", false}, {"show running-config\n", false},
           {"frobnicate\n", false}, {"\n! nothing\n", false}}) {
    EXPECT_EQ(shell.reads_as_configuration(text), configuration) << text;
  }
}

bool act(Shell &, const Arguments &) { return true; }

// The error a declaration is refused with, or "" when it is taken.
std::string refusal(CommandTable &table, const CommandDeclaration &declaration) {
  try {
    table.add(declaration);
  } catch (const std::logic_error &error) {
    return error.what();
  }
  return "";
}

// Choosing among forms that all fit: an exact keyword outranks an abbreviation of a longer one,
// a keyword outranks a rest of line whatever the order of declaration, and an abbreviation that
// fits two keywords is refused as ambiguous, even where only one of them ends a command.
TEST(Matching, TheBestFittingFormWins) {
  CommandTable table;
  table.add({Mode::Exec, "show scheduler", {"s", "t"}, act});
  table.add({Mode::Exec, "show schedule", {"s", "t"}, act});
  table.add({Mode::Exec, "run <words>...", {"r", "w"}, act});
  table.add({Mode::Exec, "run fast", {"r", "f"}, act});
  table.add({Mode::Exec, "clear logfile", {"c", "l"}, act});
  table.add({Mode::Exec, "clear logging now", {"c", "l", "n"}, act});
  auto matched = [&](List words) {
    Match match = table.match(Mode::Exec, words);
    return match.status == MatchStatus::Ok ? match.command->syntax : "status " + std::to_string(int(match.status));
  };
  EXPECT_EQ(matched({"show", "schedule"}), "show schedule");
  EXPECT_EQ(matched({"SHOW", "Scheduler"}), "show scheduler");
  const std::string ambiguous = "status " + std::to_string(int(MatchStatus::Ambiguous));
  EXPECT_EQ(matched({"show", "sched"}), ambiguous);
  EXPECT_EQ(matched({"clear", "log"}), ambiguous);
  EXPECT_EQ(matched({"clear", "logf"}), "clear logfile");
  EXPECT_EQ(matched({"run", "fast"}), "run fast");
  EXPECT_EQ(matched({"run", "fas"}), "run fast");
  EXPECT_EQ(matched({"run", "slow"}), "run <words>...");
}

TEST(Declaration, ADuplicateFailsLoudlyAndLeavesTheTableAsItWas) {
  CommandTable table;
  table.add({Mode::Config, "scheduler job name <job>", {"a", "b", "c", "d"}, act});
  // The same words again, whatever the variable is called.
  std::string error = refusal(table, {Mode::Config, "scheduler job name <other>", {"a", "b", "c", "d"}, act});
  EXPECT_NE(error.find("duplicate command \"scheduler job name <>\" in configuration mode"), std::string::npos) << error;
  EXPECT_NE(error.find("\"scheduler job name <job>\""), std::string::npos) << "names the first owner: " << error;
  // An optional word that expands into an existing form, and two equal choices of one entry.
  EXPECT_NE(refusal(table, {Mode::Config, "[no] scheduler job name <job>", {"n", "a", "b", "c", "d"}, act}), "");
  EXPECT_NE(refusal(table, {Mode::Exec, "show [job|job]", {"s", "j", "j"}, act}), "");
  // Nothing of a refused entry stays behind, not even its forms that were new.
  EXPECT_EQ(table.commands().size(), 1u);
  EXPECT_EQ(refusal(table, {Mode::Exec, "show job", {"s", "j"}, act}), "");
  // The same words in another mode are another command.
  EXPECT_EQ(refusal(table, {Mode::Schedule, "scheduler job name <job>", {"a", "b", "c", "d"}, act}), "");
}

TEST(Declaration, MalformedSyntaxIsRefused) {
  for (const auto &[syntax, help] : std::initializer_list<std::pair<const char *, std::vector<std::string_view>>>{
           {"show job", {"one help line"}}, {"show job", {"s", "j", "extra"}}, {"show [job", {"s", "j"}},
           {"show job]", {"s", "j"}}, {"show {a|}", {"s", "a"}}, {"show <text>... more", {"s", "t", "m"}},
           {"show <>", {"s", "v"}}, {"show <job", {"s", "v"}}, {"[show]", {"s"}}, {"", {}}}) {
    CommandTable table;
    EXPECT_THROW(table.add({Mode::Exec, syntax, help, act}), std::logic_error) << syntax;
    EXPECT_TRUE(table.commands().empty()) << syntax;
  }
  CommandTable table;
  EXPECT_THROW(table.add({Mode::Exec, "show", {"s"}, nullptr}), std::logic_error);
}

TEST(Options, AreUnderstoodAndMistakesReported) {
  Options options = parse_options(List{"-c", "show scheduler job", "-cexit", "--runtime-dir", "/r", "--state-dir=/s",
                                       "--debug", "--timeout", "5"}).options;
  EXPECT_EQ(options.commands, (List{"show scheduler job", "exit"}));
  EXPECT_EQ(options.runtime_dir, "/r");
  EXPECT_EQ(options.state_dir, "/s");
  EXPECT_TRUE(options.debug);
  EXPECT_EQ(options.timeout_seconds, 5u);
  EXPECT_EQ(parse_options(List{"--", "-odd-name"}).options.script, "-odd-name");
  EXPECT_FALSE(parse_options(List{"-"}).options.script);   // standard input
  for (const List &arguments : {List{"-c"}, List{"--runtime-dir"}, List{"--runtime-dir="}, List{"--timeout", "0"},
                                List{"--timeout", "5s"}, List{"--bogus"}, List{"a", "b"}, List{"-c", "exit", "file"}}) {
    EXPECT_NE(parse_options(arguments).error, "") << arguments.front();
  }
}

}  // namespace
}  // namespace schedsh
