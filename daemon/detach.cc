// Leaving the starting command behind once the daemon serves.
#include "detach.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
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
  if (!notify_service_manager("READY=1\nSTATUS=Serving on " + socket_path)) {
    std::fprintf(stderr, "schedd: cannot tell the service manager at %s that it serves\n", std::getenv("NOTIFY_SOCKET"));
  }
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

bool notify_service_manager(const std::string &state) {
  const char *address = std::getenv("NOTIFY_SOCKET");
  if (!address || address[0] == '\0') return true;
  sockaddr_un manager{};
  manager.sun_family = AF_UNIX;
  std::size_t length = std::strlen(address);
  if ((address[0] != '/' && address[0] != '@') || length >= sizeof manager.sun_path) return false;
  std::memcpy(manager.sun_path, address, length);
  if (manager.sun_path[0] == '@') manager.sun_path[0] = '\0';  // an abstract name is not NUL-terminated
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  auto address_length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  ssize_t sent;
  do {
    sent = sendto(fd, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&manager),
                  address_length);
  } while (sent < 0 && errno == EINTR);
  close(fd);
  return sent == static_cast<ssize_t>(state.size());
}

bool stderr_is_journal() {
  const char *stream = std::getenv("JOURNAL_STREAM");
  if (!stream) return false;
  uintmax_t device = 0;
  uintmax_t inode = 0;
  int consumed = 0;
  if (std::sscanf(stream, "%" SCNuMAX ":%" SCNuMAX "%n", &device, &inode, &consumed) != 2 ||
      stream[consumed] != '\0') {
    return false;
  }
  struct stat status;
  if (fstat(STDERR_FILENO, &status) != 0) return false;
  return static_cast<uintmax_t>(status.st_dev) == device && static_cast<uintmax_t>(status.st_ino) == inode;
}

}  // namespace schedd
