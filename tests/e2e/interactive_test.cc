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
#include <functional>
#include <string>
#include <thread>
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
  // Each step waits for its text (shown since the last step) and then types its keys: only once the
  // text is shown, since the line editor drops what is typed before it reads. kCtrlC as keys is
  // Ctrl-C once the shell waits for a key: a SIGINT between its prompt and its read is lost (the
  // read goes on waiting), which no one typing meets but a test that types at once does. The text
  // of the first step that did not appear, or "" when every step was played.
  static constexpr const char *kCtrlC = "\x03";
  std::string play(const std::vector<std::pair<std::string, std::string>> &steps) {
    for (const auto &[text, keys] : steps) {
      if (!until([&] {
            std::size_t found = output_.find(text, seen_);
            seen_ = found == std::string::npos ? seen_ : found + text.size();
            return found != std::string::npos;
          })) {
        return text;
      }
      if (keys == kCtrlC && !until([&] { return process_state(pid_) == 'S'; })) return "the shell's read before Ctrl-C";
      type(keys);
    }
    return "";
  }
  // The exit status once the shell has ended; -1 when it has not within 10 s (the destructor kills it).
  int finish() {
    int status = 0;
    if (!until([&] { return waitpid(pid_, &status, WNOHANG) != 0; })) return -1;
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  const std::string &output() const { return output_; }

 private:
  // Gathers what the shell prints (the terminal must not fill up) until `done` holds: false when
  // it does not within 10 s.
  bool until(const std::function<bool()> &done) {
    for (auto deadline = Clock::now() + std::chrono::seconds(10); !done();) {
      if (Clock::now() > deadline) return false;
      pollfd descriptor{fd_, POLLIN, 0};
      char buffer[4096];
      ssize_t count = poll(&descriptor, 1, 100) > 0 ? read(fd_, buffer, sizeof buffer) : 0;
      if (count > 0) output_.append(buffer, static_cast<std::size_t>(count));
      else if (count < 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));   // closed
    }
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
