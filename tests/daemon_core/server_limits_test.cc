// The socket server's bounds: a silent connection is closed after its time, and connections of
// users cannot take the slots kept for root.
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "ipc/server.h"
#include "schedcli/platform/cmi.h"
#include "support/temp_dir.h"
#include "gtest/gtest.h"

namespace {

using Clock = std::chrono::steady_clock;

int connect_to(const std::string &path) {
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
  if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

// True once the daemon's side has closed the connection.
bool closed_by_server(int fd) {
  char byte;
  return recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
}

class ServerLimits : public testing::Test {
 protected:
  void SetUp() override {
    // Users other than root must reach the socket for the reserve test.
    chmod(directory_.path().c_str(), 0755);
    server_ = std::make_unique<schedd::Server>(
        loop_, [this](uint32_t, uint32_t, schedd::RequestBytes, const schedd::Caller &caller) {
          answered_for_.push_back(caller.uid);
          return schedd::status_reply(0);
        },
        schedd::ServerLimits{4, 1, 300});
    ASSERT_EQ(server_->listen(path_), 0u);
    chmod(path_.c_str(), 0666);
  }

  // Runs the loop for `duration`, or until `done`.
  template <typename Done>
  void serve_for(std::chrono::milliseconds duration, Done done) {
    auto deadline = Clock::now() + duration;
    while (Clock::now() < deadline && !done()) {
      if (!loop_.iterate()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  // One request as the test's own user (root), answered while the loop runs here.
  uint32_t ask() {
    uint32_t status = CMI_ERR_TIMEOUT;
    bool finished = false;
    std::thread client([&] {
      cmi_session *session = cmi_session_open(path_.c_str());
      cmi_session_timeout_set(session, 2000);
      void *reply = nullptr;
      uint32_t length = 1;
      uint8_t byte = 0;
      status = cmi_req_resp(1, 1, &byte, &reply, &length, nullptr, nullptr, 0, session, 0);
      std::free(reply);
      cmi_session_close(session);
      finished = true;
    });
    serve_for(std::chrono::milliseconds(3000), [&] { return finished; });
    client.join();
    return status;
  }

  sch::testing::TempDir directory_;
  std::string path_ = directory_.file("schedd.sock");
  schedd::EventLoop loop_;
  std::unique_ptr<schedd::Server> server_;
  std::vector<uint32_t> answered_for_;
};

TEST_F(ServerLimits, ASilentConnectionIsClosedAfterItsTimeAndAnActiveOneServed) {
  int silent = connect_to(path_);
  ASSERT_GE(silent, 0);
  serve_for(std::chrono::milliseconds(100), [] { return false; });
  EXPECT_FALSE(closed_by_server(silent)) << "closed before its time";
  serve_for(std::chrono::milliseconds(1000), [&] { return closed_by_server(silent); });
  EXPECT_TRUE(closed_by_server(silent));
  close(silent);
  EXPECT_EQ(ask(), 0u);
}

TEST_F(ServerLimits, UsersFillingEverySlotLeaveRootItsReserve) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to connect as another user";
  passwd *nobody = getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  // Root's own connection takes a slot but not one of the users' share.
  int root_held = connect_to(path_);
  serve_for(std::chrono::milliseconds(50), [] { return false; });
  int ready[2], go[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(go), 0);
  pid_t child = fork();
  if (child == 0) {
    // More connections than there are slots, held without a word.
    if (setgid(nobody->pw_gid) != 0 || setuid(nobody->pw_uid) != 0) _exit(1);
    std::vector<int> held;
    for (int i = 0; i < 8; i++) held.push_back(connect_to(path_));
    (void)!write(ready[1], "x", 1);
    char byte;
    (void)!read(go[0], &byte, 1);
    char closed = static_cast<char>(std::count_if(held.begin(), held.end(), closed_by_server));
    (void)!write(ready[1], &closed, 1);
    pause();
    _exit(0);
  }
  close(ready[1]);
  close(go[0]);
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  serve_for(std::chrono::milliseconds(100), [] { return false; });
  ASSERT_EQ(write(go[1], "x", 1), 1);
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  EXPECT_EQ(byte, 0) << "three users beside root fill the table; the rest wait unrefused";
  // Once root's connection goes, root still gets the slot kept for it, well within the idle time.
  close(root_held);
  serve_for(std::chrono::milliseconds(50), [] { return false; });
  EXPECT_EQ(ask(), 0u);
  EXPECT_EQ(answered_for_, std::vector<uint32_t>{0});
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ready[0]);
  close(go[1]);
}

}  // namespace
