// The configuration framework's requests: startup configuration text, the logging level, the
// largest configuration streamed back, and the memory statistics.
#include "daemon_testing.h"

namespace {

using namespace daemon_testing;

class DaemonConfiguration : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_enabled();
  }
  void configure_small() {
    sch_email_transport_conf transport{};
    set_text(transport.from, "sched@example.com");
    set_text(transport.smtp_server, "192.0.2.1");
    transport.smtp_reserved = 1;
    transport.smtp_port = 2525;
    for (const Bytes &request :
         {log_file_request(SCH_REQ_LOG_SIZE, false, "", 10240),
          credential_request(SCH_CREDENTIAL_STORE, own_user(), "7$secret"),
          transport_request(SCH_REQ_EMAIL_FROM, transport), transport_request(SCH_REQ_EMAIL_SMTP, transport),
          job_request(SCH_REQ_CREATE_JOB, "backup"),
          job_request(SCH_REQ_DEFINE_JOB, "backup", "tar c /etc\necho done\n"),
          schedule_request(SCH_REQ_CREATE_SCHEDULE, "nightly"),
          modify_request("nightly", SCH_MODIFY_DAILY, daily(2, 30)), assign_request("nightly", "backup"),
          email_request(SCH_EMAIL_ADD, "nightly", "ops@example.com")}) {
      ASSERT_TRUE(answered(configure(request), 0));
    }
  }
  std::string small_text(const std::string &logging_line = "") {
    std::string user = "scheduler aaa-authentication username " + own_user() + " password 7 7$secret\n\n";
    return "feature scheduler\n" + logging_line + "scheduler logfile size 10\n\n" + user +
           "scheduler transport email from sched@example.com\n"
           "scheduler transport email smtp-server 192.0.2.1 port 2525\n"
           "scheduler job name backup\ntar c /etc\necho done\nend-job\n\n"
           "scheduler schedule name nightly\n  job name backup\n  time daily 02:30\nemail-addr ops@example.com\n\n";
  }
  uint32_t logging_level(uint32_t level, const char *facility = "scheduler") {
    return acfg_request_logging_level(session(), facility, level);
  }
  uint32_t copy_to_startup() { return acfg_request_copy_startup(session()); }
};

TEST_F(DaemonConfiguration, LoggingLevelLineComesGoesAndSurvivesRestarts) {
  configure_small();
  EXPECT_TRUE(answered({logging_level(3), {}}, 0));
  EXPECT_EQ(running_config(), small_text("logging level scheduler 3\n"));
  EXPECT_TRUE(answered({logging_level(5), {}}, 0));
  EXPECT_EQ(running_config(), small_text()) << "the default level has no line";
  EXPECT_TRUE(answered({logging_level(0), {}}, 0));
  ASSERT_EQ(stop(), 0);
  start_or_fail();
  EXPECT_EQ(running_config(), small_text("logging level scheduler 0\n"));
  EXPECT_TRUE(answered({logging_level(ACFG_LEVEL_DEFAULT), {}}, 0));
  EXPECT_EQ(running_config(), small_text());

  EXPECT_TRUE(answered({logging_level(3, "bgp"), {}}, SCH_STATUS_NO_SUCH_FACILITY));
  const uint8_t unterminated[] = {3, 's', 'c', 'h'};
  EXPECT_TRUE(
      answered(call(ACFG_SERVICE, ACFG_OP_LOGGING_LEVEL, Bytes(std::begin(unterminated), std::end(unterminated))),
               SCH_STATUS_BAD_REQUEST));
  const uint8_t too_high[] = {8, 's', 'c', 'h', 'e', 'd', 'u', 'l', 'e', 'r', 0};
  EXPECT_TRUE(answered(call(ACFG_SERVICE, ACFG_OP_LOGGING_LEVEL, Bytes(std::begin(too_high), std::end(too_high))),
                       SCH_STATUS_BAD_REQUEST));
}

TEST_F(DaemonConfiguration, StartupTextRefreshesTheLiveSingleInstanceRecordsOnly) {
  configure_small();
  ASSERT_TRUE(answered({copy_to_startup(), {}}, 0));
  std::string startup = startup_config();
  // The running configuration moves on from the copy.
  sch_email_transport_conf no_server{};
  no_server.smtp_port = 25;
  for (const Bytes &request :
       {email_request(SCH_EMAIL_DELETE, "nightly", "ops@example.com"), log_file_request(SCH_REQ_LOG_SIZE, true),
        transport_request(SCH_REQ_NO_EMAIL_FROM, {}), transport_request(SCH_REQ_NO_EMAIL_SMTP, no_server)}) {
    ASSERT_TRUE(answered(configure(request), 0));
  }
  ASSERT_NE(running_config(), startup);
  ASSERT_TRUE(answered(configure(job_request(SCH_REQ_CREATE_JOB, "later")), 0));

  // Showing the startup configuration brings the log file, transport and email records of the
  // startup store into the live configuration (intended); the job created since stays.
  EXPECT_EQ(startup_config(), startup);
  std::string running = running_config();
  EXPECT_NE(running.find("scheduler logfile size 10\n"), std::string::npos) << running;
  EXPECT_NE(running.find("scheduler transport email from sched@example.com\n"), std::string::npos) << running;
  EXPECT_NE(running.find("email-addr ops@example.com\n"), std::string::npos) << running;
  EXPECT_NE(running.find("scheduler job name later\n"), std::string::npos) << running;
  Answer size = display(header_request(SCH_REQ_GET_LOG_CONFIG));
  EXPECT_EQ(sch_wire_get_u32(size.payload.data()), 10240u);

  // A startup configuration with the feature off has no text either.
  ASSERT_TRUE(answered({feature(FM_FEATURE_DISABLE), {}}, 0));
  ASSERT_TRUE(answered({copy_to_startup(), {}}, 0));
  EXPECT_EQ(startup_config(), "");
}

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

TEST_F(DaemonConfiguration, MemoryStatisticsAndRequestsThatDoNotHoldUp) {
  char *text = nullptr;
  size_t length = 0;
  ASSERT_EQ(acfg_request_memory_stats(session(), &text, &length), 0u);
  EXPECT_EQ(std::string(text, length).rfind("identity kind", 0), 0u) << text;
  std::free(text);

  EXPECT_TRUE(answered(call(ACFG_SERVICE, 99, Bytes{0}), SCH_STATUS_UNKNOWN_REQUEST));
  EXPECT_TRUE(answered(call(ACFG_SERVICE, ACFG_OP_COPY_STARTUP, Bytes{}), SCH_STATUS_BAD_REQUEST));
  EXPECT_TRUE(answered({acfg_request_config_text(session(), 3, 0, &text, &length), {}}, SCH_STATUS_BAD_REQUEST));
  EXPECT_EQ(text, nullptr);

  ASSERT_EQ(stop(), 0);
  start_or_fail({"--standby"});
  EXPECT_TRUE(answered({copy_to_startup(), {}}, SCH_STATUS_STANDBY));
  EXPECT_TRUE(answered({logging_level(3), {}}, SCH_STATUS_STANDBY));
}

}  // namespace
