// Socket plumbing shared by the client and the server side of the daemon's socket.
#ifndef SCHEDPLAT_TRANSPORT_CHANNEL_H
#define SCHEDPLAT_TRANSPORT_CHANNEL_H

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "transport/wire.h"

namespace cmi {

// Owns one descriptor.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd &&other) noexcept : fd_(other.release()) {}
  Fd &operator=(Fd &&other) noexcept;
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  ~Fd() { reset(); }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release();
  void reset();

 private:
  int fd_ = -1;
};

using Clock = std::chrono::steady_clock;
// No deadline: wait as long as the descriptor does.
using Deadline = std::optional<Clock::time_point>;

// What a socket operation came to; each side turns it into its own status words.
enum class Io {
  ok,
  closed,           // the peer hung up
  timeout,          // the deadline or the send timeout passed
  too_large,        // a message above CMI_MAX_MESSAGE, or one the socket would not take
  nothing_waiting,  // non-blocking descriptor, nothing to take
  no_memory,
  failed,           // any other system error
};

struct Received {
  wire::Header header;
  uint32_t check = 0;         // the codec's verdict on the header: 0 or a CMI_ERR_* code
  void *payload = nullptr;    // malloc'ed, the receiver's; NULL when empty or refused
};

// Fills a socket address for `path`; false when the path is empty or too long for one.
bool make_address(const std::string &path, sockaddr_un *address, socklen_t *length);
// Sizes the buffers for the largest message and bounds blocking sends (0: unbounded).
void prepare_socket(int fd, uint32_t send_timeout_ms);
// Sends one message: the header (its payload length is taken from `length`) and the payload.
Io send_message(int fd, wire::Header header, const void *payload, uint32_t length);
// Takes one message. Io::ok means a message was consumed; `out->check` says whether its header
// holds up. Anything refused is consumed too, so the next message can be read.
Io receive_message(int fd, const Deadline &deadline, Received *out);

}  // namespace cmi

#endif
