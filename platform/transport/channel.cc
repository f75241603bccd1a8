// Socket plumbing shared by the client and the server side of the daemon's socket.
#include "transport/channel.h"

#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace cmi {

Fd &Fd::operator=(Fd &&other) noexcept {
  if (this != &other) {
    reset();
    fd_ = other.release();
  }
  return *this;
}

int Fd::release() {
  int fd = fd_;
  fd_ = -1;
  return fd;
}

void Fd::reset() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

namespace {

// The kernel doubles the value and needs room for its own accounting of the packet.
constexpr int kBufferBytes = static_cast<int>(CMI_MAX_MESSAGE + 4096);

Io from_errno(int error) {
  switch (error) {
    case EPIPE:
    case ECONNRESET:
    case ENOTCONN:
      return Io::closed;
    case EAGAIN:
      return Io::nothing_waiting;
    case EMSGSIZE:
    case ENOBUFS:
      return Io::too_large;
    case ENOMEM:
      return Io::no_memory;
    default:
      return Io::failed;
  }
}

// Waits until the descriptor is readable or the deadline passes.
Io wait_readable(int fd, const Deadline &deadline) {
  if (!deadline) return Io::ok;
  for (;;) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
    if (left < 0) left = 0;
    pollfd watch{fd, POLLIN, 0};
    int ready = poll(&watch, 1, static_cast<int>(left));
    if (ready > 0) return Io::ok;
    if (ready == 0) return Io::timeout;
    if (errno != EINTR) return from_errno(errno);
  }
}

bool peer_hung_up(int fd) {
  pollfd watch{fd, POLLRDHUP, 0};
  return poll(&watch, 1, 0) > 0 && (watch.revents & (POLLHUP | POLLRDHUP)) != 0;
}

// Drops the next packet whatever its size: a short read of a SEQPACKET discards the rest.
void discard_packet(int fd) {
  uint8_t sink;
  while (recv(fd, &sink, sizeof sink, MSG_DONTWAIT) < 0 && errno == EINTR) {
  }
}

}  // namespace

bool make_address(const std::string &path, sockaddr_un *address, socklen_t *length) {
  std::memset(address, 0, sizeof *address);
  if (path.empty() || path.size() >= sizeof address->sun_path) return false;
  address->sun_family = AF_UNIX;
  std::memcpy(address->sun_path, path.c_str(), path.size() + 1);
  *length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
  return true;
}

void prepare_socket(int fd, uint32_t send_timeout_ms) {
  // Failures leave the kernel's defaults: big messages may then be refused, which is reported.
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kBufferBytes, sizeof kBufferBytes);
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof kBufferBytes);
  timeval timeout{static_cast<time_t>(send_timeout_ms / 1000),
                  static_cast<suseconds_t>(send_timeout_ms % 1000 * 1000)};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

Io send_message(int fd, wire::Header header, const void *payload, uint32_t length) {
  if (length > CMI_MAX_PAYLOAD) return Io::too_large;
  header.payload_length = length;
  uint8_t bytes[CMI_HEADER_SIZE];
  wire::encode(header, bytes);
  iovec parts[2] = {{bytes, sizeof bytes}, {const_cast<void *>(payload), length}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = length > 0 ? 2 : 1;
  for (;;) {
    if (sendmsg(fd, &message, MSG_NOSIGNAL) >= 0) return Io::ok;
    if (errno == EINTR) continue;
    // A blocking socket says EAGAIN when its send timeout runs out.
    if (errno == EAGAIN) return Io::timeout;
    return from_errno(errno);
  }
}

Io receive_message(int fd, const Deadline &deadline, Received *out) {
  *out = Received{};
  Io waited = wait_readable(fd, deadline);
  if (waited != Io::ok) return waited;

  // The packet's true size first, so that the payload buffer is allocated to fit.
  ssize_t size;
  uint8_t probe;
  do {
    size = recv(fd, &probe, sizeof probe, MSG_PEEK | MSG_TRUNC);
  } while (size < 0 && errno == EINTR);
  if (size < 0) return from_errno(errno);
  if (size == 0) {
    // Either the peer hung up or it sent an empty packet; only the first leaves a hangup behind.
    discard_packet(fd);
    if (peer_hung_up(fd)) return Io::closed;
    out->check = CMI_ERR_SHORT;
    return Io::ok;
  }
  if (static_cast<size_t>(size) > CMI_MAX_MESSAGE) {
    discard_packet(fd);
    return Io::too_large;
  }

  uint8_t header[CMI_HEADER_SIZE] = {};
  size_t payload_size = static_cast<size_t>(size) > sizeof header ? size - sizeof header : 0;
  void *payload = nullptr;
  if (payload_size > 0 && (payload = std::malloc(payload_size)) == nullptr) {
    discard_packet(fd);
    return Io::no_memory;
  }
  iovec parts[2] = {{header, sizeof header}, {payload, payload_size}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = payload_size > 0 ? 2 : 1;
  ssize_t got;
  do {
    got = recvmsg(fd, &message, 0);
  } while (got < 0 && errno == EINTR);
  if (got != size) {
    std::free(payload);
    return got < 0 ? from_errno(errno) : Io::failed;
  }
  out->check = wire::decode(std::span<const uint8_t>(header, sizeof header), static_cast<size_t>(size),
                            &out->header);
  if (out->check == 0 && payload_size > 0) {
    out->payload = payload;
  } else {
    std::free(payload);
  }
  return Io::ok;
}

}  // namespace cmi
