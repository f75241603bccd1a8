// Restore of whole configurations from damaged or planted stores: the records it skips or drops,
// allocation failures, and releasing a deleted job's run results.
#include <gtest/gtest.h>
#include <lmdb.h>

#include <algorithm>

#include "pss/pss_fixture.h"
#include "pss/store_reader.h"

namespace {

using namespace sch::testing;

class Restore : public PssTest {
 protected:
  void SetUp() override {
    PssTest::SetUp();
    config_ = create(path("config"));
    results_ = create(path("results"));
  }
  void TearDown() override {
    if (config_) pss2_close(config_);
    if (results_) pss2_close(results_);
    PssTest::TearDown();
  }

  void forget_memory() {
    release_all();
    reset_globals();
  }

  pss2_handle config_ = 0;
  pss2_handle results_ = 0;
};

TEST_F(Restore, UnreadableValuesAreSkippedAndUnreadableKeysEndTheWalk) {
  add_schedule(&sch_running_config, "a", tminfo{3, 1, 0, 0, 0, 0, 0, 0, 0, 0}, {});
  add_schedule(&sch_running_config, "b", tminfo{3, 1, 0, 0, 0, 0, 0, 0, 0, 0}, {});
  add_schedule(&sch_running_config, "c", tminfo{3, 1, 0, 0, 0, 0, 0, 0, 0, 0}, {});
  sch_save_config_to_pss(&sch_running_config, config_);
  forget_memory();

  pss2_fault_set(PSS2_FAULT_GETVALUE, 1, PSS2_ERR_IO, 0);
  sch_restore_config_from_pss(&sch_running_config, config_, 0);
  auto texts = trace_texts();
  EXPECT_NE(std::find(texts.begin(), texts.end(), "could not retrieve value for a"), texts.end());
  EXPECT_EQ(g_list_length(sch_schedule_list), 2u);
  forget_memory();

  pss2_fault_set(PSS2_FAULT_GETKEY, 2, PSS2_ERR_IO, 0);
  sch_restore_config_from_pss(&sch_running_config, config_, 0);
  EXPECT_EQ(g_list_length(sch_schedule_list), 1u);
}

TEST_F(Restore, RunResultsOfDeletedJobsAreDroppedAndOutOfMemoryEndsTheWalk) {
  add_job(&sch_running_config, 1, "kept", "true");
  add_job(&sch_running_config, 2, "deleted", "false");
  add_result(&sch_running_config, 1, "s", 0, 1);
  add_result(&sch_running_config, 2, "s", 0, 2);
  add_result(&sch_running_config, 1, "t", 0, 3);
  sch_save_db_to_pss(&sch_running_config, results_);
  sch_free_job_entry(&sch_job_list[1]);
  sch_free_job_entry(&sch_job_list[2]);
  add_job(&sch_running_config, 1, "kept", "true");

  sch_restore_db_from_pss(&sch_running_config, results_);
  EXPECT_EQ(g_list_length(sch_job_list[1].run_results), 2u);
  auto texts = trace_texts();
  EXPECT_NE(std::find(texts.begin(), texts.end(), "job key not present!"), texts.end());
  sch_free_job_entry(&sch_job_list[1]);
  add_job(&sch_running_config, 1, "kept", "true");

  mtrack_fail_nth(2, 4, 0);  // the second run result cannot be had: the rest is not read
  sch_restore_db_from_pss(&sch_running_config, results_);
  EXPECT_EQ(g_list_length(sch_job_list[1].run_results), 1u);
}

TEST_F(Restore, UserThatCannotBeAllocatedIsSkipped) {
  add_user(&sch_uname_q, "first", "a", 1);
  add_user(&sch_uname_q, "second", "b", 2);
  sch_save_config_to_pss(&sch_running_config, config_);
  forget_memory();
  mtrack_fail_nth(1, 16, 0);
  sch_restore_config_from_pss(&sch_running_config, config_, 0);
  EXPECT_EQ(sch_uname_q.count, 1u);
  auto texts = trace_texts();
  EXPECT_NE(std::find(texts.begin(), texts.end(), "Failed to allocate memory for q elem, username first"), texts.end());
}

// A damaged store (or a planted one) can file a record under a key its value does not give; the
// record would be saved back under another key, so it is not restored at all.
TEST_F(Restore, UserAndEmailRecordsUnderAKeyTheirValueDoesNotGiveAreDropped) {
  add_user(&sch_uname_q, "kept", "a", 1);
  add_user(&sch_uname_q, "moved", "b", 2);
  ASSERT_EQ(sch_add_schedule_email_entry(&sch_schedule_email_list, "s", "a@example.net"), 0);
  sch_save_config_to_pss(&sch_running_config, config_);
  ASSERT_EQ(sch_save_schedule_email_entry_to_pss(config_, static_cast<sch_schedule_email_entry *>(sch_schedule_email_list->data)), 0);
  forget_memory();
  auto copy_under = [&](const std::string &from, const std::string &to) {
    std::string value = value_at(config_, from);
    ASSERT_NE(value, "<none>");
    pss2_datum key{const_cast<char *>(to.data()), SCH_KEY_SIZE};
    pss2_datum datum{value.data(), static_cast<int32_t>(value.size())};
    ASSERT_EQ(pss2_store(config_, &key, &datum), 0u);
  };
  copy_under(stored_key(SCH_REC_USER, 2, "moved"), stored_key(SCH_REC_USER, 2, "aaa"));    // another name
  copy_under(stored_key(SCH_REC_USER, 2, "moved"), stored_key(SCH_REC_USER, 7, "moved"));  // another word
  copy_under(stored_key(SCH_REC_SCHEDULE_EMAIL, 0, "s"), stored_key(SCH_REC_SCHEDULE_EMAIL, 0, "r"));
  copy_under(stored_key(SCH_REC_SCHEDULE_EMAIL, 0, "s"), stored_key(SCH_REC_SCHEDULE_EMAIL, 1, "s"));

  sch_restore_config_from_pss(&sch_running_config, config_, 0);
  ASSERT_EQ(sch_uname_q.count, 2u);
  auto *first = static_cast<sch_user_element *>(peek_head(&sch_uname_q));
  EXPECT_STREQ(first->record.user, "kept");
  EXPECT_STREQ(static_cast<sch_user_element *>(first->link)->record.user, "moved");
  ASSERT_EQ(g_list_length(sch_schedule_email_list), 1u);
  auto texts = trace_texts();
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "dropped record of type 9 for moved: its key is not its value's"), 2);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "dropped record of type 8 for s: its key is not its value's"), 2);
}

TEST_F(Restore, DeletingAJobsRunResultsReleasesThemAll) {
  add_job(&sch_running_config, 3, "noisy", "echo");
  add_result(&sch_running_config, 3, "s", 0, 1);
  add_result(&sch_running_config, 3, "s", 0, 2);
  EXPECT_EQ(sch_delete_all_status_for_job_from_pss(results_, &sch_job_list[3]), 0);
  EXPECT_EQ(sch_job_list[3].run_results, nullptr);
  auto texts = trace_texts();
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "pss delete job (noisy) status (3)"), 2);
}

}  // namespace
