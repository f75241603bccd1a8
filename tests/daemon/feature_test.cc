// The scheduler feature: on and off through the feature manager, the refusal of every scheduler
// request while it is off, and a disable that leaves nothing of the configuration behind.
#include <sstream>

#include "daemon_testing.h"
#include "schedcli/diag.h"
#include "schedcli/pss.h"

namespace {

using namespace daemon_testing;

class DaemonFeature : public DaemonTest {
 protected:
  void configure_everything() {
    std::string me = own_user();
    sch_email_transport_conf transport{};
    set_text(transport.smtp_server, "mail.example.com");
    transport.smtp_reserved = 16;
    transport.smtp_port = 2525;
    for (const Bytes &request :
         {job_request(SCH_REQ_CREATE_JOB, "backup"), job_request(SCH_REQ_DEFINE_JOB, "backup", "echo hi\n"),
          schedule_request(SCH_REQ_CREATE_SCHEDULE, "nightly"), assign_request("nightly", "backup"),
          email_request(SCH_EMAIL_ADD, "nightly", "ops@example.com"),
          credential_request(SCH_CREDENTIAL_STORE, me, "7$secret"),
          log_file_request(SCH_REQ_LOG_SIZE, false, "", 10240), log_file_request(SCH_REQ_LOG_NAME, false, "moved.dat"),
          transport_request(SCH_REQ_EMAIL_SMTP, transport)}) {
      ASSERT_TRUE(answered(configure(request), 0));
    }
    ASSERT_EQ(acfg_request_logging_level(session(), "scheduler", 2), 0u);
  }

  // The live blocks of the scheduler's own allocations, from the daemon's memory statistics.
  uint64_t daemon_live_blocks() {
    char *text = nullptr;
    EXPECT_EQ(acfg_request_memory_stats(session(), &text, nullptr), 0u);
    std::istringstream lines(text ? text : "");
    std::free(text);
    uint64_t live = 0;
    std::string line;
    std::getline(lines, line);  // the column heads
    for (unsigned identity, kind; lines >> identity >> kind;) {
      uint64_t blocks = 0;
      lines >> blocks;
      if (identity == SCH_MTRACK_IDENTITY) live += blocks;
      std::getline(lines, line);
    }
    return live;
  }

  // Records of a stopped daemon's store.
  size_t stored_records(const std::string &store) {
    uint32_t status = 0;
    pss2_handle handle = pss2_open((runtime_dir_ + "/" + store).c_str(), PSS2_MODE_READ, 0, 0, nullptr, &status);
    EXPECT_EQ(status, 0u) << store;
    size_t count = 0;
    for (uint32_t at = pss2_move2location(&handle, 0, PSS2_LOCATION_FIRST, nullptr); at == 0;
         at = pss2_move2location(&handle, 0, PSS2_LOCATION_NEXT, nullptr)) {
      count++;
    }
    pss2_close(handle);
    return count;
  }

