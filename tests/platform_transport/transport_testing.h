// Test support: a daemon socket in a temporary directory, served by a thread, and raw messages.
#ifndef SCHEDCLI_TESTS_PLATFORM_TRANSPORT_TESTING_H
#define SCHEDCLI_TESTS_PLATFORM_TRANSPORT_TESTING_H

#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "schedcli/platform/cmi.h"
#include "schedcli/platform/syserr.h"
#include "transport/wire.h"
#include "support/temp_dir.h"

namespace transport_testing {

using Bytes = std::vector<uint8_t>;

// The header bytes and payload of one message, for sending what the codec would never make.
inline Bytes raw_message(cmi::wire::Header header, const Bytes &payload) {
  header.payload_length = static_cast<uint32_t>(payload.size());
  Bytes bytes(CMI_HEADER_SIZE + payload.size());
  cmi::wire::encode(header, std::span<uint8_t, CMI_HEADER_SIZE>(bytes.data(), CMI_HEADER_SIZE));
  if (!payload.empty()) std::memcpy(bytes.data() + CMI_HEADER_SIZE, payload.data(), payload.size());
  return bytes;
}

// A plain client connection, sized for messages above the maximum.
inline int connect_raw(const std::string &path) {
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  int buffer = 4 * CMI_MAX_MESSAGE;
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
  EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << std::strerror(errno);
  return fd;
}

// A fresh directory holding the socket path; gone with the fixture.
class SocketTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = directory_ + "/" CMI_SOCKET_NAME;
    session_ = cmi_session_open(path_.c_str());
    ASSERT_NE(session_, nullptr);
  }
  void TearDown() override {
    cmi_session_close(session_);
  }

  sch::testing::TempDir temp_;
  std::string directory_ = temp_.path();
  std::string path_;
  cmi_session *session_ = nullptr;
};

// Listens on `path` and hands each accepted connection to `handle` on its own thread, until
// destroyed. The listen status is checked by the constructor.
class Server {
 public:
  using Handler = std::function<void(int connection)>;

  Server(const std::string &path, Handler handle) {
    EXPECT_EQ(cmi_server_listen(path.c_str(), &listen_fd_), 0u);
    thread_ = std::thread([this, handle] {
      while (!stop_) {
        pollfd watch{listen_fd_, POLLIN, 0};
        if (poll(&watch, 1, 20) <= 0) continue;
        int connection = -1;
        if (cmi_server_accept(listen_fd_, &connection) != 0) continue;
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
inline void wait_for_hangup(int connection) {
  cmi_request request{};
  while (cmi_server_receive(connection, &request) == 0) cmi_request_release(&request);
}

}  // namespace transport_testing

#endif
