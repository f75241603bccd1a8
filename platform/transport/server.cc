// The daemon's side of its socket: listen, accept, take requests with their peer, answer.
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "schedcli/platform/cmi.h"
#include "schedcli/platform/sysmgr.h"
#include "transport/channel.h"

namespace {

using cmi::Io;

constexpr uint32_t kDefaultSendTimeoutMs = 5000;
constexpr mode_t kSocketMode = 0660;

std::atomic<uint32_t> send_timeout_ms{kDefaultSendTimeoutMs};

uint32_t server_status(Io io) {
  switch (io) {
    case Io::ok:
      return 0;
    case Io::closed:
      return CMI_ERR_CLIENT_CLOSED;
    case Io::timeout:
      return CMI_ERR_TIMEOUT;
    case Io::too_large:
      return CMI_ERR_TOO_LARGE;
    case Io::nothing_waiting:
      return CMI_NOTHING_WAITING;
    case Io::no_memory:
      return CMI_ERR_NO_MEMORY;
    case Io::failed:
      break;
  }
  return CMI_ERR_SOCKET;
}

uint32_t bind_status(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
      return CMI_ERR_PATH;
    case EACCES:
    case EPERM:
      return CMI_ERR_ACCESS;
    default:
      return CMI_ERR_SOCKET;
  }
}

// Something is bound at the path already: a live server, a socket file left by one that is gone,
// or some other file. Only the stale socket file may be removed.
uint32_t clear_stale_socket(const std::string &path, const sockaddr_un &address, socklen_t address_length) {
  struct stat existing;
  if (lstat(path.c_str(), &existing) != 0) return errno == ENOENT ? 0 : bind_status(errno);
  if (!S_ISSOCK(existing.st_mode)) return CMI_ERR_NOT_SOCKET;
  cmi::Fd probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!probe.valid()) return CMI_ERR_SOCKET;
  if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), address_length) == 0) {
    return CMI_ERR_IN_USE;
  }
  switch (errno) {
    case ECONNREFUSED:
      break;
    case EAGAIN:  // a live server whose backlog is full
      return CMI_ERR_IN_USE;
    default:
      return bind_status(errno);
  }
  if (unlink(path.c_str()) != 0 && errno != ENOENT) return bind_status(errno);
  return 0;
}

uint32_t send_one(int fd, cmi::wire::Kind kind, uint32_t token, uint32_t status, const void *payload,
                  uint32_t length) {
  if (fd < 0 || (!payload && length > 0)) return CMI_ERR_BAD_ARGUMENT;
  cmi::wire::Header header;
  header.kind = kind;
  header.status = status;
  header.token = token;
  return server_status(cmi::send_message(fd, header, payload, length));
}

}  // namespace

extern "C" {

uint32_t cmi_server_listen(const char *socket_path, int *listen_fd) {
  if (!listen_fd) return CMI_ERR_BAD_ARGUMENT;
  *listen_fd = -1;
  std::string path;
  if (socket_path) {
    path = socket_path;
  } else if (const char *runtime = sysmgr_runtime_dir()) {
    path = std::string(runtime) + "/" CMI_SOCKET_NAME;
  }
  sockaddr_un address;
  socklen_t address_length;
  if (!cmi::make_address(path, &address, &address_length)) return CMI_ERR_PATH;

  cmi::Fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!fd.valid()) return CMI_ERR_SOCKET;
  auto *bound_address = reinterpret_cast<const sockaddr *>(&address);
  if (bind(fd.get(), bound_address, address_length) != 0) {
    if (errno != EADDRINUSE) return bind_status(errno);
    if (uint32_t status = clear_stale_socket(path, address, address_length)) return status;
    if (bind(fd.get(), bound_address, address_length) != 0) {
      return errno == EADDRINUSE ? CMI_ERR_IN_USE : bind_status(errno);
    }
  }
  // Nobody can connect before listen(), so the mode is right before the socket is reachable.
  if (chmod(path.c_str(), kSocketMode) != 0 || listen(fd.get(), SOMAXCONN) != 0) {
    uint32_t status = bind_status(errno);
    unlink(path.c_str());
    return status;
  }
  *listen_fd = fd.release();
  return 0;
}

uint32_t cmi_server_accept(int listen_fd, int *connection_fd) {
  if (!connection_fd) return CMI_ERR_BAD_ARGUMENT;
  *connection_fd = -1;
  if (listen_fd < 0) return CMI_ERR_BAD_ARGUMENT;
  int fd;
  do {
    fd = accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
  } while (fd < 0 && (errno == EINTR || errno == ECONNABORTED));
  if (fd < 0) return errno == EAGAIN ? CMI_NOTHING_WAITING : CMI_ERR_SOCKET;
  cmi::prepare_socket(fd, send_timeout_ms.load());
  *connection_fd = fd;
  return 0;
}

uint32_t cmi_server_receive(int connection_fd, cmi_request *request) {
  if (!request) return CMI_ERR_BAD_ARGUMENT;
  *request = cmi_request{};
  if (connection_fd < 0) return CMI_ERR_BAD_ARGUMENT;
  cmi::Received message;
  Io taken = cmi::receive_message(connection_fd, std::nullopt, &message);
  if (taken != Io::ok && taken != Io::too_large) return server_status(taken);

  ucred peer{};
  socklen_t peer_length = sizeof peer;
  if (getsockopt(connection_fd, SOL_SOCKET, SO_PEERCRED, &peer, &peer_length) != 0) {
    std::free(message.payload);
    return CMI_ERR_SOCKET;
  }
  request->peer = cmi_peer{peer.pid, peer.uid, peer.gid};
  if (taken == Io::too_large) return CMI_ERR_TOO_LARGE;

  uint32_t status = message.check;
  if (status == 0 && message.header.kind != cmi::wire::Kind::request) status = CMI_ERR_KIND;
  if (status == 0 || status == CMI_ERR_LENGTH || status == CMI_ERR_KIND) {
    request->service = message.header.service;
    request->opcode = message.header.opcode;
    request->token = message.header.token;
  }
  if (status != 0) {
    std::free(message.payload);
    return status;
  }
  request->length = message.header.payload_length;
  request->payload = message.payload;
  return 0;
}

void cmi_request_release(cmi_request *request) {
  if (!request) return;
  std::free(request->payload);
  request->payload = nullptr;
  request->length = 0;
}

uint32_t cmi_server_reply(int connection_fd, uint32_t token, uint32_t status, const void *payload,
                          uint32_t length) {
  return send_one(connection_fd, cmi::wire::Kind::reply, token, status, payload, length);
}

uint32_t cmi_server_stream_send(int connection_fd, uint32_t token, const void *payload, uint32_t length) {
  return send_one(connection_fd, cmi::wire::Kind::stream_part, token, 0, payload, length);
}

uint32_t cmi_server_stream_end(int connection_fd, uint32_t token, uint32_t status) {
  return send_one(connection_fd, cmi::wire::Kind::stream_end, token, status, nullptr, 0);
}

void cmi_server_send_timeout_set(uint32_t milliseconds) {
  send_timeout_ms.store(milliseconds ? milliseconds : kDefaultSendTimeoutMs);
}

}  // extern "C"
