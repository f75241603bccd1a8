// Schedules and their email entries: creation order, exact lookups, prefix removals, ten slots.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "support/traces.h"

namespace {

using sch::testing::DatabaseTest;
using sch::testing::trace_texts;

sch_schedule_email_entry *email_entry(const char *schedule) {
  sch_schedule_email_entry *entry = nullptr;
  EXPECT_EQ(sch_find_schedule_email_entry(&sch_schedule_email_list, schedule, &entry), 0);
  return entry;
}

bool traced(const std::string &text) {
  auto texts = trace_texts();
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

using Schedules = DatabaseTest;

using ScheduleEmail = DatabaseTest;

TEST_F(ScheduleEmail, TenAddressesFillTheSlotsAndTheEleventhIsRefused) {
  for (int i = 0; i < 10; i++) {
    std::string address = "user" + std::to_string(i) + "@example.net";
    EXPECT_EQ(sch_add_schedule_email_entry(&sch_schedule_email_list, "backup", address.c_str()), 0);
  }
  sch_schedule_email_entry *entry = email_entry("backup");
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->count, 10u);
  EXPECT_STREQ(entry->slots[9].address, "user9@example.net");
  EXPECT_TRUE(traced("email-id user0@example.net configured for backup"));

  sch_schedule_email_entry before = *entry;
  EXPECT_EQ(sch_add_schedule_email_entry(&sch_schedule_email_list, "backup", "extra@example.net"), -1);
  EXPECT_EQ(std::memcmp(entry, &before, sizeof before), 0);
  EXPECT_TRUE(traced("Max email-ids configured for backup"));
}

TEST_F(ScheduleEmail, ARemovedSlotIsReusedAndDuplicatesTakeTwoSlots) {
  for (const char *address : {"a@x", "b@x", "c@x", "d@x"}) {
    sch_add_schedule_email_entry(&sch_schedule_email_list, "s", address);
  }
  sch_remove_schedule_email_addr(&sch_schedule_email_list, "s", "d@x");
  EXPECT_TRUE(traced("email-id d@x removed from s"));
  sch_add_schedule_email_entry(&sch_schedule_email_list, "s", "a@x");
  sch_schedule_email_entry *entry = email_entry("s");
  EXPECT_STREQ(entry->slots[3].address, "a@x");
  EXPECT_EQ(entry->slots[3].in_use, 1u);
  EXPECT_EQ(entry->count, 4u);

  // Every slot beginning with the given address goes, not only the first.
  sch_remove_schedule_email_addr(&sch_schedule_email_list, "s", "a@");
  EXPECT_EQ(entry->count, 2u);
  EXPECT_EQ(entry->slots[0].in_use, 0u);
  EXPECT_EQ(entry->slots[0].address[0], '\0');
  EXPECT_EQ(entry->slots[3].in_use, 0u);
}

TEST_F(ScheduleEmail, RemovingFromAnEntryWithOneAddressUnlinksItWhateverTheAddress) {
  sch_add_schedule_email_entry(&sch_schedule_email_list, "solo", "only@x");
  sch_schedule_email_entry *entry = email_entry("solo");
  sch_remove_schedule_email_addr(&sch_schedule_email_list, "solo", "someone-else@x");
  EXPECT_EQ(sch_schedule_email_list, nullptr);
  EXPECT_EQ(entry->count, 1u) << "the unlinked entry is left as it was";
  mtrack_free(entry);  // unlinked entries become the caller's
}

TEST_F(ScheduleEmail, RemovalsMatchByPrefixAndLookupsExactly) {
  sch_add_schedule_email_entry(&sch_schedule_email_list, "s1", "one@x");
  sch_add_schedule_email_entry(&sch_schedule_email_list, "s1", "two@x");
  sch_add_schedule_email_entry(&sch_schedule_email_list, "s10", "ten@x");
  sch_add_schedule_email_entry(&sch_schedule_email_list, "s10", "eleven@x");
  EXPECT_EQ(email_entry("s"), nullptr);

  sch_remove_schedule_email_addr(&sch_schedule_email_list, "s", "ten@x");
  EXPECT_EQ(email_entry("s10")->count, 2u) << "the first entry in the list is s1";
  EXPECT_EQ(email_entry("s1")->count, 2u);

  sch_schedule_email_entry *s1 = email_entry("s1");
  sch_remove_schedule_email_entry(&sch_schedule_email_list, "s1");
  EXPECT_TRUE(traced("removed schedule email entry for s1"));
  EXPECT_EQ(email_entry("s1"), nullptr);
  EXPECT_NE(email_entry("s10"), nullptr);
  mtrack_free(s1);

  EXPECT_EQ(sch_remove_schedule_email_entry(&sch_schedule_email_list, "none"), 0);
  EXPECT_EQ(sch_remove_schedule_email_addr(&sch_schedule_email_list, "none", "a"), 0);
}

TEST_F(ScheduleEmail, EachAddOperationSurvivesItsAllocationFailing) {
  // The email adds allocate once: each fails cleanly, then goes through.
  struct Add {
    const char *name;
    int (*run)();
    int result_on_failure;
  };
  const Add adds[] = {
      {"new entry", [] { return sch_add_new_schedule_email_entry(&sch_schedule_email_list, "n", "a@x"); }, -1},
      {"first address", [] { return sch_add_schedule_email_entry(&sch_schedule_email_list, "f", "a@x"); }, 0},
      {"from store", [] {
         sch_schedule_email_entry stored{};
         std::strcpy(stored.schedule, "p");
         return sch_add_schedule_email_entry_from_pss(&sch_schedule_email_list, &stored);
       }, -1},
  };
  for (const Add &add : adds) {
    guint before = g_list_length(sch_schedule_email_list);
    mtrack_fail_nth(1, -1, 0);
    EXPECT_EQ(add.run(), add.result_on_failure) << add.name;
    mtrack_fail_nth(0, -1, 0);
    EXPECT_EQ(g_list_length(sch_schedule_email_list), before) << add.name;
    EXPECT_EQ(add.run(), 0) << add.name;
    EXPECT_EQ(g_list_length(sch_schedule_email_list), before + 1) << add.name;
  }
}

}  // namespace
