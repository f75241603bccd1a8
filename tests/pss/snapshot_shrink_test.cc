// Copy to startup and shrinking: destinations, thresholds, handle replacement and failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "pss/pss_fixture.h"
#include "pss/store_io.h"
#include "pss/store_reader.h"
#include "schedcli/platform/syslog.h"

namespace {

using namespace sch::testing;
namespace fs = std::filesystem;
using sch::pss::uri_text;

class SnapshotShrink : public PssTest {
 protected:
  void SetUp() override {
    PssTest::SetUp();
    start_platform(true);
    ASSERT_EQ(sch_pss_init(), 0);
    nost_syslog_set_sink([](int, const char *text, void *m) { static_cast<std::vector<std::string> *>(m)->push_back(text); },
                         &messages_);
    clear_traces();
  }
  void TearDown() override {
    nost_syslog_set_sink(nullptr, nullptr);
    PssTest::TearDown();
  }
  bool traced(const std::string &text) {
    auto texts = trace_texts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }
  std::vector<std::string> messages_;
};

TEST_F(SnapshotShrink, AFailedCopyIsTracedLoggedAndLeavesTheOldStartupStore) {
  std::string startup = uri_text(sch_pss_startup_uri);
  ASSERT_EQ(sch_pss_snapshot(uri_text(sch_pss_running_uri).c_str(), startup.c_str()), 0);
  auto old_size = fs::file_size(startup);
  sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 1);
  clear_traces();

  pss2_fault_set(PSS2_FAULT_SNAPSHOT, 1, PSS2_ERR_IO, 0);
  std::string running = uri_text(sch_pss_running_uri);
  EXPECT_EQ(sch_pss_snapshot(running.c_str(), startup.c_str()), -1);
  EXPECT_TRUE(traced("PSS " + running + " to " + startup + " snapshot failed"));
  EXPECT_TRUE(traced("Syserr - type:2 facility:576 number:8"));
  ASSERT_EQ(messages_.size(), 1u);
  EXPECT_EQ(messages_[0], "%SCHEDULER-2-SCH_SYSLOG_PSS_SNAPSHOT_ERR>> Source URI:" + running +
                              " Destination URI:" + startup + " errcode:" + std::to_string(static_cast<int>(PSS2_ERR_IO)));
  EXPECT_EQ(fs::file_size(startup), old_size);
  uint32_t status = 0;
  pss2_handle copy = pss2_open(startup.c_str(), PSS2_MODE_READ, 0xE0, 0, nullptr, &status);
  EXPECT_TRUE(all_records(copy).empty()) << "the startup store is the old one";
  pss2_close(copy);
}

TEST_F(SnapshotShrink, AFailedShrinkClosesTheStoreToTheDaemonAndStopsThePass) {
  sch_job_slot *job = add_job(&sch_running_config, 1, "big", text_of(8182));
  sch_save_job_entry_to_pss(pss_running_db, job);
  sch_delete_job_entry_from_pss(pss_running_db, job);
  pss2_handle running = pss_running;
  pss2_fault_set(PSS2_FAULT_SHRINK, 1, PSS2_ERR_IO, 0);
  uint32_t status = sch_pss_shrink(0);
  EXPECT_EQ(status, PSS2_ERR_IO);
  // The first store had no free space worth a shrink, or was shrunk; the second failed.
  EXPECT_NE(pss_running, 0u);
  EXPECT_EQ(pss_running_db, 0u);
  (void)running;
}

TEST_F(SnapshotShrink, AFailedFreeSpaceQueryStopsThePassWithItsStatus) {
  pss2_handle running = pss_running;
  pss2_fault_set(PSS2_FAULT_FREE_SPACE, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_pss_shrink(0), PSS2_ERR_IO);
  EXPECT_EQ(pss_running, running);
  EXPECT_TRUE(traced("Freespace 0 max size 0. Uri " + uri_text(sch_pss_running_uri)));
  EXPECT_FALSE(traced("Free space in " + uri_text(sch_pss_running_db_uri) + ": 0 status: 0x0 "));
}

}  // namespace
