// The daemon's main loop, its socket and its clients.
#include "ipc/server.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "core/debug.h"
#include "ipc/caller.h"
#include "schedcli/platform/cmi.h"

namespace schedd {

namespace {

// Parts of a reply stream: well below a message's limit, so that a client's socket takes a part
// as soon as the client has read some.
constexpr size_t kStreamPartSize = 64 * 1024;

// A client whose reply stream has not moved on for this long is dropped: as long as the server's
// send timeout, which a single reply gets.
constexpr guint kStreamStallMs = 5000;

// Descriptors are watched by the loop, so none of them may block it; a client that does not
// read its replies is dropped rather than waited for (after a while, for a reply stream).
void set_nonblocking(int fd) { fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK); }

struct StallTarget {
  Server *server;
  int fd;
};

// The connection's peer as the kernel knows it; false when it cannot say.
bool peer_of(int fd, cmi_peer *peer) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) return false;
  *peer = cmi_peer{credentials.pid, credentials.uid, credentials.gid};
  return true;
}

// A payload cut into parts: well below a message's limit each, so that a client's socket takes a
// part as soon as the client has read some.
PartSource parts_of(std::vector<uint8_t> payload) {
  return [payload = std::move(payload), sent = size_t{0}]() mutable -> std::optional<std::vector<uint8_t>> {
    if (sent >= payload.size()) return std::nullopt;
    size_t part = std::min(kStreamPartSize, payload.size() - sent);
    std::vector<uint8_t> bytes(payload.begin() + static_cast<ptrdiff_t>(sent),
                               payload.begin() + static_cast<ptrdiff_t>(sent + part));
    sent += part;
    return bytes;
  };
}

}  // namespace

Server::Server(EventLoop &loop, RequestHandler handler, ServerLimits limits)
    : loop_(loop), handler_(std::move(handler)), limits_(limits) {}

Server::~Server() {
  watch_listener(false);
  for (auto &[fd, client] : clients_) {
    g_source_remove(client.watch);
    disarm_stall_timer(client);
    disarm_idle_timer(client);
    close(fd);
  }
  if (listen_fd_ >= 0) {
    close(listen_fd_);
    unlink(socket_path_.c_str());
  }
}

uint32_t Server::listen(const std::string &path) {
  socket_path_ = path;
  if (uint32_t status = cmi_server_listen(socket_path_.c_str(), &listen_fd_)) return status;
  set_nonblocking(listen_fd_);
  watch_listener(true);
  return 0;
}

gboolean Server::on_listen(gint, GIOCondition, gpointer self) {
  static_cast<Server *>(self)->accept_clients();
  return G_SOURCE_CONTINUE;
}

void Server::watch_listener(bool watched) {
  if (watched && !listen_watch_) {
    listen_watch_ = g_unix_fd_add(listen_fd_, G_IO_IN, on_listen, this);
  } else if (!watched && listen_watch_) {
    g_source_remove(listen_watch_);
    listen_watch_ = 0;
  }
}

size_t Server::administrator_clients() const {
  return static_cast<size_t>(std::count_if(clients_.begin(), clients_.end(),
                                           [](const auto &entry) { return entry.second.caller.privileged(); }));
}

void Server::accept_clients() {
  int fd = -1;
  while (clients_.size() < limits_.max_clients && cmi_server_accept(listen_fd_, &fd) == 0) {
    cmi_peer peer{};
    if (!peer_of(fd, &peer)) {
      close(fd);
      continue;
    }
    Caller caller = caller_of(peer);
    size_t others = clients_.size() - administrator_clients();
    if (!caller.privileged() && others + limits_.administrator_reserve >= limits_.max_clients) {
      debug(kDebugRequest, "%zu connections of users: %s refused, the rest is kept for root", others,
            caller.user.c_str());
      close(fd);
      continue;
    }
    set_nonblocking(fd);
    Client &client = clients_[fd];
    client.fd = fd;
    client.caller = std::move(caller);
    client.caller_known = true;
    watch_requests(client);
  }
  if (clients_.size() >= limits_.max_clients) {
    debug(kDebugRequest, "%zu clients: new connections wait", clients_.size());
    watch_listener(false);
  }
}

void Server::watch_requests(Client &client) {
  client.watch = g_unix_fd_add(client.fd, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR), on_client, this);
  arm_idle_timer(client);
}

gboolean Server::on_client(gint fd, GIOCondition, gpointer self) {
  auto *server = static_cast<Server *>(self);
  auto found = server->clients_.find(fd);
  if (found == server->clients_.end()) return G_SOURCE_REMOVE;
  Client &client = found->second;
  switch (server->serve_one(client)) {
    case Served::next:
      server->arm_idle_timer(client);  // its time starts again with each request answered
      return G_SOURCE_CONTINUE;
    case Served::streaming:
      disarm_idle_timer(client);
      // No further request is taken from this client until its stream has gone out.
      client.watch =
          g_unix_fd_add(fd, static_cast<GIOCondition>(G_IO_OUT | G_IO_HUP | G_IO_ERR), on_client_writable, server);
      server->arm_stall_timer(client);
      return G_SOURCE_REMOVE;
    case Served::drop:
      break;
  }
  server->drop(fd);
  return G_SOURCE_REMOVE;
}

