// The daemon's side: where it may listen, and requests that are broken or whose client is gone.
#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>
#include <thread>

#include "schedcli/platform/sysmgr.h"
#include "transport_testing.h"

namespace {

using namespace transport_testing;
using cmi::wire::Header;
using cmi::wire::Kind;

class DaemonSocket : public SocketTest {
 protected:
  void TearDown() override {
    if (listen_fd_ >= 0) close(listen_fd_);
    SocketTest::TearDown();
  }
  int listen_fd_ = -1;
};

TEST_F(DaemonSocket, ListensOnlyWhereNoLiveServerOrOtherFileIs) {
  ASSERT_EQ(cmi_server_listen(path_.c_str(), &listen_fd_), 0u);
  struct stat socket_file;
  ASSERT_EQ(stat(path_.c_str(), &socket_file), 0);
  EXPECT_TRUE(S_ISSOCK(socket_file.st_mode));
  EXPECT_EQ(socket_file.st_mode & 07777, 0660u);
  int second = -1;
  EXPECT_EQ(cmi_server_listen(path_.c_str(), &second), CMI_ERR_IN_USE);
  EXPECT_EQ(second, -1);

  std::string plain = directory_ + "/plain";
  std::ofstream(plain) << "keep me";
  EXPECT_EQ(cmi_server_listen(plain.c_str(), &second), CMI_ERR_NOT_SOCKET);
  std::string kept;
  std::ifstream(plain) >> kept;
  EXPECT_EQ(kept, "keep");
  EXPECT_EQ(cmi_server_listen((directory_ + "/missing/s.sock").c_str(), &second), CMI_ERR_PATH);
  EXPECT_EQ(cmi_server_listen((directory_ + "/" + std::string(120, 'x')).c_str(), &second), CMI_ERR_PATH);
  EXPECT_EQ(cmi_session_open((directory_ + "/" + std::string(120, 'x')).c_str()), nullptr);
}

TEST_F(DaemonSocket, NonBlockingDescriptorsSayNothingIsWaiting) {
  ASSERT_EQ(cmi_server_listen(path_.c_str(), &listen_fd_), 0u);
  fcntl(listen_fd_, F_SETFL, O_NONBLOCK);
  int connection = -1;
  EXPECT_EQ(cmi_server_accept(listen_fd_, &connection), CMI_NOTHING_WAITING);
  int raw = connect_raw(path_);
  ASSERT_EQ(cmi_server_accept(listen_fd_, &connection), 0u);
  fcntl(connection, F_SETFL, O_NONBLOCK);
  cmi_request request{};
  EXPECT_EQ(cmi_server_receive(connection, &request), CMI_NOTHING_WAITING);
  close(raw);
  close(connection);
}

TEST_F(DaemonSocket, DefaultSocketIsInTheRuntimeDirectory) {
  ASSERT_EQ(sysmgr_dirs_set((directory_ + "/state").c_str(), (directory_ + "/run").c_str()), 0);
  EXPECT_EQ(cmi_server_listen(nullptr, &listen_fd_), 0u);
  cmi_session *session = cmi_session_open(nullptr);
  sysmgr_dirs_clear();
  EXPECT_EQ(access((directory_ + "/run/" CMI_SOCKET_NAME).c_str(), F_OK), 0);
  ASSERT_NE(session, nullptr);
  cmi_token_source source;
  EXPECT_EQ(cmi_send_request(5951, 2, nullptr, 0, nullptr, nullptr, nullptr, session, &source), 0u);
  cmi_session_close(session);
  EXPECT_EQ(cmi_session_open(nullptr), nullptr) << "no runtime directory, no default";
}

}  // namespace
