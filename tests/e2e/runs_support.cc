// Shared by the tests of job runs on a shifted clock.
#include "runs_support.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "schedcli/platform/cmi.h"

namespace e2e {

ShiftedClock::ShiftedClock(std::chrono::seconds lead) {
  // A second more: the real clock is part way through its current second.
  std::time_t real = std::time(nullptr) + 1;
  shift_ = (60 - (real + lead.count()) % 60) % 60;
  minute_ = real + shift_ + lead.count();
}

std::time_t ShiftedClock::now() const { return std::time(nullptr) + shift_; }

Environment ShiftedClock::environment(Environment base) const {
  std::string clock = std::string(E2E_FAKETIME_LIBRARY) + ":" + E2E_KEEP_CLOCK_LIBRARY;
  std::string more = base["LD_PRELOAD"];
  base["TZ"] = "UTC";
  base["FAKETIME"] = "+" + std::to_string(shift_);
  base["FAKETIME_FMT"] = "";
  base["DONT_FAKE_MONOTONIC"] = "1";
  base["FAKETIME_DONT_FAKE_MONOTONIC"] = "1";
  base["KEEP_CLOCK_PRELOAD"] = clock;
  preload(base, more.empty() ? clock : clock + ":" + more);
  return base;
}

void ShiftedClock::sleep_until(std::time_t instant) const {
  std::this_thread::sleep_until(std::chrono::system_clock::from_time_t(instant - shift_));
}

bool ShiftedClock::wait_until(std::time_t deadline, const std::function<bool()> &done) const {
  while (!done()) {
    if (now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return true;
}

std::string start_text(std::time_t instant) {
  tm utc{};
  gmtime_r(&instant, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y:%m:%d:%H:%M", &utc);
  return text;
}

std::string socket_name() { return CMI_SOCKET_NAME; }

ShellRun shell_as(const Daemon &daemon, const std::string &user, const std::string &input,
                  const Environment &environment) {
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
    for (const auto &[name, value] : environment) {
      if (value.empty()) {
        unsetenv(name.c_str());
      } else {
        setenv(name.c_str(), value.c_str(), 1);
      }
    }
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
