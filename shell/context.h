// Builds the parsed-command context and parameter records that the library's handlers read.
#ifndef SCHEDSH_CONTEXT_H
#define SCHEDSH_CONTEXT_H

#include <array>
#include <cstdint>
#include <string>

#include "schedcli/cli.h"

namespace schedsh {

// What every command's context carries from the shell's session.
struct SessionInfo {
  cmi_session *session = nullptr;
  std::string user;     // login name of the process
  bool debug = false;   // handlers trace to standard error
};

// The login name of the effective user, or "" when the user database has none.
std::string process_user_name();

// One handler context with the parameter records and strings it points to; they live as long
// as this object, which therefore can be neither copied nor moved.
class CommandContext {
 public:
  CommandContext(const SessionInfo &session, bool no_form);
  CommandContext(const CommandContext &) = delete;
  CommandContext &operator=(const CommandContext &) = delete;

  // Appends a string parameter of `kind`; false (nothing added) when all are taken.
  bool add_string(std::string value, uint32_t kind = 0);
  void set_code(uint32_t code) { context_.command_code = code; }

  sch_cli_context *get() { return &context_; }
  const sch_cli_context *get() const { return &context_; }

 private:
  sch_cli_context context_{};
  std::array<sch_cli_param, SCH_CLI_MAX_PARAMS> params_{};
  std::array<std::string, SCH_CLI_MAX_PARAMS> values_;
};

}  // namespace schedsh

#endif
