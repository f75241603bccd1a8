// Diagnostics: the syslog catalogue, tracked allocation with its failure report, error decoding
// and the routing of debug traces.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "diag/trace.h"
#include "support/traces.h"
#include "schedcli/platform/syslog.h"

namespace {

using sch::testing::clear_traces;
using sch::testing::recorded_traces;

struct SyslogCapture {
  SyslogCapture() { nost_syslog_set_sink(&SyslogCapture::deliver, this); }
  ~SyslogCapture() { nost_syslog_set_sink(nullptr, nullptr); }
  static void deliver(int severity, const char *text, void *self) {
    static_cast<SyslogCapture *>(self)->messages.push_back(std::to_string(severity) + " " + text);
  }
  std::vector<std::string> messages;
};

TEST(SyslogCatalogue, FacilityAndMessagesAreAsPublished) {
  EXPECT_STREQ(syslog_fac_LOG_SCHEDULER.name, "scheduler");
  EXPECT_EQ(syslog_fac_LOG_SCHEDULER.number, 1512u);
  EXPECT_EQ(syslog_fac_LOG_SCHEDULER.default_level, 5);
  EXPECT_STREQ(syslog_msg_SCH_SYSLOG_PSS_ERR.name, "SCH_SYSLOG_PSS_ERR");
  EXPECT_EQ(syslog_msg_SCH_SYSLOG_PSS_ERR.facility, &syslog_fac_LOG_SCHEDULER);
  EXPECT_EQ(syslog_msg_SCH_MSG.severity, 6);
  EXPECT_EQ(syslog_msg_SCH_WARN.severity, 4);
  EXPECT_EQ(syslog_msg_SCH_SYSLOG_USER_ERR.severity, 3);
  EXPECT_STREQ(syslog_msg_SCH_SYSLOG_FILE_ERR.format, "<<%%%s-%d-SCH_SYSLOG_FILE_ERR>> %s Error:%s");
}

TEST(MallocCheck, ReturnsZeroFilledTrackedBlocks) {
  mtrack_kind_stats before{}, after{};
  mtrack_kind_stats_get(SCH_MTRACK_IDENTITY, 12, &before);
  auto *block = static_cast<unsigned char *>(sch_malloc_check(300, 12, 0, "create script file"));
  ASSERT_NE(block, nullptr);
  for (int i = 0; i < 300; i++) ASSERT_EQ(block[i], 0);
  mtrack_kind_stats_get(SCH_MTRACK_IDENTITY, 12, &after);
  EXPECT_EQ(after.live_blocks, before.live_blocks + 1);
  EXPECT_EQ(after.live_bytes, before.live_bytes + 300);
  mtrack_free(block);
  void *empty = sch_malloc_check(0, 12, 0, "zero");
  EXPECT_NE(empty, nullptr);
  mtrack_free(empty);
}

TEST(MallocCheck, FailureTracesAndLogsTheUpperCasedFacility) {
  SyslogCapture syslog;
  clear_traces();
  mtrack_fail_nth(1, -1, 0);
  EXPECT_EQ(sch_malloc_check(44, 4, 0, "restore db"), nullptr);
  ASSERT_EQ(syslog.messages.size(), 1u);
  EXPECT_EQ(syslog.messages[0], "2 %SCHEDULER-2-SCH_SYSLOG_MALLOC_ERR>> Out of memory: restore db");
  auto traces = recorded_traces();
  ASSERT_FALSE(traces.empty());
  EXPECT_EQ(traces.back().text, "Malloc FAILED: restore db");
}

TEST(MallocCheck, FacilityLevelBelowTwoSilencesTheSyslogMessageOnly) {
  SyslogCapture syslog;
  clear_traces();
  syslog_fac_LOG_SCHEDULER.current_level = 1;
  mtrack_fail_nth(1, -1, 0);
  EXPECT_EQ(sch_malloc_check(8, 5, 0, "add config entry"), nullptr);
  syslog_fac_LOG_SCHEDULER.current_level = 5;
  EXPECT_TRUE(syslog.messages.empty());
  EXPECT_EQ(recorded_traces().back().text, "Malloc FAILED: add config entry");
}

TEST(SyserrLog, DecodesTypeScaledFacilityAndNumber) {
  clear_traces();
  sch_syserr_log(103, 0xC0012345);
  auto traces = recorded_traces();
  ASSERT_EQ(traces.size(), 1u);
  EXPECT_EQ(traces[0].level, 103);
  EXPECT_EQ(traces[0].text, "Syserr - type:3 facility:8 number:837");
  sch_syserr_log(100, 0x80480011);
  EXPECT_EQ(recorded_traces().back().text, "Syserr - type:2 facility:576 number:17");
}

TEST(Trace, RoutesToStandardErrorHistoryAndBuginfAsSwitched) {
  clear_traces();
  FILE *buginf_stream = std::tmpfile();
  sdwrap_buginf_stream_set(buginf_stream);
  sdwrap_debug_level_set(102, 1);
  sdwrap_history_level_set(103, 0);

  ::testing::internal::CaptureStderr();
  cli_debug = 1;
  sch::trace(102, "shown %d", 1);
  sch::trace(103, "not kept %s", "in history");
  cli_debug = 0;
  sch::trace(102, "quiet on stderr");
  std::string stderr_text = ::testing::internal::GetCapturedStderr();

  sdwrap_debug_level_set(-1, 0);
  sdwrap_history_level_set(-1, 1);
  sdwrap_buginf_stream_set(nullptr);

  EXPECT_EQ(stderr_text, "shown 1\nnot kept in history\n");
  auto traces = recorded_traces();
  ASSERT_EQ(traces.size(), 2u);
  EXPECT_EQ(traces[0].text, "shown 1");
  EXPECT_EQ(traces[1].text, "quiet on stderr");

  std::rewind(buginf_stream);
  char line[128] = {};
  std::string buginf_text;
  while (std::fgets(line, sizeof line, buginf_stream)) buginf_text += line;
  std::fclose(buginf_stream);
  EXPECT_EQ(buginf_text, "shown 1\nquiet on stderr\n");
}

TEST(Trace, LongTextIsCutToTheBuffer) {
  clear_traces();
  std::string long_text(700, 'x');
  sch::trace(103, "%s", long_text.c_str());
  EXPECT_EQ(recorded_traces().back().text, std::string(511, 'x'));
}

}  // namespace
