// What every command handler shares: the request image it sends, the reply it gets back, the
// call to the daemon, and the common error lines.
#ifndef SCHEDCLI_LIB_CLI_REQUEST_FRAME_H
#define SCHEDCLI_LIB_CLI_REQUEST_FRAME_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "schedcli/cli.h"
#include "schedcli/wire.h"

namespace sch::cli {

// A request's wire image: taken with malloc at the record's full size and zeroed, released with
// free when it goes. Check it with `ok()` before use: allocation may fail.
class RequestImage {
 public:
  explicit RequestImage(size_t size) : bytes_(static_cast<uint8_t *>(std::malloc(size))), size_(size) {
    if (bytes_) std::memset(bytes_, 0, size);
  }
  ~RequestImage() { std::free(bytes_); }
  RequestImage(const RequestImage &) = delete;
  RequestImage &operator=(const RequestImage &) = delete;

  bool ok() const { return bytes_ != nullptr; }
  uint8_t *data() const { return bytes_; }
  uint32_t size() const { return static_cast<uint32_t>(size_); }
  // Writes the big-endian image of `native` at the image's start.
  void encode(sch_wire_record kind, const void *native) { sch_wire_encode(kind, native, bytes_); }

 private:
  uint8_t *bytes_;
  size_t size_;
};

// A reply as the daemon sent it; freed when it goes or on release().
struct Reply {
  void *data = nullptr;
  uint32_t length = 0;

  Reply() = default;
  Reply(const Reply &) = delete;
  Reply &operator=(const Reply &) = delete;
  ~Reply() { release(); }
  void release() {
    std::free(data);
    data = nullptr;
    length = 0;
  }
  const uint8_t *bytes() const { return static_cast<const uint8_t *>(data); }
};

// Who sends: the session and the two blocks cmi_req_resp passes through.
struct Caller {
  cmi_session *session;
  const char *user;
  const void *identity;
};

inline Caller caller_of(const sch_cli_context *context) {
  return {context->session, context->user, context->identity};
}

// Sends the `size` bytes at `request` and waits for the answer; `*reply` holds whatever came back
// (also after a failure). Returns 0 or the platform's code.
uint32_t exchange(const Caller &caller, uint32_t service, uint32_t opcode, const void *request, uint32_t size,
                  Reply *reply);

inline uint32_t exchange(const Caller &caller, uint32_t service, uint32_t opcode, const RequestImage &request,
                         Reply *reply) {
  return exchange(caller, service, opcode, request.data(), request.size(), reply);
}

// Sends a configuration request (service 5950, opcode 3) and drops the reply: the configuration
// service's answer carries nothing a handler reads.
uint32_t send_config(const Caller &caller, const RequestImage &request);

// "<text>: <syserr2str(code)>\n" to standard error.
void print_error(const char *text, uint32_t code);

// The rejection line of the name checker, to standard error.
void print_invalid_name();

// The credential gate for the context's user: true to go on, false after its "Error" line.
bool pass_gate(sch_cli_context *context);

// The opening of a create or delete of a `kind` ("job", "schedule"): parameter 1 traced, held to
// the name rule, then the gate. Stores the name and returns true to go on; false after the
// refusal's line.
bool admit_named(sch_cli_context *context, const char *kind, const char **name);

// The string value of parameter `index` (0 = parameter 1), or nullptr when the parser gave none.
const char *param_string(const sch_cli_context *context, int index);

// A string for traces and "%s" fields: an absent one reads as empty.
inline const char *or_empty(const char *text) { return text ? text : ""; }

// Writes `value` into a fixed field as "%s" would: at most size - 1 characters, NUL-terminated.
template <size_t N>
void put_string(char (&field)[N], const char *value) {
  std::snprintf(field, N, "%s", or_empty(value));
}

// Copies `value` into a zeroed fixed field as strncpy would: all N bytes may be used, so the
// field is not terminated when the value fills it.
template <size_t N>
void put_padded(char (&field)[N], const char *value) {
  if (value) std::memcpy(field, value, strnlen(value, N));
}

// Length of a received fixed-width name: it may fill its field without a terminator.
template <size_t N>
int name_length(const char (&field)[N]) {
  return static_cast<int>(strnlen(field, N));
}

}  // namespace sch::cli

#endif