gboolean Server::on_client_writable(gint fd, GIOCondition condition, gpointer self) {
  auto *server = static_cast<Server *>(self);
  auto found = server->clients_.find(fd);
  if (found == server->clients_.end()) return G_SOURCE_REMOVE;
  Client &client = found->second;
  Sent sent = condition & (G_IO_HUP | G_IO_ERR) ? Sent::failed : send_stream(client);
  switch (sent) {
    case Sent::waiting:
      server->arm_stall_timer(client);  // the client read some: it gets its time again
      return G_SOURCE_CONTINUE;
    case Sent::done:
      disarm_stall_timer(client);
      server->watch_requests(client);
      return G_SOURCE_REMOVE;
    case Sent::failed:
      break;
  }
  debug(kDebugRequest, "a client left before its reply stream was sent");
  server->drop(fd);
  return G_SOURCE_REMOVE;
}

gboolean Server::on_stream_stalled(gpointer target) {
  auto [server, fd] = *static_cast<StallTarget *>(target);
  auto found = server->clients_.find(fd);
  if (found == server->clients_.end()) return G_SOURCE_REMOVE;
  debug(kDebugRequest, "a client stopped reading its reply stream: dropped");
  found->second.stall_timer = 0;  // this very source, removed by the return below
  g_source_remove(found->second.watch);
  server->drop(fd);
  return G_SOURCE_REMOVE;
}

void Server::arm_stall_timer(Client &client) {
  disarm_stall_timer(client);
  client.stall_timer =
      g_timeout_add_full(G_PRIORITY_DEFAULT, kStreamStallMs, on_stream_stalled, new StallTarget{this, client.fd},
                         [](gpointer target) { delete static_cast<StallTarget *>(target); });
}

void Server::disarm_stall_timer(Client &client) {
  if (client.stall_timer) g_source_remove(client.stall_timer);
  client.stall_timer = 0;
}

gboolean Server::on_idle(gpointer target) {
  auto [server, fd] = *static_cast<StallTarget *>(target);
  auto found = server->clients_.find(fd);
  if (found == server->clients_.end()) return G_SOURCE_REMOVE;
  debug(kDebugRequest, "a connection of %s sent no request for %u ms: closed", found->second.caller.user.c_str(),
        server->limits_.idle_ms);
  found->second.idle_timer = 0;  // this very source, removed by the return below
  g_source_remove(found->second.watch);
  server->drop(fd);
  return G_SOURCE_REMOVE;
}

void Server::arm_idle_timer(Client &client) {
  disarm_idle_timer(client);
  client.idle_timer =
      g_timeout_add_full(G_PRIORITY_DEFAULT, limits_.idle_ms, on_idle, new StallTarget{this, client.fd},
                         [](gpointer target) { delete static_cast<StallTarget *>(target); });
}

void Server::disarm_idle_timer(Client &client) {
  if (client.idle_timer) g_source_remove(client.idle_timer);
  client.idle_timer = 0;
}

Server::Served Server::serve_one(Client &client) {
  cmi_request request{};
  uint32_t received = cmi_server_receive(client.fd, &request);
  if (received == CMI_NOTHING_WAITING) return Served::next;
  if (received == CMI_ERR_CLIENT_CLOSED || received == CMI_ERR_SOCKET || received == CMI_ERR_BAD_ARGUMENT) {
    return Served::drop;
  }
  // Peer credentials are those of the process that connected; they hold for the connection.
  if (!client.caller_known) {
    client.caller = caller_of(request.peer);
    client.caller_known = true;
  }
  Reply reply;
  if (received != 0) {
    // A message the transport refused: answered with its reason (under token 0 when the header
    // could not be read), and the connection goes on.
    reply = status_reply(received);
  } else {
    RequestBytes bytes(static_cast<const uint8_t *>(request.payload), request.length);
    reply = handler_(request.service, request.opcode, bytes, client.caller);
  }
  debug(kDebugRequest, "service %u opcode %u, %u bytes from %s: status 0x%x, %zu bytes back%s", request.service,
        request.opcode, request.length, client.caller.user.c_str(), reply.status, reply.payload.size(),
        reply.streamed ? " streamed" : "");
  cmi_request_release(&request);
  if (reply.streamed) {
    PartSource parts = reply.parts ? std::move(reply.parts) : parts_of(std::move(reply.payload));
    client.stream = Stream{request.token, reply.status, std::move(parts), std::nullopt};
    switch (send_stream(client)) {
      case Sent::done:
        return Served::next;
      case Sent::waiting:
        return Served::streaming;
      case Sent::failed:
        return Served::drop;
    }
  }
  uint32_t sent = cmi_server_reply(client.fd, request.token, reply.status, reply.payload.data(),
                                   static_cast<uint32_t>(reply.payload.size()));
  return sent == 0 ? Served::next : Served::drop;
}

Server::Sent Server::send_stream(Client &client) {
  Stream &stream = *client.stream;
  // The socket is non-blocking: a part it has no room for waits for the client to read.
  for (;;) {
    if (!stream.pending) stream.pending = stream.parts();
    if (!stream.pending) break;
    uint32_t status = cmi_server_stream_send(client.fd, stream.token, stream.pending->data(),
                                             static_cast<uint32_t>(stream.pending->size()));
    if (status == CMI_ERR_TIMEOUT) return Sent::waiting;
    if (status != 0) return Sent::failed;
    stream.pending.reset();
  }
  uint32_t status = cmi_server_stream_end(client.fd, stream.token, stream.status);
  if (status == CMI_ERR_TIMEOUT) return Sent::waiting;
  client.stream.reset();
  return status == 0 ? Sent::done : Sent::failed;
}

void Server::drop(int fd) {
  if (auto found = clients_.find(fd); found != clients_.end()) {
    disarm_stall_timer(found->second);
    disarm_idle_timer(found->second);
  }
  close(fd);
  clients_.erase(fd);
  if (listen_fd_ >= 0 && clients_.size() < limits_.max_clients) watch_listener(true);
}

}  // namespace schedd
