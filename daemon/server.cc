// The daemon's main loop, its socket and its clients.
#include "server.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <signal.h>
#include <unistd.h>

#include "caller.h"
#include "debug.h"
#include "dispatch.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/sysmgr.h"

namespace schedd {

namespace {

// Beyond this many open connections new ones wait in the socket's backlog until one closes, so
// that a runaway client cannot take every descriptor of the daemon.
constexpr size_t kMaxClients = 64;

// Descriptors are watched by the loop, so none of them may block it; a client that does not
// read its replies is dropped rather than waited for.
void set_nonblocking(int fd) { fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK); }

}  // namespace

Server::Server(bool standby) : standby_(standby), loop_(g_main_loop_new(nullptr, FALSE)) {}

Server::~Server() {
  watch_listener(false);
  for (auto &[fd, client] : clients_) {
    g_source_remove(client.watch);
    close(fd);
  }
  for (guint watch : signal_watches_) {
    if (watch) g_source_remove(watch);
  }
  if (listen_fd_ >= 0) {
    close(listen_fd_);
    unlink(socket_path_.c_str());
  }
  g_main_loop_unref(loop_);
}

uint32_t Server::listen() {
  socket_path_ = std::string(sysmgr_runtime_dir()) + "/" CMI_SOCKET_NAME;
  if (uint32_t status = cmi_server_listen(socket_path_.c_str(), &listen_fd_)) return status;
  set_nonblocking(listen_fd_);
  watch_listener(true);
  signal_watches_[0] = g_unix_signal_add(SIGTERM, on_signal, this);
  signal_watches_[1] = g_unix_signal_add(SIGINT, on_signal, this);
  return 0;
}

void Server::run() { g_main_loop_run(loop_); }

gboolean Server::on_signal(gpointer self) {
  debug(kDebugStartup, "stopping on a signal");
  g_main_loop_quit(static_cast<Server *>(self)->loop_);
  return G_SOURCE_CONTINUE;
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

void Server::accept_clients() {
  int fd = -1;
  while (clients_.size() < kMaxClients && cmi_server_accept(listen_fd_, &fd) == 0) {
    set_nonblocking(fd);
    Client &client = clients_[fd];
    client.fd = fd;
    client.watch = g_unix_fd_add(fd, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR), on_client, this);
  }
  if (clients_.size() >= kMaxClients) {
    debug(kDebugRequest, "%zu clients: new connections wait", clients_.size());
    watch_listener(false);
  }
}

gboolean Server::on_client(gint fd, GIOCondition, gpointer self) {
  auto *server = static_cast<Server *>(self);
  auto found = server->clients_.find(fd);
  if (found != server->clients_.end() && server->serve_one(found->second)) return G_SOURCE_CONTINUE;
  server->drop(fd);
  return G_SOURCE_REMOVE;
}

bool Server::serve_one(Client &client) {
  cmi_request request{};
  uint32_t received = cmi_server_receive(client.fd, &request);
  if (received == CMI_NOTHING_WAITING) return true;
  if (received == CMI_ERR_CLIENT_CLOSED || received == CMI_ERR_SOCKET || received == CMI_ERR_BAD_ARGUMENT) {
    return false;
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
    reply = dispatch(request.service, request.opcode, bytes, client.caller, standby_);
  }
  debug(kDebugRequest, "service %u opcode %u, %u bytes from %s: status 0x%x, %zu bytes back", request.service,
        request.opcode, request.length, client.caller.user.c_str(), reply.status, reply.payload.size());
  cmi_request_release(&request);
  uint32_t sent = cmi_server_reply(client.fd, request.token, reply.status, reply.payload.data(),
                                   static_cast<uint32_t>(reply.payload.size()));
  return sent == 0;
}

void Server::drop(int fd) {
  close(fd);
  clients_.erase(fd);
  if (listen_fd_ >= 0 && clients_.size() < kMaxClients) watch_listener(true);
}

}  // namespace schedd
