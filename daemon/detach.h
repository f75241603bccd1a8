// Leaving the starting command behind: it waits until the daemon serves, then returns 0, or
// returns the daemon's failure status once the daemon has said on standard error why it cannot
// start. And telling a service manager (systemd) the same, on its notification socket.
#ifndef SCHEDD_DETACH_H
#define SCHEDD_DETACH_H

#include <string>

namespace schedd {

class Detacher {
 public:
  Detacher() = default;
  Detacher(const Detacher &) = delete;
  Detacher &operator=(const Detacher &) = delete;
  ~Detacher();

  // Forks. The starting process stays here until the daemon is ready or gone, and exits; only
  // the daemon returns, in a session of its own. False when the fork failed (reported).
  bool detach();
  // Start-up is done: the starting command returns 0, and a detached daemon's standard streams
  // go to /dev/null. In the foreground, a line on standard error says where it serves. A service
  // manager that asked for notification hears READY=1.
  void ready(const std::string &socket_path);

 private:
  int ready_fd_ = -1;  // the daemon's end of the pipe the starting process waits on
};

// Sends `state` ("READY=1", "STOPPING=1", ...; lines separated by newlines) to the service
// manager at $NOTIFY_SOCKET: a path, or an abstract socket name written with a leading '@'.
// True when sent or when no manager asked (no variable); false when the address is unusable or
// the datagram could not be sent.
bool notify_service_manager(const std::string &state);

// True when standard error is the systemd journal ($JOURNAL_STREAM holds its "device:inode"),
// which receives every syslog line already.
bool stderr_is_journal();

}  // namespace schedd

#endif
