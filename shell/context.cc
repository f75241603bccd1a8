// The parsed-command context of the handlers, filled from a matched command.
#include "context.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace schedsh {

std::string process_user_name() {
  long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 4096);
  struct passwd entry{};
  struct passwd *found = nullptr;
  while (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE &&
         buffer.size() < (1u << 20)) {
    buffer.resize(buffer.size() * 2);
  }
  return found && found->pw_name ? std::string(found->pw_name) : std::string();
}

CommandContext::CommandContext(const SessionInfo &session, bool no_form) {
  context_.no_flag = no_form ? 1 : 0;
  context_.debug = session.debug ? 1 : 0;
  context_.session = session.session;
  // A name longer than the field is cut: the handlers read a NUL-terminated string.
  std::size_t length = std::min(session.user.size(), sizeof context_.user - 1);
  std::memcpy(context_.user, session.user.data(), length);
}

void CommandContext::add(uint32_t kind, uint32_t value_type, void *value, uint32_t address_kind) {
  std::size_t index = context_.param_count;
  params_[index] = sch_cli_param{kind, value_type, value, address_kind};
  context_.params[index] = &params_[index];
  context_.param_count = static_cast<uint8_t>(index + 1);
}

bool CommandContext::add_string(std::string value, uint32_t kind, uint32_t address_kind) {
  std::size_t index = context_.param_count;
  if (index >= params_.size()) return false;
  values_[index] = std::move(value);
  add(kind, SCH_VALUE_STRING, values_[index].data(), address_kind);
  return true;
}

bool CommandContext::add_integer(int32_t value) {
  std::size_t index = context_.param_count;
  if (index >= params_.size()) return false;
  integers_[index] = value;
  add(0, SCH_VALUE_INTEGER, &integers_[index], 0);
  return true;
}

bool CommandContext::add_file_uri(const file_uri &uri) {
  std::size_t index = context_.param_count;
  if (index >= params_.size()) return false;
  uris_[index] = uri;
  add(0, kValueFileUri, &uris_[index], 0);
  return true;
}

}  // namespace schedsh
