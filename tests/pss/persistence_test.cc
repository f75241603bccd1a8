// Persistence: each writer's key and value and how it reports a failed store, the records a restore
// skips or refuses, and the daemon's stores failing to open, copy or shrink.
#include <gtest/gtest.h>

#include <functional>

#include "pss/pss_fixture.h"
#include "pss/store_io.h"

namespace {

using namespace sch::testing;
namespace codec = sch::codec;
using sch::pss::uri_text;

const char *const kInjectedDecoded = "Syserr - type:2 facility:576 number:8";  // PSS2_ERR_IO

class SaveRestore : public PssTest {
 protected:
  void SetUp() override {
    PssTest::SetUp();
    store_ = create(temp_.file("store"));
  }
  void TearDown() override {
    pss2_close(store_);
    PssTest::TearDown();
  }
  pss2_handle store_ = 0;
};

// Each writer: the key it stores under, the record its value must decode to, and its result and
// traces when its store call fails.
struct Writer {
  const char *name;
  std::function<int(pss2_handle)> write;
  std::string key;
  const codec::Layout &layout;
  const void *native;
  int failed;
  std::string failure_trace;
  bool decoded;  // whether the failure code is also traced decoded
};

// The byte images themselves are pinned by the record tests: here the value must be the codec's
// image of the record, under the writer's key.
TEST_F(SaveRestore, EveryWriterStoresTheCodecImageUnderItsKeyOrReportsTheFailure) {
  sch_schedule_entry *schedule = add_schedule("nightly", {0, 255});
  sch_add_schedule_email_entry(&sch_schedule_email_list, "weekly", "ops@example.net");
  auto *email = static_cast<sch_schedule_email_entry *>(sch_schedule_email_list->data);
  std::string long_user(40, 'u');
  sch_user_element *user = add_user(&sch_uname_q, long_user.c_str(), "Zm9v", 0x99);
  sch_runtime_job_status result{"weekly", 12, {0x0300, 1700000000}};
  sch_log_file.count = 5;
  const uint32_t enabled = 1;
  email_transport_conf = sch_email_transport_conf{"from@x", "reply@x", {}, "mail.x", 7, 587, "mgmt"};
  sch_email_transport_conf &conf = email_transport_conf;
  const std::vector<Writer> writers = {
      {"schedule", [&](pss2_handle s) { return sch_save_schedule_entry_to_pss(s, schedule); },
       stored_key(SCH_REC_SCHEDULE, 0, "nightly"), codec::kScheduleRecord, schedule->value, -1,
       "PSS error 0x80480008 while saving the schedule entry nightly", true},
      {"email entry", [&](pss2_handle s) { return sch_save_schedule_email_entry_to_pss(s, email); },
       stored_key(SCH_REC_SCHEDULE_EMAIL, 0, "weekly"), codec::kScheduleEmail, email, -1,
       "PSS error 0x80480008 while saving the schedule email entry weekly", true},
      {"log file", [&](pss2_handle s) { return sch_save_log_file_entry_to_pss(s, &sch_log_file_key, &sch_log_file); },
       stored_key(SCH_REC_LOG_FILE, 0), codec::kLogFileValue, sch_log_file.writer_data, -1,
       "saving log file info FAILED", false},
      {"condition", [&](pss2_handle s) { return sch_save_condition_entry_to_pss(s, &sch_condition_key, enabled); },
       stored_key(SCH_REC_CONDITION, 0), codec::kCondition, &enabled, -1, "saving ENABLE flag FAILED", false},
      {"from", [&](pss2_handle s) { return sch_save_email_from_conf_to_pss(s, &conf); },
       stored_key(SCH_REC_EMAIL_FROM, 0), codec::kEmailAddressValue, conf.from, -1, "saving Email FROM conf FAILED", false},
      {"reply-to", [&](pss2_handle s) { return sch_save_email_replyto_conf_to_pss(s, &conf); },
       stored_key(SCH_REC_EMAIL_REPLY_TO, 0), codec::kEmailAddressValue, conf.reply_to, -1,
       "saving Email Reply-to conf FAILED", false},
      {"smtp", [&](pss2_handle s) { return sch_save_email_smtpserver_conf_to_pss(s, &conf); },
       stored_key(SCH_REC_EMAIL_SMTP, 0), codec::kSmtpServerValue, conf.smtp_server, -1,
       "saving Email smtpserver conf FAILED", false},
      // The key carries the first 32 bytes of the name and the record's word.
      {"user", [&](pss2_handle s) { return static_cast<int>(sch_save_user_config_entry_to_pss(s, &user->record)); },
       stored_key(SCH_REC_USER, 0x99, long_user), codec::kUserRecord, &user->record, static_cast<int>(PSS2_ERR_IO),
       "Error saving username " + long_user + " password Zm9v ", false},
      {"run result", [&](pss2_handle s) { return sch_save_runtime_job_status_entry_to_pss(s, &result); },
       stored_key(SCH_REC_RUNTIME_STATUS, 12, "weekly"), codec::kRunResultValue, result.result, -1,
       "PSS error 0x80480008 saving the job 12 status for schedule weekly", true},
  };
  EXPECT_EQ(sch_save_schedule_email_entry_to_pss(store_, nullptr), 0);
  for (const Writer &w : writers) {
    clear_traces();
    pss2_fault_set(PSS2_FAULT_STORE, 1, PSS2_ERR_IO, 0);
    EXPECT_EQ(w.write(store_), w.failed) << w.name;
    EXPECT_TRUE(traced(w.failure_trace)) << w.name;
    EXPECT_EQ(traced(kInjectedDecoded), w.decoded) << w.name;
    EXPECT_EQ(record_count(store_), 0u) << w.name;
  }
  for (const Writer &w : writers) {
    const std::string before(static_cast<const char *>(w.native), w.layout.size);
    std::string image(w.layout.size, '\0');
    codec::encode(w.layout, w.native, reinterpret_cast<uint8_t *>(image.data()));
    ASSERT_EQ(w.write(store_), 0) << w.name;
    EXPECT_EQ(value_at(store_, w.key), image) << w.name;
    EXPECT_EQ(std::string(static_cast<const char *>(w.native), w.layout.size), before) << w.name << " converted in memory";
  }
  EXPECT_TRUE(traced("Saved username " + long_user + " password Zm9v "));

  EXPECT_EQ(sch_delete_schedule_entry_from_pss(store_, schedule), 0);
  sch_delete_schedule_email_entry_from_pss(store_, email);
  sch_delete_user_config_entry_from_pss(store_, &user->record);
  EXPECT_TRUE(traced("Deleted username " + long_user + " password Zm9v "));
  // Deletion builds a type-4 key, which is not the record's: the result stays, the store says so.
  EXPECT_EQ(sch_delete_job_status_entry_from_pss(store_, &result), PSS2_ERR_NO_KEY);
  EXPECT_EQ(record_count(store_), writers.size() - 3);
}

TEST_F(SaveRestore, AFailedJobSaveLeavesWhatWasWrittenAndNamesTheRecord) {
  sch_job_slot *job = add_job(4, "long", std::string(3000, 'j'));
  sch_job_slot *small = add_job(5, "small", "ls");
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
    pss2_fault_set(PSS2_FAULT_STORE, c.failing_store, PSS2_ERR_IO, 0);
    EXPECT_EQ(sch_save_job_entry_to_pss(store_, c.job), -1);
    EXPECT_TRUE(traced(c.trace)) << c.trace;
    EXPECT_TRUE(traced(kInjectedDecoded));
    EXPECT_EQ(record_count(store_), c.records_left) << c.trace;
    sch_delete_job_entry_from_pss(store_, c.job);
  }
}

