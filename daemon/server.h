// The daemon's main loop: the listening socket, one watch per client connection, and the signals
// that stop it. One thread runs it and owns the database and the stores.
#ifndef SCHEDD_SERVER_H
#define SCHEDD_SERVER_H

#include <glib.h>

#include <cstdint>
#include <map>
#include <string>

#include "requests.h"

namespace schedd {

class Server {
 public:
  explicit Server(bool standby);
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;
  // Drops every client, stops listening and removes the socket.
  ~Server();

  // Listens on the runtime directory's socket and arms SIGTERM and SIGINT. Returns 0 or the
  // transport's status (CMI_ERR_IN_USE when another daemon serves there).
  uint32_t listen();
  const std::string &socket_path() const { return socket_path_; }
  // Serves until SIGTERM or SIGINT.
  void run();

 private:
  struct Client {
    int fd = -1;
    guint watch = 0;
    bool caller_known = false;
    Caller caller;
  };

  static gboolean on_signal(gpointer self);
  static gboolean on_listen(gint fd, GIOCondition condition, gpointer self);
  static gboolean on_client(gint fd, GIOCondition condition, gpointer self);
  void watch_listener(bool watched);
  void accept_clients();
  // Takes and answers one request; false when the client is to be dropped.
  bool serve_one(Client &client);
  void drop(int fd);

  bool standby_;
  std::string socket_path_;
  int listen_fd_ = -1;
  guint listen_watch_ = 0;
  guint signal_watches_[2] = {};
  GMainLoop *loop_ = nullptr;
  std::map<int, Client> clients_;
};

}  // namespace schedd

#endif