  void expect_nothing_configured() {
    EXPECT_TRUE(job_names().empty());
    EXPECT_TRUE(schedule_names().empty());
    EXPECT_TRUE(decode_credentials(credential_list().payload).empty());
    Answer size = display(header_request(SCH_REQ_GET_LOG_CONFIG));
    ASSERT_EQ(size.payload.size(), 4u);
    EXPECT_EQ(sch_wire_get_u32(size.payload.data()), 16384u);
    Answer transport =
        call(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, header_request(SCH_REQ_GET_EMAIL_TRANSPORT));
    sch_email_transport_conf conf{};
    sch_wire_decode(SCH_WIRE_TRANSPORT_CONF, transport.payload.data(), transport.payload.size(), &conf);
    EXPECT_EQ(std::string(conf.smtp_server), "");
    EXPECT_EQ(conf.smtp_reserved, 1u);
    EXPECT_EQ(conf.smtp_port, 25u);
    EXPECT_EQ(std::string(conf.vrf), "management");
    EXPECT_EQ(running_config(), "feature scheduler\n\n") << "no logging level, size or transport line";
  }
};

TEST_F(DaemonFeature, EnableAndDisableAnswerTheStateTheFeatureIsAlreadyIn) {
  start_or_fail();
  EXPECT_TRUE(answered({feature(FM_FEATURE_DISABLE), {}}, FM_ERR_ALREADY_DISABLED)) << "off after a first start";
  EXPECT_TRUE(answered({feature(FM_FEATURE_ENABLE), {}}, 0));
  EXPECT_TRUE(answered({feature(FM_FEATURE_ENABLE), {}}, FM_ERR_ALREADY_ENABLED));
  EXPECT_TRUE(answered({feature(FM_FEATURE_ENABLE, "bgp"), {}}, SCH_STATUS_NO_SUCH_FEATURE));
  // The action in the payload and the opcode disagree.
  const uint8_t mixed[] = {FM_FEATURE_ENABLE, 's', 'c', 'h', 'e', 'd', 'u', 'l', 'e', 'r', 0};
  EXPECT_TRUE(answered(call(FM_SERVICE, FM_FEATURE_DISABLE, Bytes(std::begin(mixed), std::end(mixed))),
                       SCH_STATUS_BAD_REQUEST));
  EXPECT_TRUE(answered(call(FM_SERVICE, FM_FEATURE_ENABLE, Bytes{FM_FEATURE_ENABLE}), SCH_STATUS_BAD_REQUEST));

  ASSERT_EQ(stop(), 0);
  start_or_fail();
  EXPECT_TRUE(answered({feature(FM_FEATURE_ENABLE), {}}, FM_ERR_ALREADY_ENABLED)) << "kept across a restart";
  EXPECT_TRUE(answered({feature(FM_FEATURE_DISABLE), {}}, 0));
  EXPECT_TRUE(answered({feature(FM_FEATURE_DISABLE), {}}, FM_ERR_ALREADY_DISABLED));

  ASSERT_EQ(stop(), 0);
  start_or_fail({"--standby"});
  EXPECT_TRUE(answered({feature(FM_FEATURE_ENABLE), {}}, SCH_STATUS_STANDBY));
}

TEST_F(DaemonFeature, EverySchedulerRequestIsRefusedWhileTheFeatureIsOff) {
  start_or_fail();
  for (const Bytes &request :
       {job_request(SCH_REQ_CREATE_JOB, "j"), schedule_request(SCH_REQ_CREATE_SCHEDULE, "s"),
        email_request(SCH_EMAIL_ADD, "s", "a@b.c"), credential_request(SCH_CREDENTIAL_FETCH, own_user()),
        log_file_request(SCH_REQ_LOG_CLEAR, false),
        transport_request(SCH_REQ_NO_EMAIL_FROM, sch_email_transport_conf{})}) {
    EXPECT_TRUE(answered(configure(request), SCH_STATUS_FEATURE_DISABLED)) << request.size() << " bytes";
  }
  EXPECT_TRUE(answered(display(display_request(SCH_REQ_GET_SCHEDULES, "", -1)), SCH_STATUS_FEATURE_DISABLED));
  EXPECT_TRUE(answered(display(header_request(SCH_REQ_GET_LOG_CONFIG)), SCH_STATUS_FEATURE_DISABLED));
  EXPECT_TRUE(
      answered(call(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, header_request(SCH_REQ_GET_EMAIL_TRANSPORT)),
               SCH_STATUS_FEATURE_DISABLED));
  EXPECT_TRUE(answered(credential_list(), SCH_STATUS_FEATURE_DISABLED));
  EXPECT_TRUE(answered({acfg_request_logging_level(session(), "scheduler", 3), {}}, SCH_STATUS_FEATURE_DISABLED));
  // A malformed record is still called malformed.
  EXPECT_TRUE(answered(configure(header_request(SCH_REQ_CREATE_JOB)), SCH_STATUS_BAD_REQUEST));
  // The scheduler adds nothing to the configuration while it is off.
  EXPECT_EQ(running_config(), "");

  ASSERT_EQ(stop(), 0);
  start_or_fail({"--enable-feature"});
  EXPECT_TRUE(answered(configure(job_request(SCH_REQ_CREATE_JOB, "j")), 0));
}

TEST_F(DaemonFeature, DisableLeavesNothingOfTheConfigurationInMemoryOrInTheStores) {
  start_enabled();
  configure_everything();
  std::string moved = state_dir_ + "/moved.dat";
  ASSERT_TRUE(std::filesystem::exists(moved));
  ASSERT_EQ(stop(), 0);
  // A run result, as a job runner would have left it.
  uint32_t status = 0;
  pss2_handle results =
      pss2_open((runtime_dir_ + "/scheduler_runtime_database").c_str(), PSS2_MODE_UPDATE, 0, 0, nullptr, &status);
  sch_runtime_job_status result{};
  set_text(result.schedule, "nightly");
  ASSERT_EQ(sch_save_runtime_job_status_entry_to_pss(results, &result), 0);
  pss2_close(results);
  start_or_fail();
  EXPECT_GT(daemon_live_blocks(), 0u);

  ASSERT_TRUE(answered({feature(FM_FEATURE_DISABLE), {}}, 0));
  EXPECT_EQ(daemon_live_blocks(), 0u) << "every block of the database released";
  EXPECT_FALSE(std::filesystem::exists(moved)) << "the run log goes with the configuration";
  EXPECT_EQ(std::filesystem::file_size(state_dir_ + "/scheduler_circular_log.dat"), 0u);

  ASSERT_EQ(stop(), 0);
  EXPECT_EQ(stored_records("scheduler_runtime"), 1u) << "the condition record alone";
  EXPECT_EQ(stored_records("scheduler_runtime_database"), 0u);
  EXPECT_EQ(stored_records("scheduler_debug_runtime"), 0u);
  start_or_fail();
  EXPECT_TRUE(answered(display(display_request(SCH_REQ_GET_JOBS, "", -1)), SCH_STATUS_FEATURE_DISABLED));
  enable_feature();
  expect_nothing_configured();
}

}  // namespace