TEST_F(SaveRestore, UnreadableValuesAreSkippedAndUnreadableKeysEndTheWalk) {
  for (const char *name : {"a", "b", "c"}) add_schedule(name);
  sch_save_config_to_pss(&sch_running_config, store_);
  forget_memory();

  pss2_fault_set(PSS2_FAULT_GETVALUE, 1, PSS2_ERR_IO, 0);
  sch_restore_config_from_pss(&sch_running_config, store_, 0);
  EXPECT_TRUE(traced("could not retrieve value for a"));
  EXPECT_EQ(g_list_length(sch_schedule_list), 2u);
  forget_memory();

  pss2_fault_set(PSS2_FAULT_GETKEY, 2, PSS2_ERR_IO, 0);
  sch_restore_config_from_pss(&sch_running_config, store_, 0);
  EXPECT_EQ(g_list_length(sch_schedule_list), 1u);
}

TEST_F(SaveRestore, RunResultsOfDeletedJobsAreDroppedAndOutOfMemoryEndsTheWalk) {
  add_job(1, "kept", "true");
  add_job(2, "deleted", "false");
  add_result(1, 's', 1);
  add_result(2, 's', 2);
  add_result(1, 't', 3);
  sch_save_db_to_pss(&sch_running_config, store_);
  sch_free_job_entry(&sch_job_list[1]);
  sch_free_job_entry(&sch_job_list[2]);
  add_job(1, "kept", "true");

  sch_restore_db_from_pss(&sch_running_config, store_);
  EXPECT_EQ(g_list_length(sch_job_list[1].run_results), 2u);
  // Deleting a job's results releases every one (the stored ones stay: see the writers).
  EXPECT_EQ(sch_delete_all_status_for_job_from_pss(store_, &sch_job_list[1]), 0);
  EXPECT_EQ(sch_job_list[1].run_results, nullptr);
  auto texts = trace_texts();
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "pss delete job (kept) status (1)"), 2);

  mtrack_fail_nth(2, 4, 0);  // the second run result cannot be had: the rest is not read
  sch_restore_db_from_pss(&sch_running_config, store_);
  EXPECT_EQ(g_list_length(sch_job_list[1].run_results), 1u);
}

