// What the programs announce: the version, the directories, readiness to a service manager, the
// daemon's start and stop lines at the operator's logging level, and recognising the journal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "schedcli/platform/acfg.h"
#include "schedcli/platform/cmi.h"
#include "detach.h"
#include "schedcli_version.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

// Standard output of a command run to its end, and its exit status (-1: it did not exit).
using Finished = std::pair<std::string, int>;
Finished run(const std::string &command) {
  std::FILE *pipe = popen(command.c_str(), "r");
  std::string output;
  char buffer[256];
  size_t got;
  while (pipe && (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, got);
  int raw = pipe ? pclose(pipe) : -1;
  return {output, WIFEXITED(raw) ? WEXITSTATUS(raw) : -1};
}

TEST(VersionTest, BothProgramsPrintTheBuildsVersionAndTheDaemonItsDirectories) {
  EXPECT_EQ(run(SCHEDD_PATH " --version"), Finished("schedd (schedcli) " SCHED_VERSION "\n", 0));
  EXPECT_EQ(run(SCHEDSH_PATH " --version"), Finished("schedsh (schedcli) " SCHED_VERSION "\n", 0));
  // What the options select, made absolute.
  EXPECT_EQ(run("cd / && " SCHEDD_PATH " --print-directories --state-dir tmp/s --runtime-dir /x/r"),
            Finished("state directory: /tmp/s\nruntime directory: /x/r\n", 0));
  EXPECT_EQ(run(SCHEDD_PATH " --print-directories --runtime 2>/dev/null").second, 2)
      << "a bad option is still a usage error";
}

// A foreground daemon with the scheduler feature on, on a temporary directory, with a service
// manager's socket to talk to.
class DaemonAnnounceTest : public testing::Test {
 protected:
  void SetUp() override {
    notify_path_ = (directory_ / "notify").string();
    manager_fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un bound{};
    bound.sun_family = AF_UNIX;
    std::strncpy(bound.sun_path, notify_path_.c_str(), sizeof bound.sun_path - 1);
    ASSERT_EQ(bind(manager_fd_, reinterpret_cast<sockaddr *>(&bound), sizeof bound), 0);
  }
  void TearDown() override {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(manager_fd_);
  }

  std::string state_dir() const { return (directory_ / "state").string(); }
  std::string runtime_dir() const { return (directory_ / "run").string(); }

  // Starts the daemon, its standard error into the file "errors".
  void start() {
    pid_ = fork();
    ASSERT_GE(pid_, 0);
    if (pid_ == 0) {
      dup2(open((directory_ / "errors").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), STDERR_FILENO);
      setenv("NOTIFY_SOCKET", notify_path_.c_str(), 1);
      unsetenv("JOURNAL_STREAM");
      std::string state = "--state-dir=" + state_dir();
      std::string runtime = "--runtime-dir=" + runtime_dir();
      execl(SCHEDD_PATH, SCHEDD_PATH, "--foreground", "--enable-feature", state.c_str(), runtime.c_str(), static_cast<char *>(nullptr));
      _exit(127);
    }
  }

  // The next notification within ten seconds, or "".
  std::string notification() {
    pollfd waiting{manager_fd_, POLLIN, 0};
    if (poll(&waiting, 1, 10000) != 1) return "";
    char buffer[512];
    ssize_t got = recv(manager_fd_, buffer, sizeof buffer, 0);
    return got > 0 ? std::string(buffer, static_cast<size_t>(got)) : std::string();
  }

  // Sends SIGTERM and waits: everything the daemon wrote to standard error, and its exit status.
  Finished stop() {
    kill(pid_, SIGTERM);
    int raw = 0;
    waitpid(pid_, &raw, 0);
    pid_ = -1;
    std::ifstream errors(directory_ / "errors");
    return {std::string(std::istreambuf_iterator<char>(errors), {}), WIFEXITED(raw) ? WEXITSTATUS(raw) : -1};
  }

  std::string start_line(const char *how) const {
    return "%SCHEDULER-5-SCHEDD_START>> schedd " SCHED_VERSION " started as active: state directory " + state_dir() +
           ", runtime directory " + runtime_dir() + " (" + how + ")\n";
  }

  sch::testing::TempDir temp_;
  fs::path directory_ = temp_.path();
  std::string notify_path_;
  int manager_fd_ = -1;
  pid_t pid_ = -1;
};

const char kStopLine[] = "%SCHEDULER-5-SCHEDD_STOP>> schedd " SCHED_VERSION " stopped\n";

TEST_F(DaemonAnnounceTest, ReadyOnlyOnceItServesThenStoppingAndTheLinesOfBoth) {
  std::string socket_path = runtime_dir() + "/" CMI_SOCKET_NAME;
  for (const char *how : {"first start since boot: startup configuration", "running configuration kept"}) {
    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_EQ(notification(), "READY=1\nSTATUS=Serving on " + socket_path);
    cmi_session *session = cmi_session_open(socket_path.c_str());
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(acfg_request_logging_level(session, "scheduler", 5), 0u) << "it serves when ready";
    cmi_session_close(session);
    auto [errors, status] = stop();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(notification(), "STOPPING=1");
    EXPECT_NE(errors.find(start_line(how)), std::string::npos) << errors;
    EXPECT_NE(errors.find(kStopLine), std::string::npos) << errors;
  }
}

TEST(ServiceManagerTest, AnUnusableAddressIsAFailure) {
  sch::testing::TempDir temp;
  for (const std::string &address : {std::string("relative/notify"), std::string("/") + std::string(200, 'n'),
                                     (fs::path(temp.path()) / "nobody").string()}) {
    setenv("NOTIFY_SOCKET", address.c_str(), 1);
    EXPECT_FALSE(schedd::notify_service_manager("READY=1")) << address;
  }
  unsetenv("NOTIFY_SOCKET");
}

TEST(ServiceManagerTest, StandardErrorIsTheJournalOnlyWhenDeviceAndInodeMatch) {
  struct stat status;
  ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
  std::string device = std::to_string(status.st_dev), inode = std::to_string(status.st_ino);
  setenv("JOURNAL_STREAM", (device + ":" + inode).c_str(), 1);
  EXPECT_TRUE(schedd::stderr_is_journal());
  for (const std::string &other : {device + ":" + std::to_string(status.st_ino + 1), device + ":" + inode + "x",
                                   device, std::string("journal"), std::string()}) {
    setenv("JOURNAL_STREAM", other.c_str(), 1);
    EXPECT_FALSE(schedd::stderr_is_journal()) << other;
  }
  unsetenv("JOURNAL_STREAM");
  EXPECT_FALSE(schedd::stderr_is_journal());
}

}  // namespace
