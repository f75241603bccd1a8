// What a request handler is given and gives back: the caller, the request's bytes and the reply.
#ifndef SCHEDD_IPC_REPLY_H
#define SCHEDD_IPC_REPLY_H

#include <unistd.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "config/fields.h"

namespace schedd {

// The process at the other end of a connection, as the kernel names it.
struct Caller {
  uint32_t uid = 0;
  std::string user;  // the account's name, or the uid in decimal when the account has none
  // Root administers the scheduler. A daemon that runs as another account (a developer's) serves
  // that account as its administrator too: nobody else can reach its socket's state.
  bool privileged() const { return uid == 0 || uid == geteuid(); }
};

// The next message of a reply stream, or nothing when the stream is complete.
using PartSource = std::function<std::optional<std::vector<uint8_t>>()>;

// A reply: the status the client's call returns and the payload it hands over (often none).
// A streamed reply goes out as a reply stream closed with the status: either its payload cut into
// parts, or, when `parts` is set, each message that source gives (a log entry's parts, say), so
// that it may be larger than memory should hold at once.
struct Reply {
  uint32_t status = 0;
  std::vector<uint8_t> payload;
  bool streamed = false;
  PartSource parts;
};

inline Reply status_reply(uint32_t status) { return Reply{status, {}, false, {}}; }

// A request record as received: header included, integers big-endian. The dispatcher has checked
// that its size is the one its type calls for before a handler sees it.
using RequestBytes = std::span<const uint8_t>;

}  // namespace schedd

#endif