// A damaged store (or a planted one) can file a record under a key its value does not give; the
// record would be saved back under another key, so it is not restored at all.
TEST_F(SaveRestore, UserAndEmailRecordsUnderAKeyTheirValueDoesNotGiveAreDroppedAndUnallocatedUsersSkipped) {
  add_user(&sch_uname_q, "kept", "a", 1);
  add_user(&sch_uname_q, "moved", "b", 2);
  ASSERT_EQ(sch_add_schedule_email_entry(&sch_schedule_email_list, "s", "a@example.net"), 0);
  sch_save_config_to_pss(&sch_running_config, store_);
  ASSERT_EQ(sch_save_schedule_email_entry_to_pss(store_, static_cast<sch_schedule_email_entry *>(sch_schedule_email_list->data)), 0);
  forget_memory();
  auto copy_under = [&](const std::string &from, const std::string &to) {
    std::string value = value_at(store_, from);
    ASSERT_NE(value, "<none>");
    pss2_datum key{const_cast<char *>(to.data()), SCH_KEY_SIZE};
    pss2_datum datum{value.data(), static_cast<int32_t>(value.size())};
    ASSERT_EQ(pss2_store(store_, &key, &datum), 0u);
  };
  copy_under(stored_key(SCH_REC_USER, 2, "moved"), stored_key(SCH_REC_USER, 2, "aaa"));    // another name
  copy_under(stored_key(SCH_REC_USER, 2, "moved"), stored_key(SCH_REC_USER, 7, "moved"));  // another word
  copy_under(stored_key(SCH_REC_SCHEDULE_EMAIL, 0, "s"), stored_key(SCH_REC_SCHEDULE_EMAIL, 0, "r"));
  copy_under(stored_key(SCH_REC_SCHEDULE_EMAIL, 0, "s"), stored_key(SCH_REC_SCHEDULE_EMAIL, 1, "s"));

  sch_restore_config_from_pss(&sch_running_config, store_, 0);
  ASSERT_EQ(sch_uname_q.count, 2u);
  auto *first = static_cast<sch_user_element *>(peek_head(&sch_uname_q));
  EXPECT_STREQ(first->record.user, "kept");
  EXPECT_STREQ(static_cast<sch_user_element *>(first->link)->record.user, "moved");
  ASSERT_EQ(g_list_length(sch_schedule_email_list), 1u);
  auto texts = trace_texts();
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "dropped record of type 9 for moved: its key is not its value's"), 2);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "dropped record of type 8 for s: its key is not its value's"), 2);

  // A user that cannot be allocated is skipped.
  forget_memory();
  mtrack_fail_nth(1, 16, 0);
  sch_restore_config_from_pss(&sch_running_config, store_, 0);
  EXPECT_EQ(sch_uname_q.count, 1u);
  EXPECT_TRUE(traced("Failed to allocate memory for q elem, username kept"));
}

const std::string kIoCode = std::to_string(static_cast<int>(PSS2_ERR_IO));

using Stores = PssTest;

