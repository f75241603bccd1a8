// The restore dispatcher: stored schedule and job records into a config set, and its behaviour
// when every one of its allocations fails in turn.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "db/codec.h"
#include "support/traces.h"

namespace {

using sch::testing::DatabaseTest;
namespace codec = sch::codec;

struct StoredRecord {
  std::vector<uint8_t> key;
  std::vector<uint8_t> value;
  pss2_datum key_datum() { return {key.data(), static_cast<int32_t>(key.size())}; }
  pss2_datum value_datum() { return {value.empty() ? nullptr : value.data(), static_cast<int32_t>(value.size())}; }
};

std::vector<uint8_t> stored_key(uint32_t type, uint32_t sequence, const std::string &name) {
  sch_config_key key{type, sequence, {}};
  std::memcpy(key.name, name.data(), std::min(name.size(), sizeof key.name));
  std::vector<uint8_t> out(SCH_KEY_SIZE);
  codec::encode(codec::kConfigKey, &key, out.data());
  return out;
}

StoredRecord schedule_record(const std::string &name, uint32_t job_bits) {
  sch_schedule_record record{};
  record.jobs[0] = job_bits;
  record.time.type = 3;
  record.time.hour = 2;
  record.time.minute = 30;
  std::vector<uint8_t> value(SCH_SCHEDULE_RECORD_SIZE);
  codec::encode(codec::kScheduleRecord, &record, value.data());
  return {stored_key(SCH_REC_SCHEDULE, 0, name), value};
}

StoredRecord job_header_record(const std::string &name, uint32_t id, uint32_t length) {
  sch_job_header header{id, 0, length};
  std::vector<uint8_t> value(SCH_JOB_HEADER_SIZE);
  codec::encode(codec::kJobHeader, &header, value.data());
  return {stored_key(SCH_REC_JOB, 0, name), value};
}

StoredRecord job_fragment_record(const std::string &name, uint32_t sequence, const std::string &text) {
  return {stored_key(SCH_REC_JOB, sequence, name), std::vector<uint8_t>(text.begin(), text.end())};
}

int dispatch(StoredRecord record) {
  pss2_datum key = record.key_datum();
  pss2_datum value = record.value_datum();
  return sch_add_config_entry(&sch_running_config, &key, &value);
}

using ConfigEntry = DatabaseTest;

// A damaged store may claim more text than its fragments hold: reassembly, which trusts the
// header's length, must stay inside the buffers and read zeros past the stored bytes.
TEST_F(ConfigEntry, FragmentsShorterThanTheHeaderSaysAreReadAsZeros) {
  EXPECT_EQ(dispatch(job_header_record("torn", 0, 1030)), 0);
  EXPECT_EQ(dispatch(job_fragment_record("torn", 1, "ab")), 0);
  EXPECT_EQ(dispatch(job_fragment_record("torn", 2, "")), 0);
  sch_job_slot *job = nullptr;
  ASSERT_EQ(sch_find_job(&sch_running_config, "torn", &job), 0);
  for (GList *element = job->fragments; element; element = element->next) {
    EXPECT_GE(mtrack_block_size(element->data), size_t{SCH_FRAGMENT_SIZE});
  }
  std::string text(1032, 'x');
  sch_concat_fragments(job->fragments, text.data(), 1030);
  EXPECT_EQ(text.substr(0, 1030), "ab" + std::string(1028, '\0'));
}

TEST_F(ConfigEntry, InvalidJobsAndOtherTypesAreDroppedWithSuccess) {
  EXPECT_EQ(dispatch(job_header_record("huge", 300, 1)), 0);
  EXPECT_EQ(dispatch(job_fragment_record("nobody", 1, "x")), 0);
  EXPECT_EQ(dispatch({stored_key(42, 0, "odd"), {1, 2, 3}}), 0);
  int index = 0;
  EXPECT_EQ(sch_next_job(&sch_running_config, &index), nullptr);
  EXPECT_EQ(sch_schedule_list, nullptr);
}

// Runs `operation` with its 1st, 2nd, ... tracked allocation failing until it goes through, and
// returns the results of the failed runs; `unchanged` checks the database after each of them.
std::vector<int> results_under_allocation_failures(const std::function<int()> &operation,
                                                   const std::function<void()> &unchanged) {
  std::vector<int> results;
  for (uint64_t nth = 1;; nth++) {
    mtrack_fail_nth(nth, -1, 0);
    int result = operation();
    bool failed = mtrack_hook_count() >= nth;
    mtrack_fail_nth(0, -1, 0);
    if (!failed) {
      EXPECT_EQ(result, 0) << "the run without failures";
      return results;
    }
    results.push_back(result);
    unchanged();
  }
}

int job_count() {
  int count = 0;
  for (int index = 0; sch_next_job(&sch_running_config, &index); index++) count++;
  return count;
}

TEST_F(ConfigEntry, OutOfMemoryAtEachStepOfAScheduleRestore) {
  // Key copy and record report -1; a list entry that cannot be had drops the record quietly.
  auto results = results_under_allocation_failures([] { return dispatch(schedule_record("s", 1)); },
                                                   [] { EXPECT_EQ(sch_schedule_list, nullptr); });
  EXPECT_EQ(results, (std::vector<int>{-1, -1, 0}));
  EXPECT_EQ(g_list_length(sch_schedule_list), 1u);
}

TEST_F(ConfigEntry, OutOfMemoryAtEachStepOfAJobRestore) {
  auto header_results = results_under_allocation_failures(
      [] { return dispatch(job_header_record("j", 0, 1)); }, [] { EXPECT_EQ(job_count(), 0); });
  EXPECT_EQ(header_results, (std::vector<int>{-1, -1}));

  auto fragment_results = results_under_allocation_failures(
      [] { return dispatch(job_fragment_record("j", 1, "x")); },
      [] { EXPECT_EQ(sch_job_list[0].fragments, nullptr); });
  EXPECT_EQ(fragment_results, (std::vector<int>{-1, -1}));
  EXPECT_EQ(g_list_length(sch_job_list[0].fragments), 1u);
}

}  // namespace
