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

TEST_F(DaemonSocket, BrokenRequestsAreReportedAndServingGoesOn) {
  ASSERT_EQ(cmi_server_listen(path_.c_str(), &listen_fd_), 0u);
  int raw = connect_raw(path_);
  int connection = -1;
  ASSERT_EQ(cmi_server_accept(listen_fd_, &connection), 0u);

  Bytes bad_version = raw_message({Kind::request, 1, 2, 0, 77, 0}, {1});
  bad_version[0] = 2;
  Bytes bad_length = raw_message({Kind::request, 1, 2, 0, 78, 0}, {1, 2});
  bad_length.pop_back();
  const std::pair<Bytes, uint32_t> broken[] = {
      {Bytes(CMI_HEADER_SIZE - 1, 1), CMI_ERR_SHORT},
      {Bytes(CMI_MAX_MESSAGE + 1, 1), CMI_ERR_TOO_LARGE},
      {bad_version, CMI_ERR_VERSION},
      {raw_message({Kind::reply, 1, 2, 0, 79, 0}, {1}), CMI_ERR_KIND},
      {bad_length, CMI_ERR_LENGTH},
  };
  for (const auto &[bytes, status] : broken) send_raw(raw, bytes);
  send_raw(raw, raw_message({Kind::request, 5950, 3, 0, 80, 0}, {7, 7}));

  for (const auto &[bytes, status] : broken) {
    cmi_request request{};
    EXPECT_EQ(cmi_server_receive(connection, &request), status) << syserr2str(status);
    EXPECT_EQ(request.payload, nullptr);
    EXPECT_EQ(request.peer.pid, getpid());
    if (status == CMI_ERR_KIND) {
      EXPECT_EQ(request.token, 79u) << "kept so that an error can be answered";
    }
  }
  {
    TakenRequest request(connection);
    EXPECT_EQ(request.token, 80u);
    EXPECT_EQ(request.length, 2u);
    EXPECT_EQ(request.peer.uid, getuid());
    EXPECT_EQ(request.peer.gid, getgid());
    EXPECT_EQ(request.peer.pid, getpid());
  }
  close(raw);
  cmi_request request{};
  EXPECT_EQ(cmi_server_receive(connection, &request), CMI_ERR_CLIENT_CLOSED);
  EXPECT_EQ(cmi_server_reply(connection, 80, 0, nullptr, 0), CMI_ERR_CLIENT_CLOSED);
  close(connection);

  // The next client is served as if nothing had happened.
  uint32_t status = 1;
  std::thread client([&] {
    void *reply = nullptr;
    uint32_t length = 1;
    uint8_t byte = 5;
    status = cmi_req_resp(5950, 3, &byte, &reply, &length, "admin", nullptr, 136, session_, 0);
    std::free(reply);
  });
  ASSERT_EQ(cmi_server_accept(listen_fd_, &connection), 0u);
  {
    TakenRequest request(connection);
    EXPECT_EQ(cmi_server_reply(connection, request.token, 0, nullptr, 0), 0u);
  }
  client.join();
  close(connection);
  EXPECT_EQ(status, 0u);
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
