// Diagnostics: the syslog catalogue as published.
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

}  // namespace
