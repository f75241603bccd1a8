// The daemon's socket: the message header's bytes, one request and one reply, reply streams, and
// the server side.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "schedcli/platform/cmi.h"
#include "schedcli/platform/sysmgr.h"
#include "support/temp_dir.h"
#include "transport/wire.h"

namespace {

using cmi::wire::Header;
using cmi::wire::Kind;
using Bytes = std::vector<uint8_t>;

int connect_raw(const std::string &path) {
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
  EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << std::strerror(errno);
  return fd;
}

// A fresh directory holding the socket path, gone with the fixture, and the client's calls.
class SocketTest : public ::testing::Test {
 protected:
  void SetUp() override {
    session_ = cmi_session_open(path_.c_str());
    ASSERT_NE(session_, nullptr);
  }
  void TearDown() override {
    cmi_session_close(session_);
    if (listen_fd_ >= 0) close(listen_fd_);
  }

  // The call as the library makes it.
  uint32_t call(const Bytes &request, Bytes *reply_bytes = nullptr) {
    void *reply = reinterpret_cast<void *>(1);  // must be overwritten
    uint32_t length = static_cast<uint32_t>(request.size());
    char identity[32] = {};
    uint32_t status = cmi_req_resp(5950, 3, request.data(), &reply, &length, "admin", identity, 136, session_, 0);
    EXPECT_TRUE(reply || length == 0) << length;
    if (reply_bytes) reply_bytes->assign(static_cast<uint8_t *>(reply), static_cast<uint8_t *>(reply) + length);
    std::free(reply);
    return status;
  }

  // Sends the request as the show-log-file command does and sets up the receive context.
  uint32_t open_stream() {
    static const cmi_send_options options{{0xFE, 0, 0, 0, 0, 0, 0, 0x88}};
    uint8_t request[48] = {0, 0, 0, 8};
    cmi_token_source source{};
    uint32_t status = cmi_send_request(5951, 2, request, sizeof request, "admin", nullptr, &options, session_, &source);
    context_.mode = 1;
    context_.token = mts_rr_token_get(&source);
    return status;
  }

  sch::testing::TempDir temp_;
  std::string directory_ = temp_.path();
  std::string path_ = directory_ + "/" CMI_SOCKET_NAME;
  cmi_session *session_ = nullptr;
  int listen_fd_ = -1;
  mts_stream_context context_{};
};
using RequestReply = SocketTest;
using ReplyStream = SocketTest;
using DaemonSocket = SocketTest;

// Listens on `path` and hands each accepted connection to `handle` on its own thread, until
// destroyed. The listen status is checked by the constructor.
class Server {
 public:
  Server(const std::string &path, std::function<void(int connection)> handle) {
    EXPECT_EQ(cmi_server_listen(path.c_str(), &listen_fd_), 0u);
    thread_ = std::thread([this, handle] {
      for (int connection = -1; !stop_;) {
        pollfd watch{listen_fd_, POLLIN, 0};
        if (poll(&watch, 1, 20) <= 0 || cmi_server_accept(listen_fd_, &connection) != 0) continue;
        active_ = connection;
        handle(connection);
        active_ = -1;
        close(connection);
      }
    });
  }
  ~Server() {
    stop_ = true;
    // Wakes a handler that still waits for its client.
    if (int connection = active_.load(); connection >= 0) shutdown(connection, SHUT_RDWR);
    thread_.join();
    close(listen_fd_);
  }

