// Test support: the library's debug traces as recorded in the event history, and a database
// fixture that checks nothing tracked is left alive.
#ifndef SCHEDCLI_TESTS_SUPPORT_TRACES_H
#define SCHEDCLI_TESTS_SUPPORT_TRACES_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "schedcli/db.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/platform/sdwrap.h"

namespace sch::testing {

struct Trace {
  int level;
  std::string text;
};

// Every trace recorded since the history was last cleared, oldest first.
inline std::vector<Trace> recorded_traces() {
  std::vector<Trace> traces;
  sdwrap_history_walk(
      [](uint32_t event, const void *record, size_t length, void *context) {
        if (event != SCH_TRACE_EVENT || length < sizeof(int32_t)) return;
        int32_t level;
        std::memcpy(&level, record, sizeof level);
        const char *text = static_cast<const char *>(record) + sizeof level;
        static_cast<std::vector<Trace> *>(context)->push_back({level, std::string(text, strnlen(text, length - 4))});
      },
      &traces);
  return traces;
}

inline std::vector<std::string> trace_texts() {
  std::vector<std::string> texts;
  for (const Trace &trace : recorded_traces()) texts.push_back(trace.text);
  return texts;
}

// Whether a trace with exactly this text was recorded.
inline bool traced(const std::string &text) {
  auto texts = trace_texts();
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

inline void clear_traces() { sdwrap_sys_clean(nullptr); }

// Empties the live and private database around each test, and fails a test that leaves tracked
// blocks of the library alive.
class DatabaseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    mtrack_fail_nth(0, -1, 0);
    release_all();
    clear_traces();
    live_at_start_ = mtrack_live_blocks(SCH_MTRACK_IDENTITY);
  }
  void TearDown() override {
    mtrack_fail_nth(0, -1, 0);
    release_all();
    EXPECT_EQ(mtrack_live_blocks(SCH_MTRACK_IDENTITY), live_at_start_) << "tracked blocks leaked";
  }
  static void release_all() {
    sch_free_config(&sch_running_config);
    sch_free_config(&sch_startup_config);
    sch_free_schedule_email_list(&sch_schedule_email_list);
    sch_free_user_config(&sch_uname_q);
    sch_free_user_config(&sch_uname_acfg_q);
  }

 private:
  uint64_t live_at_start_ = 0;
};

}  // namespace sch::testing

#endif
