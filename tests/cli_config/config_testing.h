// Test support for the feature, log-file, transport and show-configuration handlers: the shared
// fake daemon, with each run's output kept in out_ and err_.
#ifndef SCHEDCLI_TESTS_CLI_CONFIG_CONFIG_TESTING_H
#define SCHEDCLI_TESTS_CLI_CONFIG_CONFIG_TESTING_H

#include "cli/request.h"
#include "schedcli/cli_config.h"
#include "support/fake_daemon.h"

namespace config_testing {

using namespace sch::testing;

class ConfigTest : public ::testing::Test {
 protected:
  // Runs `handler` on `command`, keeping standard output and error in out_ and err_.
  template <typename Result>
  Result run(Result (*handler)(sch_cli_context *), Command &command) {
    Result result{};
    auto output = capture([&] { result = handler(&command.context); });
    out_ = output.out;
    err_ = output.err;
    return result;
  }
  template <typename Result>
  Result run(Result (*handler)(sch_cli_context *), uint32_t code = 0, bool no_form = false) {
    Command command(daemon_.session(), code, no_form);
    return run(handler, command);
  }
  std::vector<Received> requests() const { return daemon_.requests(); }

  FakeDaemon daemon_;
  std::string out_, err_;
};

}  // namespace config_testing

#endif
