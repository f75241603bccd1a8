// Run results: appended to an existing job, released when refused.
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

void occupy(uint32_t id, const char *name) {
  auto *key = static_cast<sch_config_key *>(sch_malloc_check(sizeof(sch_config_key), 5, 0, "t"));
  std::strcpy(key->name, name);
  auto *header = static_cast<sch_job_header *>(sch_malloc_check(sizeof(sch_job_header), 6, 0, "t"));
  header->job_id = id;
  sch_job_slot *slot = nullptr;
  ASSERT_EQ(sch_add_job_hdr(&sch_running_config, key, header, &slot), 0);
}

bool traced_at(int level, const std::string &text) {
  auto traces = recorded_traces();
  return std::any_of(traces.begin(), traces.end(),
                     [&](const sch::testing::Trace &t) { return t.level == level && t.text == text; });
}

using RunResults = DatabaseTest;

TEST_F(RunResults, AppendInArrivalOrderCountingFromOne) {
  occupy(255, "last");
  sch_runtime_job_status *first = result_for(255);
  EXPECT_EQ(sch_add_runtime_job_status_entry(&sch_running_config, first), 0);
  EXPECT_TRUE(traced_at(102, "adding status # 1 for job last"));
  EXPECT_EQ(sch_add_runtime_job_status_entry(&sch_running_config, result_for(255)), 0);
  EXPECT_TRUE(traced_at(102, "adding status # 2 for job last"));
  EXPECT_EQ(g_list_first(sch_job_list[255].run_results)->data, first);
}

TEST_F(RunResults, RefusedEntriesAreReleased) {
  EXPECT_EQ(sch_add_runtime_job_status_entry(&sch_running_config, result_for(256)), -1);
  EXPECT_EQ(sch_add_runtime_job_status_entry(&sch_running_config, result_for(3)), -1);
  EXPECT_TRUE(traced_at(102, "job key not present!"));
  // The fixture fails the test if either entry was kept alive.
}

}  // namespace
