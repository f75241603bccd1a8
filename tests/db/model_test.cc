// The in-memory model: stored records dispatched into a config set (also with every allocation
// failing in turn), the job table, a job's text, run results, schedule email entries, the bounded
// name copy and the syslog catalogue.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "db/codec.h"
#include "support/traces.h"

namespace {

using namespace sch::testing;
namespace codec = sch::codec;

// Hands a stored key (type, sequence, name) and value to the restore dispatcher.
int dispatch(uint32_t type, uint32_t sequence, const std::string &name, std::vector<uint8_t> value) {
  sch_config_key key{type, sequence, {}};
  std::memcpy(key.name, name.data(), std::min(name.size(), sizeof key.name));
  uint8_t key_image[SCH_KEY_SIZE];
  codec::encode(codec::kConfigKey, &key, key_image);
  pss2_datum key_datum{key_image, SCH_KEY_SIZE};
  pss2_datum value_datum{value.empty() ? nullptr : value.data(), static_cast<int32_t>(value.size())};
  return sch_add_config_entry(&sch_running_config, &key_datum, &value_datum);
}

int dispatch_header(const std::string &name, uint32_t id, uint32_t length) {
  sch_job_header header{id, 0, length};
  std::vector<uint8_t> value(SCH_JOB_HEADER_SIZE);
  codec::encode(codec::kJobHeader, &header, value.data());
  return dispatch(SCH_REC_JOB, 0, name, value);
}

int dispatch_fragment(const std::string &name, uint32_t sequence, const std::string &text) {
  return dispatch(SCH_REC_JOB, sequence, name, std::vector<uint8_t>(text.begin(), text.end()));
}

int job_count() {
  int count = 0;
  for (int index = 0; sch_next_job(&sch_running_config, &index); index++) count++;
  return count;
}

sch_schedule_email_entry *email_entry(const char *schedule) {
  sch_schedule_email_entry *entry = nullptr;
  EXPECT_EQ(sch_find_schedule_email_entry(&sch_schedule_email_list, schedule, &entry), 0);
  return entry;
}

using Jobs = DatabaseTest;
using ScheduleEmail = DatabaseTest;

// A damaged store may claim more text than its fragments hold: reassembly, which trusts the
// header's length, must stay inside the buffers and read zeros past the stored bytes.
TEST_F(Jobs, FragmentsShorterThanTheHeaderSaysAreReadAsZerosAndInvalidRecordsAreDropped) {
  EXPECT_EQ(dispatch_header("torn", 0, 1030), 0);
  EXPECT_EQ(dispatch_fragment("torn", 1, "ab"), 0);
  EXPECT_EQ(dispatch_fragment("torn", 2, ""), 0);
  sch_job_slot *job = nullptr;
  ASSERT_EQ(sch_find_job(&sch_running_config, "torn", &job), 0);
  for (GList *element = job->fragments; element; element = element->next) {
    EXPECT_GE(mtrack_block_size(element->data), size_t{SCH_FRAGMENT_SIZE});
  }
  std::string text(1032, 'x');
  sch_concat_fragments(job->fragments, text.data(), 1030);
  EXPECT_EQ(text.substr(0, 1030), "ab" + std::string(1028, '\0'));
  sch_free_job_entry(job);

  // Invalid jobs and other types are dropped with success.
  EXPECT_EQ(dispatch_header("huge", 300, 1), 0);
  EXPECT_EQ(dispatch_fragment("nobody", 1, "x"), 0);
  EXPECT_EQ(dispatch(42, 0, "odd", {1, 2, 3}), 0);
  EXPECT_EQ(job_count(), 0);
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

TEST_F(Jobs, OutOfMemoryAtEachStepOfARestore) {
  // Key copy and record report -1; a list entry that cannot be had drops the record quietly.
  EXPECT_EQ(results_under_allocation_failures([] { return dispatch(SCH_REC_SCHEDULE, 0, "s", std::vector<uint8_t>(SCH_SCHEDULE_RECORD_SIZE, 1)); },
                                              [] { EXPECT_EQ(sch_schedule_list, nullptr); }),
            (std::vector<int>{-1, -1, 0}));
  EXPECT_EQ(g_list_length(sch_schedule_list), 1u);

  EXPECT_EQ(results_under_allocation_failures([] { return dispatch_header("j", 0, 1); }, [] { EXPECT_EQ(job_count(), 0); }),
            (std::vector<int>{-1, -1}));
  EXPECT_EQ(results_under_allocation_failures([] { return dispatch_fragment("j", 1, "x"); },
                                              [] { EXPECT_EQ(sch_job_list[0].fragments, nullptr); }),
            (std::vector<int>{-1, -1}));
  EXPECT_EQ(g_list_length(sch_job_list[0].fragments), 1u);
}

TEST_F(Jobs, TheTableFindsFullWidthNamesAndASecondHeaderReplacesTheFirst) {
  const std::string name(32, 'n');
  dispatch_header(name, 3, 0);
  sch_job_slot *out = nullptr;
  EXPECT_EQ(sch_find_job(&sch_running_config, name.c_str(), &out), 3);
  EXPECT_EQ(sch_find_job(&sch_running_config, (name + "x").c_str(), &out), -1);
  EXPECT_EQ(sch_find_job(&sch_running_config, name.substr(0, 31).c_str(), &out), -1);

  // Two headers with one id come from a damaged store: the second wins, the first is released.
  dispatch_header("first", 4, 0);
  sch_config_key *kept = sch_job_list[4].key;
  uint64_t live = mtrack_live_blocks(SCH_MTRACK_IDENTITY);
  dispatch_header("other", 4, 9);
  sch_job_slot *slot = &sch_job_list[4];
  EXPECT_EQ(slot->key, kept);
  EXPECT_EQ(slot->header->length, 9u);
  EXPECT_TRUE(traced("job first key already present, adding!"));
  EXPECT_EQ(mtrack_live_blocks(SCH_MTRACK_IDENTITY), live) << "the replaced header and the second key are released";

  // The header the slot already holds, installed again, stays usable.
  auto *again = static_cast<sch_config_key *>(sch_malloc_check(sizeof(sch_config_key), 5, 0, "test"));
  *again = *kept;
  EXPECT_EQ(sch_add_job_hdr(&sch_running_config, again, slot->header, &slot), 0);
  EXPECT_EQ(slot->header->length, 9u);
}

TEST_F(Jobs, TextIsNotReadPastAShortFragmentAndDisplayKeepsTheLastNewline) {
  // A damaged store: the header promises 1500 bytes, the second fragment holds 10.
  std::string text;
  for (size_t i = 0; i < 1034; i++) text.push_back(static_cast<char>('a' + i % 26));
  GList *fragments = nullptr;
  for (size_t offset = 0; offset < text.size(); offset += SCH_FRAGMENT_SIZE) {
    size_t length = std::min<size_t>(SCH_FRAGMENT_SIZE, text.size() - offset);
    fragments = g_list_append(fragments, std::memcpy(sch_malloc_check(length, 7, 0, "test"), text.data() + offset, length));
  }
  std::string buffer(1502, '#');
  EXPECT_EQ(sch_concat_fragments(fragments, buffer.data(), 1500), 0);
  EXPECT_EQ(buffer.substr(0, 1035), text + "#");
  g_list_free_full(fragments, mtrack_free);

  dispatch_header("lines", 0, 4);
  dispatch_fragment("lines", 1, "a\nb\n");
  std::string shown(6, '\0');
  EXPECT_EQ(sch_show_run_concat_fragments(sch_job_list[0].fragments, shown.data(), 4), 0);
  EXPECT_EQ(shown.substr(0, 4), "a;b\n");
}

TEST_F(Jobs, RefusedRunResultsAreReleased) {
  for (uint32_t job : {256u, 3u}) {
    auto *entry = static_cast<sch_runtime_job_status *>(sch_malloc_check(sizeof(sch_runtime_job_status), 4, 0, "t"));
    *entry = sch_runtime_job_status{"nightly", job, {1, 0}};
    EXPECT_EQ(sch_add_runtime_job_status_entry(&sch_running_config, entry), -1);
  }
  auto traces = recorded_traces();
  EXPECT_TRUE(std::any_of(traces.begin(), traces.end(), [](const Trace &t) { return t.level == 102 && t.text == "job key not present!"; }));
  // The fixture fails the test if either entry was kept alive.
}

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

// Removals take the first entry whose name begins with the one given, and every slot whose
// address begins with the one given; lookups are exact.
TEST_F(ScheduleEmail, RemovalsMatchByPrefixAndFreedSlotsAreReused) {
  GList **list = &sch_schedule_email_list;
  for (const char *address : {"a@x", "b@x", "c@x", "d@x"}) sch_add_schedule_email_entry(list, "s1", address);
  sch_add_schedule_email_entry(list, "s10", "ten@x");
  sch_add_schedule_email_entry(list, "s10", "eleven@x");
  EXPECT_EQ(email_entry("s"), nullptr);
  sch_remove_schedule_email_addr(list, "s", "d@x");
  EXPECT_TRUE(traced("email-id d@x removed from s"));
  EXPECT_EQ(email_entry("s10")->count, 2u);
  sch_add_schedule_email_entry(list, "s1", "a@x");
  sch_schedule_email_entry *entry = email_entry("s1");
  EXPECT_STREQ(entry->slots[3].address, "a@x");
  EXPECT_EQ(entry->slots[3].in_use, 1u);
  EXPECT_EQ(entry->count, 4u);
  sch_remove_schedule_email_addr(list, "s1", "a@");
  EXPECT_EQ(entry->count, 2u);
  EXPECT_EQ(entry->slots[0].in_use, 0u);
  EXPECT_EQ(entry->slots[0].address[0], '\0');
  EXPECT_EQ(entry->slots[3].in_use, 0u);

  sch_remove_schedule_email_entry(list, "s1");
  EXPECT_TRUE(traced("removed schedule email entry for s1"));
  EXPECT_EQ(email_entry("s1"), nullptr);
  EXPECT_NE(email_entry("s10"), nullptr);
  mtrack_free(entry);  // unlinked entries become the caller's
  EXPECT_EQ(sch_remove_schedule_email_entry(list, "none"), 0);
  EXPECT_EQ(sch_remove_schedule_email_addr(list, "none", "a"), 0);

  // The last address goes with its entry, whatever the address named.
  sch_add_schedule_email_entry(list, "solo", "only@x");
  sch_schedule_email_entry *solo = email_entry("solo");
  sch_remove_schedule_email_addr(list, "solo", "someone-else@x");
  EXPECT_EQ(email_entry("solo"), nullptr);
  EXPECT_EQ(solo->count, 1u) << "the unlinked entry is left as it was";
  mtrack_free(solo);
}

// A creation that cannot be had is reported by the allocator: adding a first address still says 0.
TEST_F(ScheduleEmail, EachAddOperationSurvivesItsAllocationFailing) {
  const std::pair<int (*)(), std::vector<int>> adds[] = {
      {[] { return sch_add_new_schedule_email_entry(&sch_schedule_email_list, "n", "a@x"); }, {-1}},
      {[] { return sch_add_schedule_email_entry(&sch_schedule_email_list, "f", "a@x"); }, {0}},
      {[] {
         sch_schedule_email_entry stored{"p", 0, {}};
         return sch_add_schedule_email_entry_from_pss(&sch_schedule_email_list, &stored);
       }, {-1}},
  };
  for (const auto &add : adds) {
    guint before = g_list_length(sch_schedule_email_list);
    EXPECT_EQ(results_under_allocation_failures(add.first, [&] { EXPECT_EQ(g_list_length(sch_schedule_email_list), before); }),
              add.second);
    EXPECT_EQ(g_list_length(sch_schedule_email_list), before + 1);
  }
}

TEST(Names, BoundedCopyAlwaysTerminates) {
  char buffer[16];
  std::memset(buffer, 'x', sizeof buffer);
  sch_strcpy(buffer, "0123456789", 10);
  EXPECT_STREQ(buffer, "012345678");
  sch_strcpy(buffer, "0123456789", 11);
  EXPECT_STREQ(buffer, "0123456789");
  sch_strcpy(buffer, nullptr, 10);
  EXPECT_EQ(buffer[0], '\0');
  std::memset(buffer, 'x', sizeof buffer);
  sch_strcpy(buffer, "ab", 6);
  EXPECT_EQ(std::memcmp(buffer, "ab\0\0\0\0x", 7), 0) << "padded to the length, nothing beyond";
}

// Severities and facility as rendered are pinned where the messages are sent (mail, stores).
TEST(SyslogCatalogue, FacilityAndMessagesAreAsPublished) {
  EXPECT_STREQ(syslog_fac_LOG_SCHEDULER.name, "scheduler");
  EXPECT_EQ(syslog_fac_LOG_SCHEDULER.number, 1512u);
  EXPECT_EQ(syslog_fac_LOG_SCHEDULER.default_level, 5);
  EXPECT_STREQ(syslog_msg_SCH_SYSLOG_PSS_ERR.name, "SCH_SYSLOG_PSS_ERR");
  EXPECT_EQ(syslog_msg_SCH_SYSLOG_USER_ERR.severity, 3);
  EXPECT_STREQ(syslog_msg_SCH_SYSLOG_FILE_ERR.format, "<<%%%s-%d-SCH_SYSLOG_FILE_ERR>> %s Error:%s");
}

}  // namespace
