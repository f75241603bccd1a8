// The shell at a terminal, on a pseudo-terminal: the daemon check at start, job mode's help,
// Ctrl-C in a job, the question before the feature goes off, and the history file.
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "processes.h"

namespace e2e {
namespace {

using Clock = std::chrono::steady_clock;

// schedsh on a pseudo-terminal; what it prints is gathered as it is waited for.
class Terminal {
 public:
  Terminal(const std::string &runtime_dir, const std::string &state_dir, const std::string &home) {
    // libedit never frees the names of the functions a program adds to it (EL_ADDFN), which
    // the leak checker of a sanitizer build would take for the shell's.
    const std::string suppressions = home + "/leaks.supp";
    write_file(suppressions, "leak:wcsdup\n");
    pid_ = forkpty(&fd_, nullptr, nullptr, nullptr);
    if (pid_ == 0) {
      setenv("LSAN_OPTIONS", ("suppressions=" + suppressions).c_str(), 1);
      setenv("HOME", home.c_str(), 1);
      setenv("TERM", "vt100", 1);
      unsetenv("LD_PRELOAD");
      execl(E2E_SCHEDSH, E2E_SCHEDSH, "--runtime-dir", runtime_dir.c_str(), "--state-dir", state_dir.c_str(),
            static_cast<char *>(nullptr));
      _exit(127);
    }
  }
  ~Terminal() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (fd_ >= 0) close(fd_);
  }

  bool started() const { return pid_ > 0; }
  void type(const std::string &keys) { ASSERT_EQ(write(fd_, keys.data(), keys.size()), ssize_t(keys.size())); }
  // Reads until `text` has appeared since the last wait; false after 10 s without it.
  bool wait_for(const std::string &text) {
    auto deadline = Clock::now() + std::chrono::seconds(10);
    while (Clock::now() < deadline) {
      std::size_t found = output_.find(text, seen_);
      if (found != std::string::npos) {
        seen_ = found + text.size();
        return true;
      }
      if (!read_some()) return false;
    }
    return false;
  }
  // Each step waits for its text and then types its keys: only once the text is shown, since the
  // line editor drops what is typed before it reads; kCtrlC as keys is interrupt(). The text of
  // the first step that did not appear, or "" when every step was played.
  static constexpr const char *kCtrlC = "\x03";
  std::string play(const std::vector<std::pair<std::string, std::string>> &steps) {
    for (const auto &[text, keys] : steps) {
      if (!wait_for(text)) return text;
      if (keys == kCtrlC) {
        if (!interrupt()) return "the shell's read before Ctrl-C";
      } else {
        type(keys);
      }
    }
    return "";
  }
  // Ctrl-C once the shell waits for a key: a SIGINT between its prompt and its read is lost (the
  // read goes on waiting), which no one typing meets but a test that types at once does.
  bool interrupt() {
    auto deadline = Clock::now() + std::chrono::seconds(10);
    while (process_state(pid_) != 'S') {
      if (Clock::now() > deadline) return false;
      read_some();
    }
    type("\x03");
    return true;
  }
  // The exit status once the shell has ended; -1 when it has not within 10 s (it is killed).
  int finish() {
    int status = 0;
    auto deadline = Clock::now() + std::chrono::seconds(10);
    while (waitpid(pid_, &status, WNOHANG) == 0) {
      if (Clock::now() > deadline) return -1;   // the destructor kills it
      read_some();   // the terminal must not fill up meanwhile
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  const std::string &output() const { return output_; }

 private:
  // What arrives within 100 ms; false once the terminal is closed.
  bool read_some() {
    pollfd descriptor{fd_, POLLIN, 0};
    if (poll(&descriptor, 1, 100) <= 0) return true;
    char buffer[4096];
    ssize_t count = read(fd_, buffer, sizeof buffer);
    if (count <= 0) return false;
    output_.append(buffer, static_cast<std::size_t>(count));
    return true;
  }

  pid_t pid_ = -1;
  int fd_ = -1;
  std::string output_;
  std::size_t seen_ = 0;
};

TEST(AtATerminal, AMissingDaemonIsNamedWithHowToStartIt) {
  Daemon absent;   // never started: nothing listens
  const std::string dir = absent.directory();
  Terminal terminal(dir + "/run", dir + "/state", dir);
  ASSERT_TRUE(terminal.started());
  EXPECT_EQ(terminal.play({{"% The scheduler daemon does not answer at " + dir + "/run/schedd.sock", ""},
                           {"% Start it with: schedd --runtime-dir " + dir + "/run --state-dir " + dir + "/state", ""},
                           {"schedsh# ", "exit\r"}}),
            "")
      << terminal.output();
  EXPECT_EQ(terminal.finish(), 0);
}

TEST(AtATerminal, JobModeHelpCtrlCTheQuestionAndHistory) {
  Daemon daemon;
  std::string why;
  ASSERT_TRUE(daemon.serve(&why)) << why;
  const std::string home = daemon.directory();
  {
    Terminal terminal(daemon.directory() + "/run", daemon.directory() + "/state", home);
    ASSERT_TRUE(terminal.started());
    const std::string job = "schedsh(config-job, end-job ends)# ", config = "schedsh(config)# ";
    EXPECT_EQ(terminal.play({{"schedsh# ", "configure terminal\r"}, {config, "scheduler job name j1\r"},
                             {"until end-job; '?' for help, Ctrl-C abandons the job", ""}, {job, "?"},
                             {"  Ctrl-C    Abandons the job: nothing typed here is sent", ""}, {job, "echo one\r"},
                             {job, Terminal::kCtrlC},
                             {"% Job j1 abandoned: its commands were not sent (the job stays, empty)", ""},
                             {config, "scheduler aaa-authentication password 0 not-kept\r"},
                             {config, "no feature scheduler\r"},
                             {"Turning the scheduler off deletes its 1 job and 0 schedules. Turn it off? [y/N] ",
                              "n\r"},
                             {"% The scheduler stays on", ""}, {config, "end\r"}, {"schedsh# ", "exit\r"}}),
              "")
        << terminal.output();
    EXPECT_EQ(terminal.output().find("does not answer"), std::string::npos);
    EXPECT_EQ(terminal.finish(), 1);   // the refused disable (and password) failed
  }
  EXPECT_EQ(daemon.shell("show running-config\n").out, "feature scheduler\n\nscheduler job name j1\nend-job\n\n");
  struct stat status {};
  const std::string history = home + "/.schedsh_history";
  ASSERT_EQ(stat(history.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  std::string kept = read_file(history);
  EXPECT_NE(kept.find("configure\\040terminal"), std::string::npos) << kept;
  EXPECT_EQ(kept.find("not-kept"), std::string::npos) << kept;
  EXPECT_EQ(daemon.stop(), 0) << daemon.log();
}

}  // namespace
}  // namespace e2e
