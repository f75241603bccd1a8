// Reply streams: several messages bound to one request's token, then the end.
#include <cstdlib>

#include "transport_testing.h"

namespace {

using namespace transport_testing;

class ReplyStream : public SocketTest {
 protected:
  // Sends the request as the show-log-file command does and sets up the receive context.
  uint32_t open_stream() {
    static const cmi_send_options options{{0xFE, 0, 0, 0, 0, 0, 0, 0x88}};
    uint8_t request[48] = {0, 0, 0, 8};
    cmi_token_source source{};
    uint32_t status = cmi_send_request(5951, 2, request, sizeof request, "admin", nullptr, &options, session_, &source);
    context_ = mts_stream_context{};
    context_.mode = 1;
    context_.token = mts_rr_token_get(&source);
    return status;
  }

  // Receives and parses one message: its bytes, or the receive status as a failure.
  uint32_t next(Bytes *bytes) {
    cmi_message message;
    uint32_t status = mts_recv(session_, &message, &context_);
    if (status != 0) return status;
    EXPECT_EQ(message.token, context_.token);
    uint32_t length = 0;
    void *payload = nullptr;
    EXPECT_EQ(cmi_parse_response(&message, &length, &payload), 0u);
    EXPECT_EQ(message.payload, nullptr) << "the payload moved to the caller";
    bytes->assign(static_cast<uint8_t *>(payload), static_cast<uint8_t *>(payload) + length);
    std::free(payload);
    return 0;
  }

  mts_stream_context context_{};
};

TEST_F(ReplyStream, OnlyTheOpenStreamsTokenReceives) {
  Server server(path_, wait_for_hangup);
  cmi_session_timeout_set(session_, 200);
  ASSERT_EQ(open_stream(), 0u);
  mts_stream_context stale = context_;
  stale.token++;
  cmi_message message;
  EXPECT_EQ(mts_recv(session_, &message, &stale), CMI_ERR_NO_STREAM);
  Bytes bytes;
  EXPECT_EQ(next(&bytes), CMI_ERR_TIMEOUT) << "the stream was left open, and its silence times out";
  EXPECT_EQ(next(&bytes), CMI_ERR_NO_STREAM);
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

}  // namespace
