// Leaving the starting command behind once the daemon serves.
#include "detach.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace schedd {

namespace {

constexpr char kReady = 'R';

// The starting process: the daemon's word, or its exit status when it ended without one.
[[noreturn]] void wait_for_daemon(pid_t daemon, int ready_fd) {
  char word = 0;
  ssize_t got;
  do {
    got = read(ready_fd, &word, 1);
  } while (got < 0 && errno == EINTR);
  if (got == 1 && word == kReady) _exit(0);
  int status = 0;
  while (waitpid(daemon, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) _exit(WEXITSTATUS(status) != 0 ? WEXITSTATUS(status) : 1);
  std::fprintf(stderr, "schedd: the daemon died while starting (signal %d)\n",
               WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  _exit(1);
}

}  // namespace

Detacher::~Detacher() {
  if (ready_fd_ >= 0) close(ready_fd_);
}

bool Detacher::detach() {
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) {
    std::fprintf(stderr, "schedd: cannot detach: %s\n", std::strerror(errno));
    return false;
  }
  pid_t daemon = fork();
  if (daemon < 0) {
    std::fprintf(stderr, "schedd: cannot detach: %s\n", std::strerror(errno));
    close(pipe_fds[0]);
    close(pipe_fds[1]);
    return false;
  }
  if (daemon > 0) {
    close(pipe_fds[1]);
    wait_for_daemon(daemon, pipe_fds[0]);
  }
  close(pipe_fds[0]);
  ready_fd_ = pipe_fds[1];
  setsid();
  // Holds no directory busy; the directories it was given are absolute by now.
  if (chdir("/") != 0) std::fprintf(stderr, "schedd: cannot change to /: %s\n", std::strerror(errno));
  return true;
}

void Detacher::ready(const std::string &socket_path) {
  if (ready_fd_ < 0) {
    std::fprintf(stderr, "schedd: serving on %s\n", socket_path.c_str());
    return;
  }
  int null_fd = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (null_fd >= 0) {
    dup2(null_fd, STDIN_FILENO);
    dup2(null_fd, STDOUT_FILENO);
    dup2(null_fd, STDERR_FILENO);
    close(null_fd);
  }
  ssize_t written;
  do {
    written = write(ready_fd_, &kReady, 1);
  } while (written < 0 && errno == EINTR);
  close(ready_fd_);
  ready_fd_ = -1;
}

}  // namespace schedd