// Each way of opening the daemon's stores, on fresh files, with the Nth open failing (0: none):
// its result, the stores open after it and its trace. Every failed creation is also logged.
TEST_F(Stores, EachOpeningReportsTheStoreThatCannotBeHad) {
  start_platform(true);
  capture_syslog();
  const std::string running = uri_text(sch_pss_running_uri), db = uri_text(sch_pss_running_db_uri);
  struct Opening {
    int (*open)();
    uint64_t failing;
    int result;
    bool running_open, db_open;
    std::string trace;
  };
  const Opening openings[] = {
      {sch_pss_init, 2, 66, true, false, "Cannot open runtime db pss at " + db},
      {sch_pss_init, 1, 66, false, false, "Cannot open runtime pss at " + running},
      {sch_standby_pss_init, 0, 0, true, true, ""},
      {sch_standby_pss_init, 1, -1, false, false, "Failed to open pss. Uri " + running},
      {sch_standby_pss_init, 2, -1, true, false, "Failed to open pss. Uri " + db},
      // After a failed global sync, whatever was open: a runtime database that cannot be made
      // again is not reported.
      {sch_standby_pss_init_gsync_fail, 2, 0, true, false, ""},
      {sch_standby_pss_init_gsync_fail, 1, -1, false, false, "Failed to open pss. Uri " + running},
  };
  for (const Opening &o : openings) {
    SCOPED_TRACE(std::to_string(&o - openings));
    if (o.open != sch_standby_pss_init_gsync_fail) {
      close_all();
      pss2_destroy(running.c_str());
      pss2_destroy(db.c_str());
    }
    clear_traces();
    syslog_.clear();
    if (o.failing) pss2_fault_set(PSS2_FAULT_OPEN, o.failing, PSS2_ERR_IO, 0);
    EXPECT_EQ(o.open(), o.result);
    EXPECT_EQ(pss_running != 0, o.running_open);
    EXPECT_EQ(pss_running_db != 0, o.db_open);
    EXPECT_TRUE(o.trace.empty() || traced(o.trace)) << o.trace;
    std::vector<std::string> logged;
    if (o.failing) logged.push_back("%SCHEDULER-3-SCH_SYSLOG_PSS_ERR>> Purpose:Failed to create PSS %s URI:" +
                                    (o.failing == 1 ? running : db) + " Error:" + kIoCode);
    EXPECT_EQ(syslog_, logged);
  }

  // After a failed global sync the standby starts with empty stores.
  ASSERT_EQ(sch_standby_pss_init(), 0);
  ASSERT_EQ(sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 1), 0);
  ASSERT_EQ(sch_standby_pss_init_gsync_fail(), 0);
  EXPECT_EQ(record_count(pss_running), 0u);
  EXPECT_NE(pss_running_db, 0u);
}

class Running : public PssTest {
 protected:
  void SetUp() override {
    PssTest::SetUp();
    start_platform(true);
    ASSERT_EQ(sch_pss_init(), 0);
    capture_syslog();
    clear_traces();
  }
};

// What the failed copy leaves of the old startup store is the store service's to keep whole.
TEST_F(Running, AFailedCopyIsTracedAndLogged) {
  const std::string startup = uri_text(sch_pss_startup_uri), running = uri_text(sch_pss_running_uri);
  ASSERT_EQ(sch_pss_snapshot(running.c_str(), startup.c_str()), 0);
  pss2_fault_set(PSS2_FAULT_SNAPSHOT, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_pss_snapshot(running.c_str(), startup.c_str()), -1);
  EXPECT_TRUE(traced("PSS " + running + " to " + startup + " snapshot failed"));
  EXPECT_TRUE(traced(kInjectedDecoded));
  EXPECT_EQ(syslog_, std::vector<std::string>{"%SCHEDULER-2-SCH_SYSLOG_PSS_SNAPSHOT_ERR>> Source URI:" + running +
                                              " Destination URI:" + startup + " errcode:" + kIoCode});
}

// A failed step stops the shrinking pass with its status; a failed shrink closes the store to the
// daemon.
TEST_F(Running, AFailedShrinkOrFreeSpaceQueryStopsThePass) {
  pss2_handle running = pss_running;
  pss2_fault_set(PSS2_FAULT_FREE_SPACE, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_pss_shrink(0), PSS2_ERR_IO);
  EXPECT_EQ(pss_running, running);
  EXPECT_TRUE(traced("Freespace 0 max size 0. Uri " + uri_text(sch_pss_running_uri)));
  EXPECT_FALSE(traced("Free space in " + uri_text(sch_pss_running_db_uri) + ": 0 status: 0x0 "));

  sch_job_slot *job = add_job(1, "big", std::string(8182, 'j'));
  sch_save_job_entry_to_pss(pss_running_db, job);
  sch_delete_job_entry_from_pss(pss_running_db, job);
  pss2_fault_set(PSS2_FAULT_SHRINK, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_pss_shrink(0), PSS2_ERR_IO);
  // The first store had no free space worth a shrink, or was shrunk; the second failed.
  EXPECT_NE(pss_running, 0u);
  EXPECT_EQ(pss_running_db, 0u);
}

}  // namespace
