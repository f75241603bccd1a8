// The job table: lookup, iteration, free slots, and installing headers and fragments.
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

void *fragment(const std::string &text) {
  void *buffer = sch_malloc_check(text.size(), 7, 0, "test");
  std::memcpy(buffer, text.data(), text.size());
  return buffer;
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

TEST_F(JobTable, FindReturnsTheLowestIdOfAnExactNameIncludingTheLastSlot) {
  sch_job_slot *out = reinterpret_cast<sch_job_slot *>(1);
  EXPECT_EQ(sch_find_job(&sch_running_config, "backup", &out), -1);
  EXPECT_EQ(out, nullptr);

  sch_job_slot *last = install(255, "backup");
  EXPECT_EQ(sch_find_job(&sch_running_config, "backup", &out), 255);
  EXPECT_EQ(out, last);
  EXPECT_EQ(sch_find_job(&sch_running_config, "Backup", &out), -1) << "names are case-sensitive";
  EXPECT_EQ(sch_find_job(&sch_running_config, "back", &out), -1) << "no prefix match";

  install(7, "backup");
  EXPECT_EQ(sch_find_job(&sch_running_config, "backup", &out), 7);
}

TEST_F(JobTable, FindComparesAFullThirtyTwoByteNameWithoutRunningPastIt) {
  const std::string name(32, 'n');
  install(3, name);
  sch_job_slot *out = nullptr;
  EXPECT_EQ(sch_find_job(&sch_running_config, name.c_str(), &out), 3);
  EXPECT_EQ(sch_find_job(&sch_running_config, (name + "x").c_str(), &out), -1);
  EXPECT_EQ(sch_find_job(&sch_running_config, name.substr(0, 31).c_str(), &out), -1);
}

TEST_F(JobTable, NextJobWalksOccupiedSlotsAndEndsWithMinusOne) {
  install(0, "a");
  install(5, "b");
  install(254, "c");
  std::vector<int> seen;
  int index = 0;
  while (sch_job_slot *slot = sch_next_job(&sch_running_config, &index)) {
    EXPECT_EQ(slot, &sch_job_list[index]);
    seen.push_back(index);
    index++;
  }
  EXPECT_EQ(seen, (std::vector<int>{0, 5, 254}));
  EXPECT_EQ(index, -1);

  index = 255;
  EXPECT_EQ(sch_next_job(&sch_running_config, &index), nullptr);
  EXPECT_EQ(index, -1);
  index = 256;
  EXPECT_EQ(sch_next_job(&sch_running_config, &index), nullptr);
  EXPECT_EQ(index, -1);
}

TEST_F(JobTable, FirstEmptySlotIsTheLowestFreeIdAndNoneWhenFull) {
  EXPECT_EQ(sch_first_empty_job_list_entry_index(&sch_running_config), 0);
  install(0, "a");
  install(2, "c");
  EXPECT_EQ(sch_first_empty_job_list_entry_index(&sch_running_config), 1);
  EXPECT_TRUE(traced("available job slot 1"));
  for (uint32_t id = 0; id < SCH_MAX_JOBS - 1; id++) {
    if (!sch_job_list[id].key) install(id, "job" + std::to_string(id));
  }
  EXPECT_EQ(sch_first_empty_job_list_entry_index(&sch_running_config), SCH_MAX_JOBS - 1) << "the last slot";
  install(SCH_MAX_JOBS - 1, "last");
  EXPECT_EQ(sch_first_empty_job_list_entry_index(&sch_running_config), -1);
}

TEST_F(JobTable, HeaderWithIdAbove255IsRefusedAndReleased) {
  sch_job_slot *slot = nullptr;
  EXPECT_EQ(sch_add_job_hdr(&sch_running_config, job_key("big"), job_header(256, 0), &slot), -1);
  EXPECT_TRUE(traced("invalid job id 256"));
  EXPECT_EQ(sch_add_job_hdr(&sch_running_config, job_key("top"), job_header(255, 0), &slot), 0);
  EXPECT_EQ(slot, &sch_job_list[255]);
  EXPECT_TRUE(traced("job top key added"));
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

TEST_F(JobTable, FragmentsAttachInArrivalOrderToTheNamedJobOnly) {
  install(9, "report");
  sch_job_slot *slot = nullptr;
  EXPECT_EQ(sch_add_job_data(&sch_running_config, job_key("report", 1), fragment("one"), &slot), 0);
  EXPECT_EQ(sch_add_job_data(&sch_running_config, job_key("report", 2), fragment("two"), &slot), 0);
  EXPECT_EQ(slot, &sch_job_list[9]);
  ASSERT_EQ(g_list_length(slot->fragments), 2u);
  EXPECT_EQ(std::memcmp(g_list_nth_data(slot->fragments, 1), "two", 3), 0);
  EXPECT_TRUE(traced("found job id 9"));
  EXPECT_TRUE(traced("job report (9) adding fragment 2"));

  EXPECT_EQ(sch_add_job_data(&sch_running_config, job_key("orphan", 1), fragment("x"), &slot), -1);
}

TEST_F(JobTable, FreeingASlotReleasesEverythingAndZeroesIt) {
  sch_job_slot *slot = install(1, "full");
  sch_add_job_data(&sch_running_config, job_key("full", 1), fragment("text"), &slot);
  auto *result = static_cast<sch_runtime_job_status *>(sch_malloc_check(sizeof(sch_runtime_job_status), 4, 0, "t"));
  result->job_id = 1;
  ASSERT_EQ(sch_add_runtime_job_status_entry(&sch_running_config, result), 0);
  slot->reserved = 42;
  sch_free_job_entry(slot);
  sch_job_slot empty{};
  EXPECT_EQ(std::memcmp(slot, &empty, sizeof empty), 0);
}

}  // namespace
