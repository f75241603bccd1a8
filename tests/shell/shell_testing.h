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
  std::vector<RecordedParam> params;
  std::string job, text;   // define_job only

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

  const Call &last() const { return calls.back(); }

 private:
  uint32_t record(const std::string &handler, const sch_cli_context &context, uint32_t success = 0) {
    Call call{handler, context, {}, {}, {}};
    for (unsigned i = 0; i < context.param_count; ++i) {
      const sch_cli_param *param = context.params[i];
      call.params.push_back({param->kind, param->value_type, static_cast<const char *>(param->value)});
    }
    calls.push_back(call);
    auto found = results.find(handler);
    return found == results.end() ? success : found->second;
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
