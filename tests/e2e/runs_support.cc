// Shared by the tests of job runs on the real clock.
#include "runs_support.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "schedcli/platform/cmi.h"

namespace e2e {

Environment real_clock() { return Environment{{"TZ", "UTC"}}; }

std::time_t next_minute(std::chrono::seconds lead) {
  std::time_t earliest = std::time(nullptr) + lead.count();
  return (earliest + 59) / 60 * 60;
}

std::string start_text(std::time_t instant) {
  tm utc{};
  gmtime_r(&instant, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y:%m:%d:%H:%M", &utc);
  return text;
}

bool wait_until(std::time_t deadline, const std::function<bool()> &done) {
  while (!done()) {
    if (std::time(nullptr) > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return true;
}

std::string socket_name() { return CMI_SOCKET_NAME; }

ShellRun shell_as(const Daemon &daemon, const std::string &user, const std::string &input) {
  std::string base = daemon.directory() + "/shell-" + user;
  write_file(base + ".in", input);
  passwd *account = getpwnam(user.c_str());
  if (!account) return ShellRun{"", "no user " + user, -1};
  uid_t uid = account->pw_uid;
  gid_t gid = account->pw_gid;
  std::string state = daemon.directory() + "/state", run = daemon.directory() + "/run";
  pid_t child = fork();
  if (child == 0) {
    int in = open((base + ".in").c_str(), O_RDONLY);
    int out = open((base + ".out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int err = open((base + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    setenv("TZ", "UTC", 1);
    if (initgroups(user.c_str(), gid) != 0 || setgid(gid) != 0 || setuid(uid) != 0) _exit(99);
    execl(E2E_SCHEDSH, E2E_SCHEDSH, "--state-dir", state.c_str(), "--runtime-dir", run.c_str(),
          static_cast<char *>(nullptr));
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return ShellRun{read_file(base + ".out"), read_file(base + ".err"), WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

}  // namespace e2e
