// Leaving the starting command behind: it waits until the daemon serves, then returns 0, or
// returns the daemon's failure status once the daemon has said on standard error why it cannot
// start.
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
  // go to /dev/null. In the foreground, a line on standard error says where it serves.
  void ready(const std::string &socket_path);

 private:
  int ready_fd_ = -1;  // the daemon's end of the pipe the starting process waits on
};

}  // namespace schedd

#endif
