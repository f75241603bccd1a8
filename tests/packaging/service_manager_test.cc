// Notification of the service manager over $NOTIFY_SOCKET, and recognising the journal as
// standard error.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "detach.h"
#include "support/temp_dir.h"

namespace {

// A datagram socket standing in for the service manager, bound to a path or an abstract name.
class Manager {
 public:
  explicit Manager(const std::string &address) {
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un bound{};
    bound.sun_family = AF_UNIX;
    std::memcpy(bound.sun_path, address.data(), address.size());
    if (address[0] == '@') bound.sun_path[0] = '\0';
    ok_ = fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr *>(&bound),
                           static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size())) == 0;
  }
  ~Manager() {
    if (fd_ >= 0) close(fd_);
  }
  bool ok() const { return ok_; }
  // The next datagram, or "" when none is waiting.
  std::string received() {
    char buffer[512];
    ssize_t got = recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
    return got > 0 ? std::string(buffer, static_cast<size_t>(got)) : std::string();
  }

 private:
  int fd_ = -1;
  bool ok_ = false;
};

class ServiceManagerTest : public testing::Test {
 protected:
  void TearDown() override {
    unsetenv("NOTIFY_SOCKET");
    unsetenv("JOURNAL_STREAM");
  }
  sch::testing::TempDir temp_;
  std::filesystem::path directory_ = temp_.path();
};

TEST_F(ServiceManagerTest, AnUnusableAddressIsAFailure) {
  for (const std::string &address :
       {std::string("relative/notify"), std::string("/") + std::string(200, 'n'), (directory_ / "nobody").string()}) {
    setenv("NOTIFY_SOCKET", address.c_str(), 1);
    EXPECT_FALSE(schedd::notify_service_manager("READY=1")) << address;
  }
}

TEST_F(ServiceManagerTest, StandardErrorIsTheJournalOnlyWhenDeviceAndInodeMatch) {
  struct stat status;
  ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
  std::string device = std::to_string(status.st_dev);
  std::string inode = std::to_string(status.st_ino);

  unsetenv("JOURNAL_STREAM");
  EXPECT_FALSE(schedd::stderr_is_journal());
  setenv("JOURNAL_STREAM", (device + ":" + inode).c_str(), 1);
  EXPECT_TRUE(schedd::stderr_is_journal());
  for (const std::string &other : {device + ":" + std::to_string(status.st_ino + 1), device + ":" + inode + "x",
                                   device, std::string("journal"), std::string()}) {
    setenv("JOURNAL_STREAM", other.c_str(), 1);
    EXPECT_FALSE(schedd::stderr_is_journal()) << other;
  }
}

}  // namespace
