// Run results: released when refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/traces.h"

namespace {

using sch::testing::DatabaseTest;
using sch::testing::recorded_traces;

sch_runtime_job_status *result_for(uint32_t job_id) {
  auto *entry = static_cast<sch_runtime_job_status *>(sch_malloc_check(sizeof(sch_runtime_job_status), 4, 0, "t"));
  std::strcpy(entry->schedule, "nightly");
  entry->job_id = job_id;
  entry->result[0] = 1;
  return entry;
}

bool traced_at(int level, const std::string &text) {
  auto traces = recorded_traces();
  return std::any_of(traces.begin(), traces.end(),
                     [&](const sch::testing::Trace &t) { return t.level == level && t.text == text; });
}

using RunResults = DatabaseTest;

TEST_F(RunResults, RefusedEntriesAreReleased) {
  EXPECT_EQ(sch_add_runtime_job_status_entry(&sch_running_config, result_for(256)), -1);
  EXPECT_EQ(sch_add_runtime_job_status_entry(&sch_running_config, result_for(3)), -1);
  EXPECT_TRUE(traced_at(102, "job key not present!"));
  // The fixture fails the test if either entry was kept alive.
}

}  // namespace
