// The daemon's stores when they fail: opening at start and on standby, recovery after a failed
// global sync, copy to startup and shrinking.
#include <gtest/gtest.h>

#include <filesystem>

#include "pss/pss_fixture.h"
#include "pss/store_io.h"

namespace {

using namespace sch::testing;
namespace fs = std::filesystem;
using sch::pss::uri_text;

const std::string kIoCode = std::to_string(static_cast<int>(PSS2_ERR_IO));

using Stores = PssTest;

TEST_F(Stores, AStoreThatCannotBeHadStopsStartWith66AndASyslogMessage) {
  capture_syslog();
  start_platform(true);
  pss2_fault_set(PSS2_FAULT_OPEN, 2, PSS2_ERR_IO, 0);  // the runtime database cannot be created
  EXPECT_EQ(sch_pss_init(), 66);
  EXPECT_NE(pss_running, 0u) << "the running store stays open";
  EXPECT_EQ(pss_running_db, 0u);
  const std::string db_uri = uri_text(sch_pss_running_db_uri);
  EXPECT_TRUE(traced("Cannot open runtime db pss at " + db_uri));
  EXPECT_EQ(syslog_, std::vector<std::string>{"%SCHEDULER-3-SCH_SYSLOG_PSS_ERR>> Purpose:Failed to create PSS %s URI:" +
                                              db_uri + " Error:" + kIoCode});

  pss2_close(pss_running);
  pss_running = 0;
  pss2_fault_set(PSS2_FAULT_OPEN, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_pss_init(), 66);
  EXPECT_TRUE(traced("Cannot open runtime pss at " + uri_text(sch_pss_running_uri)));
  EXPECT_EQ(pss_running_db, 0u) << "not touched after the first failure";
}

TEST_F(Stores, StandbyOpensBothStoresOrReportsTheOneThatFailed) {
  start_platform(true);
  EXPECT_EQ(sch_standby_pss_init(), 0);
  EXPECT_NE(pss_running, 0u);
  EXPECT_NE(pss_running_db, 0u);
  close_all();

  pss2_fault_set(PSS2_FAULT_OPEN, 1, PSS2_ERR_IO, 1);
  EXPECT_EQ(sch_standby_pss_init(), -1);
  EXPECT_TRUE(traced("Failed to open pss. Uri " + uri_text(sch_pss_running_uri)));
}

TEST_F(Stores, FailedGlobalSyncStartsTheStandbyWithEmptyStores) {
  start_platform(true);
  ASSERT_EQ(sch_standby_pss_init(), 0);
  ASSERT_EQ(sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 1), 0);
  ASSERT_EQ(sch_standby_pss_init_gsync_fail(), 0);
  EXPECT_EQ(record_count(pss_running), 0u);
  EXPECT_NE(pss_running_db, 0u);

  // A runtime database that cannot be made again is not reported: the result is still 0.
  pss2_fault_set(PSS2_FAULT_OPEN, 2, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_standby_pss_init_gsync_fail(), 0);
  EXPECT_NE(pss_running, 0u);
  EXPECT_EQ(pss_running_db, 0u);

  pss2_fault_set(PSS2_FAULT_OPEN, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_standby_pss_init_gsync_fail(), -1);
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

TEST_F(Running, AFailedCopyIsTracedLoggedAndLeavesTheOldStartupStore) {
  const std::string startup = uri_text(sch_pss_startup_uri), running = uri_text(sch_pss_running_uri);
  ASSERT_EQ(sch_pss_snapshot(running.c_str(), startup.c_str()), 0);
  auto old_size = fs::file_size(startup);
  sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 1);

  pss2_fault_set(PSS2_FAULT_SNAPSHOT, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_pss_snapshot(running.c_str(), startup.c_str()), -1);
  EXPECT_TRUE(traced("PSS " + running + " to " + startup + " snapshot failed"));
  EXPECT_TRUE(traced("Syserr - type:2 facility:576 number:8"));
  EXPECT_EQ(syslog_, std::vector<std::string>{"%SCHEDULER-2-SCH_SYSLOG_PSS_SNAPSHOT_ERR>> Source URI:" + running +
                                              " Destination URI:" + startup + " errcode:" + kIoCode});
  EXPECT_EQ(fs::file_size(startup), old_size);
  uint32_t status = 0;
  pss2_handle copy = pss2_open(startup.c_str(), PSS2_MODE_READ, 0xE0, 0, nullptr, &status);
  EXPECT_EQ(record_count(copy), 0u) << "the startup store is the old one";
  pss2_close(copy);
}

TEST_F(Running, AFailedShrinkClosesTheStoreToTheDaemonAndStopsThePass) {
  sch_job_slot *job = add_job(&sch_running_config, 1, "big", text_of(8182));
  sch_save_job_entry_to_pss(pss_running_db, job);
  sch_delete_job_entry_from_pss(pss_running_db, job);
  pss2_fault_set(PSS2_FAULT_SHRINK, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_pss_shrink(0), PSS2_ERR_IO);
  // The first store had no free space worth a shrink, or was shrunk; the second failed.
  EXPECT_NE(pss_running, 0u);
  EXPECT_EQ(pss_running_db, 0u);
}

TEST_F(Running, AFailedFreeSpaceQueryStopsThePassWithItsStatus) {
  pss2_handle running = pss_running;
  pss2_fault_set(PSS2_FAULT_FREE_SPACE, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_pss_shrink(0), PSS2_ERR_IO);
  EXPECT_EQ(pss_running, running);
  EXPECT_TRUE(traced("Freespace 0 max size 0. Uri " + uri_text(sch_pss_running_uri)));
  EXPECT_FALSE(traced("Free space in " + uri_text(sch_pss_running_db_uri) + ": 0 status: 0x0 "));
}

}  // namespace
