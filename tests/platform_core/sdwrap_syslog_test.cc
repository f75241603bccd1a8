// Debug levels, the bounded history, the syslog emitter and the status texts.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "schedcli/platform/pss.h"
#include "schedcli/platform/sdwrap.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/syslog.h"
#include "schedcli/status.h"

namespace {

std::vector<std::string> history_texts() {
  std::vector<std::string> texts;
  sdwrap_history_walk(
      [](uint32_t, const void *record, size_t length, void *context) {
        static_cast<std::vector<std::string> *>(context)->emplace_back(static_cast<const char *>(record), length);
      },
      &texts);
  return texts;
}

TEST(History, CutsLongRecordsAndDumpsSchedulerRecordsAsText) {
  sdwrap_sys_clean(nullptr);
  std::string huge(SDWRAP_HISTORY_RECORD * 2, 'h');
  sdwrap_hist_event(2, huge.data(), huge.size());
  EXPECT_EQ(history_texts().back().size(), static_cast<size_t>(SDWRAP_HISTORY_RECORD));

  sdwrap_sys_clean(nullptr);
  unsigned char record[32] = {};
  int32_t level = 103;
  std::memcpy(record, &level, sizeof level);
  std::strcpy(reinterpret_cast<char *>(record) + 4, "saving\n");
  sdwrap_hist_event(0x730000, record, 4 + 8);
  FILE *out = std::tmpfile();
  sdwrap_history_dump(out);
  std::rewind(out);
  char line[64] = {};
  ASSERT_NE(std::fgets(line, sizeof line, out), nullptr);
  std::fclose(out);
  EXPECT_STREQ(line, "[103] saving\n");
}

TEST(DebugLevels, SwitchOnePerLevelOrAllAtOnce) {
  EXPECT_EQ(sdwrap_chk_int(103, 0, 0, 1), 0);
  sdwrap_debug_level_set(103, 1);
  EXPECT_EQ(sdwrap_chk_int(103, 0, 0, 1), 1);
  EXPECT_EQ(sdwrap_chk_int(102, 0, 0, 1), 0);
  sdwrap_debug_level_set(-1, 1);
  EXPECT_EQ(sdwrap_chk_int(100, 0, 0, 1), 1);
  sdwrap_dbg_clean(nullptr);
  EXPECT_EQ(sdwrap_chk_int(100, 0, 0, 1), 0);
  EXPECT_EQ(sdwrap_chk_int(-1, 0, 0, 1), 0);
  EXPECT_EQ(sdwrap_chk_int(SDWRAP_MAX_LEVEL + 1, 0, 0, 1), 0);

  EXPECT_EQ(sdwrap_hist_event_subtype_check(0x730000, 102), 0);
  sdwrap_history_level_set(102, 0);
  EXPECT_NE(sdwrap_hist_event_subtype_check(0x730000, 102), 0);
  sdwrap_history_level_set(-1, 1);
  EXPECT_EQ(sdwrap_hist_event_subtype_check(0x730000, 102), 0);
}

TEST(DebugDump, KnowsTheAllocatorStatistics) {
  FILE *out = std::tmpfile();
  EXPECT_EQ(sdwrap_debug_dump(nullptr, out, "mtrack_dump_memstats"), 0);
  EXPECT_GT(std::ftell(out), 0);
  EXPECT_EQ(sdwrap_debug_dump(nullptr, out, "nothing"), -1);
  std::fclose(out);
}

TEST(Syslog, RendersTheMarkerAsOnePercentAndCopiesToStandardError) {
  std::vector<std::string> seen;
  nost_syslog_set_sink(
      [](int severity, const char *text, void *context) {
        static_cast<std::vector<std::string> *>(context)->push_back(std::to_string(severity) + ":" + text);
      },
      &seen);
  nost_syslog_copy_to_stderr(1);
  ::testing::internal::CaptureStderr();
  nost_syslog(3, "<<%%%s-%d-SCH_ERR>> %s", "SCHEDULER", 3, "disk gone");
  std::string copied = ::testing::internal::GetCapturedStderr();
  nost_syslog_copy_to_stderr(0);
  nost_syslog(9, "plain %d", 1);  // an out-of-range severity is delivered as an error
  nost_syslog_set_sink(nullptr, nullptr);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], "3:%SCHEDULER-3-SCH_ERR>> disk gone");
  EXPECT_EQ(copied, "%SCHEDULER-3-SCH_ERR>> disk gone\n");
  EXPECT_EQ(seen[1], "3:plain 1");
}

TEST(Syserr, EveryKnownCodeHasItsOwnTextAndUnknownCodesAreNamed) {
  EXPECT_STREQ(syserr2str(PSS2_ERR_NO_KEY), "No such record in the store");
  EXPECT_STREQ(syserr2str(SCH_STATUS_TIME_IN_PAST), "Specified time is in the past");
  EXPECT_STREQ(syserr2str(0x12345678), "unknown error 0x12345678");
}

}  // namespace
