// The run log: appending within the size bound, torn tails, reading back, and the reply messages.
#include "runner/run_log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "runner/log_file.h"
#include "schedcli/status.h"
#include "schedcli/wire.h"
#include "support/temp_dir.h"

namespace {

using namespace schedd::runner;
using Bytes = std::vector<uint8_t>;

RunLogEntry entry(int n, size_t output_size = 10) {
  RunLogEntry e;
  e.job = "job" + std::to_string(n);
  e.schedule = n % 2 ? "odd" : "even";
  e.user = "alice";
  e.wait_status = static_cast<uint32_t>(n) << 8;
  e.completion_time = 1000 + n;
  for (size_t i = 0; i < output_size; i++) e.output.push_back(static_cast<char>('a' + (n + i) % 26));
  return e;
}

bool same(const RunLogEntry &a, const RunLogEntry &b) {
  return a.job == b.job && a.schedule == b.schedule && a.user == b.user && a.wait_status == b.wait_status &&
         a.completion_time == b.completion_time && a.output == b.output;
}

Bytes file_bytes(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

class RunLog : public ::testing::Test {
 protected:
  RunLogState append(const RunLogEntry &e, uint32_t limit = 1u << 20) {
    RunLogState state{99, 99};
    EXPECT_EQ(append_run_log_entry(path_, limit, e, &state), 0u);
    return state;
  }
  std::vector<RunLogEntry> read() {
    std::vector<RunLogEntry> entries;
    EXPECT_TRUE(read_run_log(path_, &entries));
    return entries;
  }
  sch::testing::TempDir temp_;
  std::string path_ = temp_.path() + "/log.dat";
};

uint32_t word(const Bytes &bytes, size_t offset) { return sch_wire_get_u32(bytes.data() + offset); }

TEST(RunLogCrc, MatchesTheIeeeCheckValue) {
  const char *check = "123456789";
  EXPECT_EQ(crc32_update(0, reinterpret_cast<const uint8_t *>(check), 9), 0xCBF43926u);
  // Continued in two pieces it gives the same.
  uint32_t crc = crc32_update(0, reinterpret_cast<const uint8_t *>(check), 4);
  EXPECT_EQ(crc32_update(crc, reinterpret_cast<const uint8_t *>(check) + 4, 5), 0xCBF43926u);
}

TEST_F(RunLog, EntryBytesArePinned) {
  RunLogEntry e = entry(3, 2);
  e.job = std::string(40, 'j');  // cut to 32, unterminated
  append(e);
  // Magic, body length, CRC of the body; the body's names, words and output; zeros elsewhere.
  Bytes expected(12 + 108 + 2, 0);
  for (auto [offset, value] : {std::pair<size_t, uint32_t>{0, schedd::kLogEntryMagic}, {4, 110}, {108, 0x300},
                               {112, 1003}, {116, 2}}) {
    sch_wire_put_u32(expected.data() + offset, value);
  }
  for (auto [offset, text] : {std::pair<size_t, std::string>{12, std::string(32, 'j')}, {44, "odd"}, {76, "alice"},
                              {120, "de"}}) {
    std::copy(text.begin(), text.end(), expected.begin() + static_cast<long>(offset));
  }
  sch_wire_put_u32(expected.data() + 8, crc32_update(0, expected.data() + 12, 110));
  EXPECT_EQ(file_bytes(path_), expected);
}

TEST_F(RunLog, AtTheBoundTheNewestEntriesThatFitAreKept) {
  const uint32_t one = static_cast<uint32_t>(run_log_entry_size(entry(0)));
  const uint32_t limit = 3 * one + one / 2;  // room for three and a half
  for (int n = 1; n <= 3; n++) EXPECT_EQ(append(entry(n), limit).count, static_cast<uint32_t>(n));
  struct stat before;
  ASSERT_EQ(stat(path_.c_str(), &before), 0);
  RunLogState state = append(entry(4), limit);
  EXPECT_EQ(state.count, 3u);
  struct stat after;
  ASSERT_EQ(stat(path_.c_str(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino) << "a wrap writes a new file and renames it over";
  EXPECT_LE(after.st_size, limit);
  auto entries = read();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_TRUE(same(entries[0], entry(2)));
  EXPECT_TRUE(same(entries[2], entry(4)));
  EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));

  // A larger entry pushes out as many as it needs; one too large for the limit keeps the start
  // of its output that fits, alone.
  EXPECT_EQ(append(entry(5, one), limit).count, 2u);
  EXPECT_EQ(append(entry(6, 10 * one), limit).count, 1u);
  entries = read();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(file_bytes(path_).size(), limit);
  EXPECT_EQ(entries[0].output, entry(6, 10 * one).output.substr(0, limit - 120));

  RunLogState untouched;
  EXPECT_EQ(append_run_log_entry(path_, 100, entry(7), &untouched), SCH_STATUS_BAD_REQUEST);
}

TEST_F(RunLog, ATornTailStopsReadersAndIsCutBeforeTheNextAppend) {
  append(entry(1));
  append(entry(2));
  Bytes whole = file_bytes(path_);
  // A crash in the middle of the third append.
  append(entry(3, 300));
  Bytes torn = file_bytes(path_);
  torn.resize(whole.size() + 100);
  std::ofstream(path_, std::ios::binary | std::ios::trunc).write(reinterpret_cast<char *>(torn.data()), torn.size());
  EXPECT_EQ(read().size(), 2u);
  EXPECT_EQ(append(entry(4)).count, 3u);
  auto entries = read();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_TRUE(same(entries[2], entry(4)));

  // A changed byte is caught by the CRC: reading stops before that entry.
  Bytes bytes = file_bytes(path_);
  bytes[whole.size() - 3] ^= 0x20;  // inside the second entry's output
  std::ofstream(path_, std::ios::binary | std::ios::trunc).write(reinterpret_cast<char *>(bytes.data()), bytes.size());
  EXPECT_EQ(read().size(), 1u);
}

TEST_F(RunLog, AReplySendsWhatWasCountedWhateverHappensToTheFileMeanwhile) {
  append(entry(1));
  append(entry(2));
  auto source = RunLogMessages::open(path_, "", 4096);
  ASSERT_NE(source, nullptr);
  Bytes payload;
  ASSERT_EQ(source->next(&payload), RunLogMessages::Next::message);
  // Appends that wrap the file do not change the reply begun on the old one.
  const uint32_t limit = static_cast<uint32_t>(run_log_entry_size(entry(0)) * 2);
  append(entry(3), limit);
  append(entry(4), limit);
  ASSERT_EQ(source->next(&payload), RunLogMessages::Next::message);
  EXPECT_EQ(word(payload, 4), 2u);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(payload.data()) + 8), "job2");
  EXPECT_EQ(source->next(&payload), RunLogMessages::Next::end);

  // A log emptied in place under a reply stops it short.
  source = RunLogMessages::open(path_, "", 4096);
  ASSERT_EQ(source->count(), 2u);
  ASSERT_EQ(truncate(path_.c_str(), 0), 0);
  EXPECT_EQ(source->next(&payload), RunLogMessages::Next::failed);
}

}  // namespace
