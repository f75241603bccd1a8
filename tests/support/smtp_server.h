// Test support: one aiosmtpd process on loopback, ours alone (tests/mail/smtp_server.py); its
// spool holds what arrived as N.eml and N.env. The test's target defines SMTP_SERVER_SCRIPT.
#ifndef SCHEDCLI_TESTS_SUPPORT_SMTP_SERVER_H
#define SCHEDCLI_TESTS_SUPPORT_SMTP_SERVER_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

namespace sch::testing {

class SmtpServer {
 public:
  // `arguments` go to the script (--tls ..., --refuse ...); port 0 takes a free one.
  explicit SmtpServer(const std::string &spool, std::vector<std::string> arguments = {}, int port = 0) {
    int to_child[2], from_child[2];
    if (pipe(to_child) != 0 || pipe(from_child) != 0) return;
    arguments.insert(arguments.begin(),
                     {"/usr/bin/python3", SMTP_SERVER_SCRIPT, "--spool", spool, "--port", std::to_string(port)});
    pid_ = fork();
    if (pid_ == 0) {
      dup2(to_child[0], 0);
      dup2(from_child[1], 1);
      for (int fd : {to_child[0], to_child[1], from_child[0], from_child[1]}) close(fd);
      std::vector<char *> argv;
      for (std::string &argument : arguments) argv.push_back(argument.data());
      argv.push_back(nullptr);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(to_child[0]);
    close(from_child[1]);
    input_ = to_child[1];
    FILE *output = fdopen(from_child[0], "r");
    char line[64] = {};
    if (output && std::fgets(line, sizeof line, output)) std::sscanf(line, "READY %d", &port_);
    if (output) std::fclose(output);
  }
  SmtpServer(const SmtpServer &) = delete;
  SmtpServer &operator=(const SmtpServer &) = delete;
  // The script also ends when its standard input closes, should this process end without this.
  ~SmtpServer() {
    if (pid_ <= 0) return;
    close(input_);
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  // 0 when it did not start (Debian package python3-aiosmtpd).
  int port() const { return port_; }

 private:
  pid_t pid_ = -1;
  int input_ = -1;
  int port_ = 0;
};

// A loopback socket listening on a free port, its port in `port`, or -1. Its accept gives up after
// 10 s rather than hang a test; nothing is said to what it accepts.
inline int loopback_listener(int *port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || listen(fd, 1) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
    close(fd);
    return -1;
  }
  timeval patience{.tv_sec = 10, .tv_usec = 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  *port = ntohs(address.sin_port);
  return fd;
}

// A loopback port that nothing listens on (for the moment).
inline int free_port() {
  int port = 0;
  close(loopback_listener(&port));
  return port;
}

}  // namespace sch::testing

#endif
