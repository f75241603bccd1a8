// Start-up of the stores when they fail: a store that cannot be had, standby, and recovery after a
// failed global sync.
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

class Startup : public PssTest {
 protected:
  bool traced(const std::string &text) {
    auto texts = trace_texts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }
  std::string running_uri() { return sch::pss::uri_text(sch_pss_running_uri); }

  // A startup store holding one schedule, one job and an enabled feature flag.
  void write_startup_store() {
    pss2_handle startup = create(sch::pss::uri_text(sch_pss_startup_uri));
    add_schedule(&sch_running_config, "from-startup", tminfo{3, 4, 0, 0, 5, 0, 0, 0, 0, 0}, {0});
    add_job(&sch_running_config, 0, "startup-job", "show clock");
    sch_save_config_to_pss(&sch_running_config, startup);
    sch_save_condition_entry_to_pss(startup, &sch_condition_key, 1);
    pss2_close(startup);
    release_all();
    clear_traces();
  }
};

TEST_F(Startup, AStoreThatCannotBeHadStopsStartWith66AndASyslogMessage) {
  std::vector<std::string> messages;
  nost_syslog_set_sink([](int, const char *text, void *m) { static_cast<std::vector<std::string> *>(m)->push_back(text); },
                       &messages);
  start_platform(true);
  pss2_fault_set(PSS2_FAULT_OPEN, 2, PSS2_ERR_IO, 0);  // the runtime database cannot be created
  EXPECT_EQ(sch_pss_init(), 66);
  EXPECT_NE(pss_running, 0u) << "the running store stays open";
  EXPECT_EQ(pss_running_db, 0u);
  EXPECT_TRUE(traced("Cannot open runtime db pss at " + sch::pss::uri_text(sch_pss_running_db_uri)));
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0], "%SCHEDULER-3-SCH_SYSLOG_PSS_ERR>> Purpose:Failed to create PSS %s URI:" +
                             sch::pss::uri_text(sch_pss_running_db_uri) + " Error:" +
                             std::to_string(static_cast<int>(PSS2_ERR_IO)));

  pss2_close(pss_running);
  pss_running = 0;
  clear_traces();
  pss2_fault_set(PSS2_FAULT_OPEN, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_pss_init(), 66);
  EXPECT_TRUE(traced("Cannot open runtime pss at " + running_uri()));
  EXPECT_EQ(pss_running_db, 0u) << "not touched after the first failure";
  nost_syslog_set_sink(nullptr, nullptr);
}

TEST_F(Startup, StandbyOpensBothStoresOrReportsTheOneThatFailed) {
  start_platform(true);
  EXPECT_EQ(sch_standby_pss_init(), 0);
  EXPECT_NE(pss_running, 0u);
  EXPECT_NE(pss_running_db, 0u);
  close_all();

  pss2_fault_set(PSS2_FAULT_OPEN, 1, PSS2_ERR_IO, 1);
  EXPECT_EQ(sch_standby_pss_init(), -1);
  EXPECT_TRUE(traced("Failed to open pss. Uri " + running_uri()));
}

TEST_F(Startup, FailedGlobalSyncStartsTheStandbyWithEmptyStores) {
  start_platform(true);
  ASSERT_EQ(sch_standby_pss_init(), 0);
  ASSERT_EQ(sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 1), 0);
  ASSERT_EQ(sch_standby_pss_init_gsync_fail(), 0);
  EXPECT_TRUE(all_records(pss_running).empty());
  EXPECT_NE(pss_running_db, 0u);

  // A runtime database that cannot be made again is not reported: the result is still 0.
  pss2_fault_set(PSS2_FAULT_OPEN, 2, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_standby_pss_init_gsync_fail(), 0);
  EXPECT_NE(pss_running, 0u);
  EXPECT_EQ(pss_running_db, 0u);

  pss2_fault_set(PSS2_FAULT_OPEN, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(sch_standby_pss_init_gsync_fail(), -1);
}

}  // namespace
