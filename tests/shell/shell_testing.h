// A shell over the real command table, with a backend that records what each handler was given.
#ifndef TESTS_SHELL_SHELL_TESTING_H
#define TESTS_SHELL_SHELL_TESTING_H

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "backend.h"
#include "commands.h"
#include "schedcli/platform/uri.h"
#include "shell.h"

namespace schedsh::testing {

struct RecordedParam {
  uint32_t kind, value_type;
  std::string value;
  bool operator==(const RecordedParam &) const = default;
};

// One handler call, with a copy of its context.
struct Call {
  std::string handler;
  sch_cli_context context{};
  std::vector<RecordedParam> params;   // integers and file URIs as text ("device:path")
  std::vector<uint32_t> address_kinds;
  std::string job, text;   // define_job only; text is also logging_level's facility
  uint32_t number = 0;     // config_text's kind, logging_level's level

  std::vector<std::string> values() const {
    std::vector<std::string> all;
    for (const RecordedParam &param : params) all.push_back(param.value);
    return all;
  }
};

class FakeBackend final : public Backend {
 public:
  std::vector<Call> calls;
  std::map<std::string, uint32_t> results;   // by handler; unset: the handler's success

  uint32_t create_delete_job(sch_cli_context *c) override { return record("create_delete_job", *c); }
  uint32_t define_job(const sch_cli_context &c, std::string_view job, std::string_view text) override {
    uint32_t result = record("define_job", c);
    calls.back().job = job;
    calls.back().text = text;
    return result;
  }
  uint32_t semicolon_define_job(sch_cli_context *c) override { return record("semicolon_define_job", *c); }
  uint32_t create_delete_schedule(sch_cli_context *c) override { return record("create_delete_schedule", *c); }
  uint32_t modify_schedule(sch_cli_context *c) override { return record("modify_schedule", *c); }
  uint32_t modify_schedule_emailaddr(sch_cli_context *c) override { return record("modify_schedule_emailaddr", *c); }
  int aaa_auth_passwd(sch_cli_context *c) override { return static_cast<int>(record("aaa_auth_passwd", *c, 8)); }
  int show_jobs(sch_cli_context *c) override { return static_cast<int>(record("show_jobs", *c)); }
  int show_schedules(sch_cli_context *c) override { return static_cast<int>(record("show_schedules", *c)); }
  int enable_scheduler(sch_cli_context *c) override { return static_cast<int>(record("enable_scheduler", *c)); }
  uint32_t logfile_resize(sch_cli_context *c) override { return record("logfile_resize", *c); }
  uint32_t logfile_clear(sch_cli_context *c) override { return record("logfile_clear", *c); }
  uint32_t logfile_rename(sch_cli_context *c) override { return record("logfile_rename", *c); }
  uint32_t email_transport(sch_cli_context *c) override { return record("email_transport", *c); }
  int show_config(sch_cli_context *c) override { return static_cast<int>(record("show_config", *c)); }
  int show_memstats(sch_cli_context *c) override { return static_cast<int>(record("show_memstats", *c)); }
  int show_logfile(sch_cli_context *c) override { return static_cast<int>(record("show_logfile", *c)); }
  uint32_t show_timers(sch_cli_context *c) override { return record("show_timers", *c); }
  uint32_t config_text(cmi_session *session, uint32_t cfg_type, std::string *text) override {
    uint32_t result = record_session("config_text", session, cfg_type);
    if (result == 0) *text = config;
    return result;
  }
  uint32_t copy_running_to_startup(cmi_session *session) override {
    return record_session("copy_running_to_startup", session, 0);
  }
  uint32_t logging_level(cmi_session *session, std::string_view facility, uint32_t level) override {
    uint32_t result = record_session("logging_level", session, level);
    calls.back().text = facility;
    return result;
  }

  cmi_session *gather_changes(cmi_session *session, std::string *) override {
    record_session("gather_changes", session, 0);
    gathering_from = calls.size();
    return session;
  }
  std::size_t gathered() override {
    std::size_t count = 0;
    for (std::size_t i = gathering_from; i < calls.size(); ++i) count += changes(calls[i].handler);
    return count;
  }
  uint32_t apply_gathered(cmi_session *session, bool send, bool check, std::vector<ApplyFailure> *failures) override {
    std::size_t count = gathered();
    record_session(send ? (check ? "check_gathered" : "apply_gathered") : "drop_gathered", session, count);
    if (!send) return 0;
    *failures = apply_failures;
    return apply_failures.empty() ? 0 : apply_failures.front().status;
  }

  std::string config;   // what config_text answers
  std::vector<ApplyFailure> apply_failures;   // what apply_gathered answers
  std::size_t gathering_from = 0;

  // The handlers whose changes an apply carries.
  static bool changes(const std::string &handler) {
    return handler == "create_delete_job" || handler == "define_job" || handler == "create_delete_schedule" ||
           handler == "modify_schedule" || handler == "modify_schedule_emailaddr";
  }

  const Call &last() const { return calls.back(); }

 private:
  uint32_t record(const std::string &handler, const sch_cli_context &context, uint32_t success = 0) {
    Call call{handler, context, {}, {}, {}, {}};
    for (unsigned i = 0; i < context.param_count; ++i) {
      const sch_cli_param *param = context.params[i];
      call.params.push_back({param->kind, param->value_type, value_text(*param)});
      call.address_kinds.push_back(param->address_kind);
    }
    calls.push_back(call);
    return result_of(handler, success);
  }

  uint32_t record_session(const std::string &handler, cmi_session *session, uint32_t number) {
    Call call{handler, {}, {}, {}, {}, {}};
    call.context.session = session;
    call.number = number;
    calls.push_back(call);
    return result_of(handler, 0);
  }

  uint32_t result_of(const std::string &handler, uint32_t success) const {
    auto found = results.find(handler);
    return found == results.end() ? success : found->second;
  }

  static std::string value_text(const sch_cli_param &param) {
    switch (param.value_type) {
      case SCH_VALUE_STRING: return static_cast<const char *>(param.value);
      case SCH_VALUE_INTEGER: return std::to_string(*static_cast<const int32_t *>(param.value));
      default: {
        const auto *uri = static_cast<const file_uri *>(param.value);
        return std::string(uri->device) + ":" + uri->path;
      }
    }
  }
};

// The session the tests hand the shell; the fake backend never uses it.
inline cmi_session *test_session() { return reinterpret_cast<cmi_session *>(0x5e55); }

class ShellTest : public ::testing::Test {
 protected:
  ShellTest() : shell(table(), backend, SessionInfo{test_session(), "operator", false}, out, err) {}

  static const CommandTable &table() {
    static const CommandTable commands = [] {
      CommandTable built;
      register_commands(built);
      return built;
    }();
    return commands;
  }

  // Runs the lines in order; true when all succeeded.
  bool run(std::initializer_list<std::string_view> lines) {
    bool ok = true;
    for (std::string_view line : lines) ok = shell.execute(line) && ok;
    return ok;
  }

  void to_schedule(const std::string &name) {
    shell.enter(Mode::Config);
    ASSERT_TRUE(run({"scheduler schedule name " + name}));
    backend.calls.clear();
  }

  FakeBackend backend;
  std::ostringstream out, err;
  Shell shell;
};

}  // namespace schedsh::testing

#endif
