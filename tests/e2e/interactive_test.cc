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
  // Types a line once `prompt` is shown: the line editor drops what is typed before it reads.
  bool line(const std::string &prompt, const std::string &text) {
    if (!wait_for(prompt)) return false;
    type(text + "\r");
    return true;
  }
  // Ctrl-C once the shell waits for a key: a SIGINT between its prompt and its read is lost (the
  // read goes on waiting), which no one typing meets but a test that types at once does.
  bool interrupt() {
    auto deadline = Clock::now() + std::chrono::seconds(10);
    for (;;) {
      std::string stat = read_file("/proc/" + std::to_string(pid_) + "/stat");
      std::size_t close = stat.rfind(')');
      if (close != std::string::npos && close + 2 < stat.size() && stat[close + 2] == 'S') break;
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
  Terminal terminal(absent.directory() + "/run", absent.directory() + "/state", absent.directory());
  ASSERT_TRUE(terminal.started());
  EXPECT_TRUE(terminal.wait_for("% The scheduler daemon does not answer at " + absent.directory() + "/run/schedd.sock"))
      << terminal.output();
  EXPECT_TRUE(terminal.wait_for("% Start it with: schedd --runtime-dir " + absent.directory() + "/run --state-dir " +
                                absent.directory() + "/state"))
      << terminal.output();
  EXPECT_TRUE(terminal.line("schedsh# ", "exit")) << terminal.output();
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
    const std::string job_prompt = "schedsh(config-job, end-job ends)# ";
    ASSERT_TRUE(terminal.line("schedsh# ", "configure terminal")) << terminal.output();
    EXPECT_EQ(terminal.output().find("does not answer"), std::string::npos);
    ASSERT_TRUE(terminal.line("schedsh(config)# ", "scheduler job name j1")) << terminal.output();
    EXPECT_TRUE(terminal.wait_for("until end-job; '?' for help, Ctrl-C abandons the job")) << terminal.output();
    ASSERT_TRUE(terminal.wait_for(job_prompt)) << terminal.output();
    terminal.type("?");
    EXPECT_TRUE(terminal.wait_for("  Ctrl-C    Abandons the job: nothing typed here is sent")) << terminal.output();
    ASSERT_TRUE(terminal.line(job_prompt, "echo one")) << terminal.output();
    ASSERT_TRUE(terminal.wait_for(job_prompt)) << terminal.output();
    ASSERT_TRUE(terminal.interrupt());
    EXPECT_TRUE(terminal.wait_for("% Job j1 abandoned: its commands were not sent (the job stays, empty)"))
        << terminal.output();
    ASSERT_TRUE(terminal.line("schedsh(config)# ", "scheduler aaa-authentication password 0 not-kept"))
        << terminal.output();
    ASSERT_TRUE(terminal.line("schedsh(config)# ", "no feature scheduler")) << terminal.output();
    ASSERT_TRUE(terminal.line("Turning the scheduler off deletes its 1 job and 0 schedules. Turn it off? [y/N] ", "n"))
        << terminal.output();
    EXPECT_TRUE(terminal.wait_for("% The scheduler stays on")) << terminal.output();
    ASSERT_TRUE(terminal.line("schedsh(config)# ", "end")) << terminal.output();
    ASSERT_TRUE(terminal.line("schedsh# ", "exit")) << terminal.output();
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
