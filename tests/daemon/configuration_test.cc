// The largest configuration text streamed back whole over the socket while a slow client waits.
#include "daemon_testing.h"

namespace {

using namespace daemon_testing;

class DaemonConfiguration : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_enabled();
  }
};

TEST_F(DaemonConfiguration, LargestConfigurationStreamsBackWholeWhileOthersAreServed) {
  std::string expected = "feature scheduler\n\n";
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    std::string name = "job" + std::to_string(id);
    std::string text;
    while (text.size() < SCH_JOB_TEXT_MAX) text += "echo " + name + " " + std::to_string(text.size()) + "\n";
    text.resize(SCH_JOB_TEXT_MAX - 1);
    text += "\n";
    ASSERT_TRUE(answered(configure(job_request(SCH_REQ_CREATE_JOB, name)), 0));
    ASSERT_TRUE(answered(configure(job_request(SCH_REQ_DEFINE_JOB, name, text)), 0));
    expected += "scheduler job name " + name + "\n" + text + "end-job\n\n";
  }
  ASSERT_GT(expected.size(), 2u * 1024 * 1024);

  // A second client asks and does not read yet: the daemon goes on serving the first.
  cmi_session *slow = cmi_session_open(socket_path().c_str());
  cmi_session_timeout_set(slow, 5000);
  const uint8_t request[2] = {ACFG_CFG_RUNNING, 0};
  cmi_token_source source{};
  ASSERT_EQ(cmi_send_request(ACFG_SERVICE, ACFG_OP_CONFIG_TEXT, request, sizeof request, nullptr, nullptr, nullptr,
                             slow, &source),
            0u);
  EXPECT_EQ(job_text("job255").size(), size_t{SCH_JOB_TEXT_MAX});
  EXPECT_EQ(running_config(), expected);

  mts_stream_context context{};
  context.mode = 1;
  context.token = mts_rr_token_get(&source);
  std::string gathered;
  cmi_message message{};
  uint32_t status;
  while ((status = mts_recv(slow, &message, &context)) == 0) {
    gathered.append(static_cast<const char *>(message.payload), message.length);
    cmi_message_release(&message);
  }
  EXPECT_EQ(status, CMI_STREAM_END);
  EXPECT_EQ(gathered, expected);
  cmi_session_close(slow);
}

}  // namespace
