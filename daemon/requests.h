// What a request handler is given and gives back, the handlers themselves, and the checks every
// handler makes on the fixed text fields of a request.
#ifndef SCHEDD_REQUESTS_H
#define SCHEDD_REQUESTS_H

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/request.h"
#include "schedcli/status.h"

namespace schedd {

// The process at the other end of a connection, as the kernel names it.
struct Caller {
  uint32_t uid = 0;
  std::string user;  // the account's name, or the uid in decimal when the account has none
  bool privileged() const { return uid == 0; }
};

// A reply: the status the client's call returns and the payload it hands over (often none).
// A streamed reply goes out as a reply stream in parts, closed with the status; its payload may
// be larger than one message can carry.
struct Reply {
  uint32_t status = 0;
  std::vector<uint8_t> payload;
  bool streamed = false;
};

inline Reply status_reply(uint32_t status) { return Reply{status, {}}; }

// A request record as received: header included, integers big-endian. The dispatcher has checked
// that its size is the one its type calls for before a handler sees it.
using RequestBytes = std::span<const uint8_t>;

// Jobs (types 0, 1, 2).
Reply create_job(RequestBytes request, const Caller &caller);
Reply define_job(RequestBytes request, const Caller &caller);
Reply delete_job(RequestBytes request, const Caller &caller);
// Schedules (types 3, 4, 5).
Reply create_schedule(RequestBytes request, const Caller &caller);
Reply modify_schedule(RequestBytes request, const Caller &caller);
Reply delete_schedule(RequestBytes request, const Caller &caller);
// Email addresses of a schedule (type 20).
Reply schedule_email(RequestBytes request, const Caller &caller);
// Credentials (types 22 and 23).
Reply user_credential(RequestBytes request, const Caller &caller);
Reply user_credential_list(RequestBytes request, const Caller &caller);
// Display cursors (types 6 and 7).
Reply schedule_display(RequestBytes request, const Caller &caller);
Reply job_display(RequestBytes request, const Caller &caller);
// The log file: size, name, clear (types 9, 10, 11) and its size for display (type 12).
Reply log_file_size(RequestBytes request, const Caller &caller);
Reply log_file_name(RequestBytes request, const Caller &caller);
Reply log_file_clear(RequestBytes request, const Caller &caller);
Reply log_file_config(RequestBytes request, const Caller &caller);
// The email transport (types 13 to 18) and its display (type 19).
Reply email_transport(RequestBytes request, const Caller &caller);
Reply email_transport_config(RequestBytes request, const Caller &caller);

// Requests that are not request records, each with its own payload. `standby` as for dispatch.
// The feature manager's request (FM_SERVICE): the opcode is the action.
Reply feature_request(uint32_t opcode, std::span<const uint8_t> payload, bool standby);
// The configuration framework's requests (ACFG_SERVICE).
Reply configuration_request(uint32_t opcode, std::span<const uint8_t> payload, bool standby);

// A text field holds its terminator within its width.
template <size_t N>
bool terminated(const char (&field)[N]) {
  return std::memchr(field, '\0', N) != nullptr;
}

// A terminated field with at least one character.
template <size_t N>
bool holds_text(const char (&field)[N]) {
  return terminated(field) && field[0] != '\0';
}

// The field's text, which need not be terminated when it fills the field.
template <size_t N>
std::string_view field_text(const char (&field)[N]) {
  return std::string_view(field, strnlen(field, N));
}

// Copies at most N - 1 characters of `text` into the field, the rest zero.
template <size_t N>
void copy_text(char (&field)[N], std::string_view text) {
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), text.size() < N ? text.size() : N - 1);
}

// The rule for names of new jobs and schedules: a letter or digit, then letters, digits, '_'
// and '-'. Names become command words in the configuration text, so nothing else may get in.
bool valid_new_name(std::string_view name);

}  // namespace schedd

#endif