 private:
  int listen_fd_ = -1;
  std::atomic<bool> stop_{false};
  std::atomic<int> active_{-1};
  std::thread thread_;
};

// One request taken whole from a connection, released when it goes.
struct TakenRequest : cmi_request {
  explicit TakenRequest(int connection) : cmi_request{} {
    EXPECT_EQ(cmi_server_receive(connection, this), 0u);
  }
  TakenRequest(const TakenRequest &) = delete;
  TakenRequest &operator=(const TakenRequest &) = delete;
  ~TakenRequest() { cmi_request_release(this); }
};

// Waits until the client hangs up, so that the server answers nothing meanwhile.
void wait_for_hangup(int connection) {
  cmi_request request{};
  while (cmi_server_receive(connection, &request) == 0) cmi_request_release(&request);
}

const uint8_t kPinned[CMI_HEADER_SIZE] = {
    0x01, 0x03, 0x00, 0x00,  // version 1, stream part, reserved
    0x00, 0x00, 0x17, 0x3f,  // service 5951
    0x00, 0x00, 0x00, 0x02,  // opcode 2
    0x40, 0xbd, 0x00, 0x02,  // status
    0xfe, 0xdc, 0xba, 0x98,  // token
    0x00, 0x00, 0x01, 0x00,  // payload length 256
};

TEST(MessageHeader, PinnedBytesBothWays) {
  uint8_t bytes[CMI_HEADER_SIZE];
  cmi::wire::encode({Kind::stream_part, 5951, 2, 0x40bd0002, 0xfedcba98, 256}, bytes);
  EXPECT_EQ(0, std::memcmp(bytes, kPinned, sizeof bytes));
  Header header;
  ASSERT_EQ(cmi::wire::decode(kPinned, CMI_HEADER_SIZE + 256, &header), 0u);
  EXPECT_EQ(header.kind, Kind::stream_part);
  EXPECT_EQ((std::tuple{header.service, header.opcode, header.status, header.token, header.payload_length}),
            (std::tuple{5951u, 2u, 0x40bd0002u, 0xfedcba98u, 256u}));
}

TEST(MessageHeader, RefusesHeadersThatDoNotHoldUp) {
  Header header;
  EXPECT_EQ(cmi::wire::decode(std::span(kPinned, CMI_HEADER_SIZE - 1), CMI_HEADER_SIZE - 1, &header), CMI_ERR_SHORT);
  EXPECT_EQ(cmi::wire::decode(kPinned, CMI_HEADER_SIZE + 255, &header), CMI_ERR_LENGTH);
  EXPECT_EQ(cmi::wire::decode(kPinned, CMI_HEADER_SIZE + 257, &header), CMI_ERR_LENGTH);
  EXPECT_EQ(header.token, 0xfedcba98u) << "a sender of a bad length can still be answered";

  uint8_t changed[CMI_HEADER_SIZE];
  for (auto [offset, value, status] : {std::tuple{0, 2, CMI_ERR_VERSION}, std::tuple{0, 0, CMI_ERR_VERSION},
                                       std::tuple{1, 0, CMI_ERR_KIND}, std::tuple{1, 5, CMI_ERR_KIND}}) {
    std::memcpy(changed, kPinned, sizeof changed);
    changed[offset] = static_cast<uint8_t>(value);
    EXPECT_EQ(cmi::wire::decode(changed, CMI_HEADER_SIZE + 256, &header), status) << offset << "=" << value;
  }
}

TEST_F(RequestReply, CarriesTheLargestPayloadBothWaysAndRefusesALargerOne) {
  Server server(path_, [](int connection) {
    TakenRequest request(connection);
    EXPECT_EQ(cmi_server_reply(connection, request.token, 0, request.payload, request.length), 0u);
    EXPECT_EQ(cmi_server_reply(connection, request.token, 0, request.payload, CMI_MAX_PAYLOAD + 1), CMI_ERR_TOO_LARGE);
  });
  Bytes large(CMI_MAX_PAYLOAD);
  for (size_t i = 0; i < large.size(); i++) large[i] = static_cast<uint8_t>(i * 7);
  Bytes reply;
  ASSERT_EQ(call(large, &reply), 0u);
  EXPECT_EQ(reply, large);
  large.push_back(0);
  EXPECT_EQ(call(large), CMI_ERR_TOO_LARGE);
}

TEST_F(RequestReply, DaemonClosingMidCallIsReported) {
  Server server(path_, [](int connection) {
    TakenRequest request(connection);
  });
  EXPECT_EQ(call({1}), CMI_ERR_DAEMON_CLOSED);
}

// Each reply is a good one with one thing changed: its kind, its token, its version, or cut short.
TEST_F(RequestReply, BrokenRepliesAreRefusedWithoutAPayload) {
  struct Case {
    const char *what;
    uint32_t expected;
    Kind kind;
    uint32_t token_change;
    uint8_t version;
    size_t kept;
  };
  const size_t whole = CMI_HEADER_SIZE + 3;
  const Case cases[] = {
      {"short", CMI_ERR_SHORT, Kind::reply, 0, 1, 5},
      {"empty packet", CMI_ERR_SHORT, Kind::reply, 0, 1, 0},
      {"a request", CMI_ERR_KIND, Kind::request, 0, 1, whole},
      {"another token", CMI_ERR_TOKEN, Kind::reply, 1, 1, whole},
      {"bad version", CMI_ERR_VERSION, Kind::reply, 0, 9, whole},
      {"length beyond the message", CMI_ERR_LENGTH, Kind::reply, 0, 1, whole - 1},
  };
  for (const Case &c : cases) {
    Server server(path_, [&](int connection) {
      TakenRequest request(connection);
      Bytes bytes(whole);
      cmi::wire::encode({c.kind, 0, 0, 0, request.token + c.token_change, 3},
                        std::span(bytes).first<CMI_HEADER_SIZE>());
      bytes[0] = c.version;
      bytes.resize(c.kept);
      EXPECT_EQ(send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
      wait_for_hangup(connection);
    });
    cmi_session_timeout_set(session_, 2000);
    EXPECT_EQ(call({1}), c.expected) << c.what;
  }
}

TEST_F(ReplyStream, OnlyTheOpenStreamsTokenReceives) {
  Server server(path_, wait_for_hangup);
  cmi_session_timeout_set(session_, 200);
  ASSERT_EQ(open_stream(), 0u);
  mts_stream_context stale = context_;
  stale.token++;
  cmi_message message;
  EXPECT_EQ(mts_recv(session_, &message, &stale), CMI_ERR_NO_STREAM);
  EXPECT_EQ(mts_recv(session_, &message, &context_), CMI_ERR_TIMEOUT) << "an open stream's silence times out";
  EXPECT_EQ(mts_recv(session_, &message, &context_), CMI_ERR_NO_STREAM);
}

TEST_F(ReplyStream, EmptyMessageCannotBeParsed) {
  Server server(path_, [](int connection) {
    TakenRequest request(connection);
    cmi_server_stream_send(connection, request.token, nullptr, 0);
    wait_for_hangup(connection);
  });
  ASSERT_EQ(open_stream(), 0u);
  cmi_message message;
  ASSERT_EQ(mts_recv(session_, &message, &context_), 0u);
  uint32_t length = 1;
  void *payload = &length;
  EXPECT_EQ(cmi_parse_response(&message, &length, &payload), CMI_ERR_EMPTY);
  EXPECT_EQ(payload, nullptr);
  EXPECT_EQ(length, 0u);
}

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
