// Record writers: the exact keys and values each one stores, and how each reports a failed store.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "pss/pss_fixture.h"
#include "pss/store_reader.h"

namespace {

using namespace sch::testing;

constexpr uint32_t kInjected = PSS2_ERR_IO;  // 0x80480008: type 2, facility 576, number 8
const char *const kInjectedDecoded = "Syserr - type:2 facility:576 number:8";

class Writers : public PssTest {
 protected:
  void SetUp() override {
    PssTest::SetUp();
    store_ = create(path("writers"));
  }
  void TearDown() override {
    pss2_close(store_);
    PssTest::TearDown();
  }
  bool traced(const std::string &text) {
    auto texts = trace_texts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }
  pss2_handle store_ = 0;
};

TEST_F(Writers, ScheduleRecordGoesUnderItsOwnKeyAsABigEndianImage) {
  sch_schedule_entry *schedule = add_schedule(&sch_running_config, "nightly", tminfo{3, 2, 0, 0, 30, 0, 0, 0, 0, 0}, {0, 255});
  ASSERT_EQ(sch_save_schedule_entry_to_pss(store_, schedule), 0);
  std::string value = value_at(store_, stored_key(SCH_REC_SCHEDULE, 0, "nightly"));
  ASSERT_EQ(value.size(), 144u);
  EXPECT_EQ(value.substr(8, 4), be32(1));
  EXPECT_EQ(value.substr(36, 4), be32(0x80000000));
  EXPECT_EQ(value.substr(44, 8), be32(3) + be32(2));
  EXPECT_EQ(value.substr(92, 4), be32(2));
  EXPECT_EQ(schedule->key->type, 0u) << "the in-memory key is not converted";

  EXPECT_EQ(sch_delete_schedule_entry_from_pss(store_, schedule), 0);
  EXPECT_TRUE(all_records(store_).empty());
}

TEST_F(Writers, EmailEntriesUsersAndRunResultsUseTheirKeys) {
  EXPECT_EQ(sch_save_schedule_email_entry_to_pss(store_, nullptr), 0);
  EXPECT_TRUE(all_records(store_).empty());

  sch_add_schedule_email_entry(&sch_schedule_email_list, "weekly", "ops@example.net");
  auto *entry = static_cast<sch_schedule_email_entry *>(sch_schedule_email_list->data);
  ASSERT_EQ(sch_save_schedule_email_entry_to_pss(store_, entry), 0);
  std::string email = value_at(store_, stored_key(SCH_REC_SCHEDULE_EMAIL, 0, "weekly"));
  ASSERT_EQ(email.size(), 716u);
  EXPECT_EQ(email.substr(32, 4), be32(1));

  std::string long_user(40, 'u');
  sch_user_element *user = add_user(&sch_uname_q, long_user.c_str(), "Zm9v", 0x99);
  EXPECT_EQ(sch_save_user_config_entry_to_pss(store_, &user->record), 0u);
  std::string user_value = value_at(store_, stored_key(SCH_REC_USER, 0x99, long_user.substr(0, 32)));
  ASSERT_EQ(user_value.size(), 264u);
  EXPECT_EQ(user_value.substr(0, 40), long_user);
  EXPECT_TRUE(traced("Saved username " + long_user + " password Zm9v "));

  sch_runtime_job_status result{"weekly", 12, {0x0300, 1700000000}};
  EXPECT_EQ(sch_save_runtime_job_status_entry_to_pss(store_, &result), 0);
  EXPECT_EQ(value_at(store_, stored_key(SCH_REC_RUNTIME_STATUS, 12, "weekly")), be32(0x0300) + be32(1700000000));

  // Deletion builds a type-4 key, which is not the record's: the result stays, the store says so.
  EXPECT_EQ(sch_delete_job_status_entry_from_pss(store_, &result), PSS2_ERR_NO_KEY);
  EXPECT_NE(value_at(store_, stored_key(SCH_REC_RUNTIME_STATUS, 12, "weekly")), "<none>");

  sch_delete_schedule_email_entry_from_pss(store_, entry);
  sch_delete_user_config_entry_from_pss(store_, &user->record);
  EXPECT_TRUE(traced("Deleted username " + long_user + " password Zm9v "));
  EXPECT_EQ(all_records(store_).size(), 1u);
}

// Each writer, with its first store call failing: its result and its traces.
struct FailureCase {
  const char *name;
  std::function<int(pss2_handle)> write;
  int result;
  const char *trace;
  bool decoded;  // whether the code is also traced decoded
};

TEST_F(Writers, EveryWriterReportsAFailedStoreItsOwnWay) {
  sch_schedule_entry *schedule = add_schedule(&sch_running_config, "sched", tminfo{3, 1, 0, 0, 0, 0, 0, 0, 0, 0}, {});
  sch_add_schedule_email_entry(&sch_schedule_email_list, "sched", "a@b");
  auto *email = static_cast<sch_schedule_email_entry *>(sch_schedule_email_list->data);
  sch_user_element *user = add_user(&sch_uname_q, "bob", "c2VjcmV0", 0);
  sch_runtime_job_status result{"sched", 7, {0, 0}};
  const std::vector<FailureCase> cases = {
      {"schedule", [&](pss2_handle s) { return sch_save_schedule_entry_to_pss(s, schedule); }, -1,
       "PSS error 0x80480008 while saving the schedule entry sched", true},
      {"email entry", [&](pss2_handle s) { return sch_save_schedule_email_entry_to_pss(s, email); }, -1,
       "PSS error 0x80480008 while saving the schedule email entry sched", true},
      {"log file", [&](pss2_handle s) { return sch_save_log_file_entry_to_pss(s, &sch_log_file_key, &sch_log_file); }, -1,
       "saving log file info FAILED", false},
      {"condition", [&](pss2_handle s) { return sch_save_condition_entry_to_pss(s, &sch_condition_key, 1); }, -1,
       "saving ENABLE flag FAILED", false},
      {"from", [&](pss2_handle s) { return sch_save_email_from_conf_to_pss(s, &email_transport_conf); }, -1,
       "saving Email FROM conf FAILED", false},
      {"reply-to", [&](pss2_handle s) { return sch_save_email_replyto_conf_to_pss(s, &email_transport_conf); }, -1,
       "saving Email Reply-to conf FAILED", false},
      {"smtp", [&](pss2_handle s) { return sch_save_email_smtpserver_conf_to_pss(s, &email_transport_conf); }, -1,
       "saving Email smtpserver conf FAILED", false},
      {"user", [&](pss2_handle s) { return static_cast<int>(sch_save_user_config_entry_to_pss(s, &user->record)); },
       static_cast<int>(kInjected), "Error saving username bob password c2VjcmV0 ", false},
      {"run result", [&](pss2_handle s) { return sch_save_runtime_job_status_entry_to_pss(s, &result); }, -1,
       "PSS error 0x80480008 saving the job 7 status for schedule sched", true},
  };
  for (const FailureCase &c : cases) {
    clear_traces();
    pss2_fault_set(PSS2_FAULT_STORE, 1, kInjected, 0);
    EXPECT_EQ(c.write(store_), c.result) << c.name;
    EXPECT_TRUE(traced(c.trace)) << c.name;
    EXPECT_EQ(traced(kInjectedDecoded), c.decoded) << c.name;
    EXPECT_TRUE(all_records(store_).empty()) << c.name;
  }
}

TEST_F(Writers, AFailedJobSaveLeavesWhatWasWrittenAndNamesTheRecord) {
  sch_job_slot *job = add_job(&sch_running_config, 4, "long", text_of(3000));
  sch_job_slot *small = add_job(&sch_running_config, 5, "small", "ls");
  struct Case {
    sch_job_slot *job;
    uint64_t failing_store;
    const char *trace;
    size_t records_left;
  };
  for (const Case &c : {Case{job, 1, "PSS error 0x80480008 while saving the job hdr long", 0},
                        Case{small, 2, "PSS error 0x80480008 while saving the job fragment small", 1},
                        Case{job, 3, "PSS error 0x80480008 saving the job long fragment 2", 2}}) {
    clear_traces();
    pss2_fault_set(PSS2_FAULT_STORE, c.failing_store, kInjected, 0);
    EXPECT_EQ(sch_save_job_entry_to_pss(store_, c.job), -1);
    EXPECT_TRUE(traced(c.trace)) << c.trace;
    EXPECT_TRUE(traced(kInjectedDecoded));
    auto records = all_records(store_);
    EXPECT_EQ(records.size(), c.records_left) << c.trace;
    sch_delete_job_entry_from_pss(store_, c.job);
  }
}

}  // namespace
