// Builds the parsed-command context and parameter records that the library's handlers read.
#ifndef SCHEDSH_CONTEXT_H
#define SCHEDSH_CONTEXT_H

#include <array>
#include <cstdint>
#include <string>

#include "schedcli/cli.h"
#include "schedcli/platform/uri.h"

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

  // Each appends a parameter; false (nothing added) when all are taken. A string may carry its
  // kind and, for a host, its address kind.
  bool add_string(std::string value, uint32_t kind = 0, uint32_t address_kind = 0);
  bool add_integer(int32_t value);
  // A parsed file URI: the value points to the file_uri itself, the value type is neither a
  // string nor an integer.
  bool add_file_uri(const file_uri &uri);
  void set_code(uint32_t code) { context_.command_code = code; }

  sch_cli_context *get() { return &context_; }
  const sch_cli_context *get() const { return &context_; }

 private:
  sch_cli_context context_{};
  std::array<sch_cli_param, SCH_CLI_MAX_PARAMS> params_{};
  std::array<std::string, SCH_CLI_MAX_PARAMS> values_;
  std::array<int32_t, SCH_CLI_MAX_PARAMS> integers_{};
  std::array<file_uri, SCH_CLI_MAX_PARAMS> uris_{};

  // Fills the next slot, which the caller has checked is free.
  void add(uint32_t kind, uint32_t value_type, void *value, uint32_t address_kind);
};

// The parameter value type of a file URI; the handler that takes one does not look at it.
inline constexpr uint32_t kValueFileUri = 0;

}  // namespace schedsh

#endif
