// One request, one reply: what the shell's call returns for each thing the daemon can do.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "transport_testing.h"

namespace {

using namespace transport_testing;
using Clock = std::chrono::steady_clock;

class RequestReply : public SocketTest {
 protected:
  // The call as the library makes it.
  uint32_t call(const Bytes &request, Bytes *reply_bytes = nullptr) {
    void *reply = reinterpret_cast<void *>(1);  // must be overwritten
    uint32_t length = static_cast<uint32_t>(request.size());
    char identity[32] = {};
    uint32_t status = cmi_req_resp(5950, 3, request.data(), &reply, &length, "admin", identity, 136, session_, 0);
    if (!reply) {
      EXPECT_EQ(length, 0u);
    }
    if (reply_bytes) reply_bytes->assign(static_cast<uint8_t *>(reply), static_cast<uint8_t *>(reply) + length);
    std::free(reply);
    return status;
  }
};

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

TEST_F(RequestReply, BrokenRepliesAreRefusedWithoutAPayload) {
  struct Case {
    const char *what;
    uint32_t expected;
    std::function<Bytes(uint32_t token)> reply;
  };
  auto reply_of = [](cmi::wire::Kind kind, uint32_t token) {
    return raw_message({kind, 0, 0, 0, token, 0}, {1, 2, 3});
  };
  const Case cases[] = {
      {"short", CMI_ERR_SHORT, [](uint32_t) { return Bytes{1, 2, 0, 0, 0}; }},
      {"empty packet", CMI_ERR_SHORT, [](uint32_t) { return Bytes{}; }},
      {"a request", CMI_ERR_KIND, [&](uint32_t token) { return reply_of(cmi::wire::Kind::request, token); }},
      {"another token", CMI_ERR_TOKEN, [&](uint32_t token) { return reply_of(cmi::wire::Kind::reply, token + 1); }},
      {"bad version", CMI_ERR_VERSION, [&](uint32_t token) {
         Bytes bytes = reply_of(cmi::wire::Kind::reply, token);
         bytes[0] = 9;
         return bytes;
       }},
      {"length beyond the message", CMI_ERR_LENGTH, [&](uint32_t token) {
         Bytes bytes = reply_of(cmi::wire::Kind::reply, token);
         bytes.pop_back();
         return bytes;
       }},
  };
  for (const Case &c : cases) {
    Server server(path_, [&](int connection) {
      TakenRequest request(connection);
      Bytes bytes = c.reply(request.token);
      EXPECT_EQ(send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
        wait_for_hangup(connection);
    });
    cmi_session_timeout_set(session_, 2000);
    EXPECT_EQ(call({1}), c.expected) << c.what;
  }
}

}  // namespace
