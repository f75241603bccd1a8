// The job table: name lookup at the field's full width, and a second header for a slot.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "support/traces.h"

namespace {

using sch::testing::DatabaseTest;
using sch::testing::trace_texts;

sch_config_key *job_key(const std::string &name, uint32_t sequence = 0) {
  auto *key = static_cast<sch_config_key *>(sch_malloc_check(sizeof(sch_config_key), 5, 0, "test"));
  key->type = SCH_REC_JOB;
  key->sequence = sequence;
  std::memcpy(key->name, name.data(), std::min(name.size(), sizeof key->name));
  return key;
}

sch_job_header *job_header(uint32_t id, uint32_t length) {
  auto *header = static_cast<sch_job_header *>(sch_malloc_check(sizeof(sch_job_header), 6, 0, "test"));
  header->job_id = id;
  header->length = length;
  return header;
}

sch_job_slot *install(uint32_t id, const std::string &name) {
  sch_job_slot *slot = nullptr;
  EXPECT_EQ(sch_add_job_hdr(&sch_running_config, job_key(name), job_header(id, 0), &slot), 0);
  return slot;
}

bool traced(const std::string &text) {
  auto texts = trace_texts();
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

using JobTable = DatabaseTest;

TEST_F(JobTable, FindComparesAFullThirtyTwoByteNameWithoutRunningPastIt) {
  const std::string name(32, 'n');
  install(3, name);
  sch_job_slot *out = nullptr;
  EXPECT_EQ(sch_find_job(&sch_running_config, name.c_str(), &out), 3);
  EXPECT_EQ(sch_find_job(&sch_running_config, (name + "x").c_str(), &out), -1);
  EXPECT_EQ(sch_find_job(&sch_running_config, name.substr(0, 31).c_str(), &out), -1);
}

// Two headers with one id come from a damaged store: the second wins and the first is released.
TEST_F(JobTable, SecondHeaderForAnOccupiedSlotKeepsTheSlotsKeyAndReleasesTheOldHeader) {
  sch_job_slot *first = install(4, "first");
  sch_config_key *kept = first->key;
  uint64_t live = mtrack_live_blocks(SCH_MTRACK_IDENTITY);
  sch_job_slot *slot = nullptr;
  EXPECT_EQ(sch_add_job_hdr(&sch_running_config, job_key("other"), job_header(4, 9), &slot), 0);
  EXPECT_EQ(slot->key, kept);
  EXPECT_EQ(slot->header->length, 9u);
  EXPECT_TRUE(traced("job first key already present, adding!"));
  EXPECT_EQ(mtrack_live_blocks(SCH_MTRACK_IDENTITY), live) << "the replaced header and the second key are released";

  // The header the slot already holds, installed again, stays usable.
  sch_config_key *again = job_key("first");
  EXPECT_EQ(sch_add_job_hdr(&sch_running_config, again, slot->header, &slot), 0);
  EXPECT_EQ(slot->header->length, 9u);
}

}  // namespace
