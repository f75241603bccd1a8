// The daemon's socket server: the listening socket and one watch per client connection, on the
// daemon's loop. Each request goes to the handler it is given; replies and reply streams go back.
#ifndef SCHEDD_IPC_SERVER_H
#define SCHEDD_IPC_SERVER_H

#include <glib.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/event_loop.h"
#include "ipc/reply.h"

namespace schedd {

// Answers one request; never fails (a request that does not hold up gets its status).
using RequestHandler =
    std::function<Reply(uint32_t service, uint32_t opcode, RequestBytes request, const Caller &caller)>;

// How many clients are served at once and how long one may keep its connection without a request.
struct ServerLimits {
  // Beyond this many connections new ones wait in the socket's backlog until one closes, so that a
  // runaway client cannot take every descriptor of the daemon.
  size_t max_clients = 64;
  // Of them, this many are kept for the administrator (root): a connection of another user beyond
  // max_clients - administrator_reserve of theirs is closed at once, so root always gets in.
  size_t administrator_reserve = 8;
  // A connection that has nothing being answered and sends no request for this long is closed.
  // Messages are whole packets (SOCK_SEQPACKET): a request arrives complete or not at all, so a
  // connection that has sent part of one is a silent connection and goes after the same time.
  guint idle_ms = 10000;
};

class Server {
 public:
  Server(EventLoop &loop, RequestHandler handler, ServerLimits limits = {});
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;
  // Drops every client, stops listening and removes the socket.
  ~Server();

  // Listens on the socket at `path`. Returns 0 or the transport's status (CMI_ERR_IN_USE when
  // another daemon serves there).
  uint32_t listen(const std::string &path);
  const std::string &socket_path() const { return socket_path_; }

 private:
  // A streamed reply still going out: the client's socket takes it as the client reads.
  struct Stream {
    uint32_t token = 0;
    uint32_t status = 0;
    PartSource parts;
    std::optional<std::vector<uint8_t>> pending;  // taken from the source, not yet sent
  };

  struct Client {
    int fd = -1;
    guint watch = 0;  // for requests, or for room to send while a stream is out
    guint stall_timer = 0;  // while a stream is out: drops a client that stopped reading
    guint idle_timer = 0;   // while waiting for a request: drops a client that sends none
    bool caller_known = false;
    Caller caller;
    std::optional<Stream> stream;
  };

  enum class Served { next, streaming, drop };
  enum class Sent { done, waiting, failed };

  static gboolean on_listen(gint fd, GIOCondition condition, gpointer self);
  static gboolean on_client(gint fd, GIOCondition condition, gpointer self);
  static gboolean on_client_writable(gint fd, GIOCondition condition, gpointer self);
  static gboolean on_stream_stalled(gpointer target);
  static gboolean on_idle(gpointer target);
  void arm_stall_timer(Client &client);
  static void disarm_stall_timer(Client &client);
  void arm_idle_timer(Client &client);
  static void disarm_idle_timer(Client &client);
  // Administrator connections, and those of everyone else.
  size_t administrator_clients() const;
  void watch_listener(bool watched);
  void accept_clients();
  void watch_requests(Client &client);
  // Takes and answers one request.
  Served serve_one(Client &client);
  // Sends what the socket takes of the client's stream.
  static Sent send_stream(Client &client);
  void drop(int fd);

  [[maybe_unused]] EventLoop &loop_;
  RequestHandler handler_;
  const ServerLimits limits_;
  std::string socket_path_;
  int listen_fd_ = -1;
  guint listen_watch_ = 0;
  std::map<int, Client> clients_;
};

}  // namespace schedd

#endif
