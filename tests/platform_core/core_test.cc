// The platform's small pieces: the big-endian codec, tracked allocation, the intrusive queue, file
// sync, debug levels and history, syslog, status texts, file URIs and feature requests.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "schedcli/platform/auth.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/codec.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/file_sync.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/platform/pss.h"
#include "schedcli/platform/queue.h"
#include "schedcli/platform/sdwrap.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/syslog.h"
#include "schedcli/platform/uri.h"
#include "schedcli/status.h"
#include "support/temp_dir.h"

namespace {

TEST(Codec, CheckedFieldsRefuseToReachPastTheBuffer) {
  std::array<uint8_t, 8> bytes{};
  uint32_t word = 7;
  EXPECT_TRUE(bigendian::put_u32_at(bytes, 4, 0xDEADBEEFu));
  EXPECT_FALSE(bigendian::put_u32_at(bytes, 5, 1));
  EXPECT_FALSE(bigendian::put_u32_at(bytes, SIZE_MAX - 1, 1)) << "offset plus width must not wrap";
  EXPECT_TRUE(bigendian::get_u32_at(bytes, 4, &word));
  EXPECT_EQ(word, 0xDEADBEEFu);
  EXPECT_FALSE(bigendian::get_u32_at(std::span<const uint8_t>(bytes).first(7), 4, &word));
  EXPECT_EQ(word, 0xDEADBEEFu) << "a refused read leaves the output alone";
  uint16_t half = 0;
  EXPECT_FALSE(bigendian::get_u16_at(bytes, 7, &half));
  EXPECT_TRUE(bigendian::put_u16_at(bytes, 6, 0x0102));
  EXPECT_EQ(bytes[6] << 8 | bytes[7], 0x0102);
  EXPECT_TRUE(bigendian::get_u16_at(bytes, 6, &half));
  EXPECT_EQ(half, 0x0102);
}

TEST(Codec, NamesArePaddedWithNulAndReadUpToTheFirstNul) {
  std::array<uint8_t, 12> bytes;
  bytes.fill(0xEE);
  EXPECT_TRUE(bigendian::put_name_at(bytes, 2, 8, "abc"));
  EXPECT_EQ(bytes, (std::array<uint8_t, 12>{0xEE, 0xEE, 'a', 'b', 'c', 0, 0, 0, 0, 0, 0xEE, 0xEE}));
  EXPECT_FALSE(bigendian::put_name_at(bytes, 2, 8, "12345678")) << "no room for the terminator";
  EXPECT_FALSE(bigendian::put_name_at(bytes, 6, 8, "a"));
  EXPECT_EQ(bytes[2], 'a') << "a refused name writes nothing";

  std::string_view name;
  EXPECT_TRUE(bigendian::get_name_at(bytes, 2, 8, &name));
  EXPECT_EQ(name, "abc");
  // A field filled to its last byte has no terminator inside it: the whole field is the name.
  const std::array<uint8_t, 4> full{'w', 'x', 'y', 'z'};
  EXPECT_TRUE(bigendian::get_name_at(full, 0, 4, &name));
  EXPECT_EQ(name, "wxyz");
  EXPECT_FALSE(bigendian::get_name_at(full, 1, 4, &name));
}

TEST(Codec, WordRunsConvertInPlaceOnlyInsideTheImage) {
  std::array<uint8_t, 12> image{};
  const uint32_t native[2] = {0x11223344u, 5};
  std::memcpy(image.data() + 4, native, sizeof native);
  EXPECT_FALSE(bigendian::convert_words_at(image, 8, 2, true));
  EXPECT_TRUE(bigendian::convert_words_at(image, 4, 2, true));
  EXPECT_EQ(image, (std::array<uint8_t, 12>{0, 0, 0, 0, 0x11, 0x22, 0x33, 0x44, 0, 0, 0, 5}));
  EXPECT_TRUE(bigendian::convert_words_at(image, 4, 2, false));
  EXPECT_EQ(std::memcmp(image.data() + 4, native, sizeof native), 0);
}

constexpr uint32_t kOwner = 900;

TEST(Mtrack, CountsLiveBlocksAndBytesPerKind) {
  void *a = mtrack_alloc(kOwner, 3, 100, "a");
  void *b = mtrack_alloc(kOwner, 3, 28, "b");
  void *c = mtrack_alloc(kOwner, 4, 1, "c");
  mtrack_kind_stats stats{};
  ASSERT_EQ(mtrack_kind_stats_get(kOwner, 3, &stats), 0);
  EXPECT_EQ(stats.live_blocks, 2u);
  EXPECT_EQ(stats.live_bytes, 128u);
  EXPECT_EQ(mtrack_live_blocks(kOwner), 3u);
  mtrack_free(a);
  mtrack_free(b);
  mtrack_free(c);
  mtrack_free(nullptr);
  mtrack_kind_stats_get(kOwner, 3, &stats);
  EXPECT_EQ(stats.live_blocks, 0u);
  EXPECT_EQ(stats.live_bytes, 0u);
  EXPECT_EQ(stats.allocations, 2u);
  EXPECT_EQ(mtrack_live_blocks(kOwner), 0u);
  EXPECT_EQ(mtrack_kind_stats_get(kOwner, MTRACK_MAX_KIND + 1, &stats), -1);
}

// Four allocations after each setting: which of them fail ('x').
TEST(Mtrack, HookFailsTheNthAllocationOnceOrFromThenOn) {
  for (auto [nth, persistent, expected] :
       {std::tuple{2, 0, "-x--"}, std::tuple{1, 1, "xxxx"}, std::tuple{0, 0, "----"}}) {
    mtrack_fail_nth(nth, -1, persistent);
    std::string failed;
    for (int i = 0; i < 4; i++) {
      void *block = mtrack_alloc(kOwner, 1, 8, "n");
      failed += block ? '-' : 'x';
      mtrack_free(block);
    }
    EXPECT_EQ(failed, expected) << nth << (persistent ? " from then on" : " once");
  }
}

struct Element {
  void *link;
  int value;
};

std::vector<int> drain(queue_header *queue) {
  std::vector<int> values;
  while (auto *element = static_cast<Element *>(dequeue_head(queue))) values.push_back(element->value);
  return values;
}

int by_value(const void *element, const void *key) {
  return static_cast<const Element *>(element)->value == *static_cast<const int *>(key) ? 0 : 1;
}

TEST(Queue, SearchUnlinksHeadMiddleAndTailKeepingTheRestLinked) {
  for (int victim : {1, 2, 3}) {
    queue_header queue{};
    Element a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3};
    enqueue_tail(&queue, &a);
    enqueue_tail(&queue, &b);
    enqueue_tail(&queue, &c);
    auto *removed = static_cast<Element *>(search_and_dequeue_elem(&queue, by_value, &victim));
    ASSERT_NE(removed, nullptr);
    EXPECT_EQ(removed->value, victim);
    Element d{nullptr, 4};
    enqueue_tail(&queue, &d);  // the tail must still be right
    std::vector<int> expected = {1, 2, 3, 4};
    expected.erase(expected.begin() + victim - 1);
    EXPECT_EQ(drain(&queue), expected) << "victim " << victim;
  }
  queue_header empty{};
  int missing = 9;
  EXPECT_EQ(search_and_dequeue_elem(&empty, by_value, &missing), nullptr);
}

TEST(FileSync, SyncsAFileAndTheDirectoryThatNamesItOrReportsTheError) {
  sch::testing::TempDir temp;
  const std::string directory = temp.path();
  const std::string file = directory + "/f";
  int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(file_sync(fd), 0);
  EXPECT_EQ(file_sync_with_directory(fd, file.c_str()), 0);
  close(fd);
  EXPECT_EQ(file_sync(fd), EBADF);
  EXPECT_EQ(file_sync_with_directory(-1, file.c_str()), EBADF);
  EXPECT_EQ(file_sync_directory_of(nullptr), EINVAL);
  // The name itself need not exist, and a bare name is in the working directory.
  for (const auto &[path, expected] : std::vector<std::pair<std::string, int>>{
           {directory + "/gone", 0}, {"relative-name", 0}, {"/top-level", 0}, {"", EINVAL},
           {directory + "/missing/f", ENOENT}, {file + "/f", ENOTDIR}}) {
    EXPECT_EQ(file_sync_directory_of(path.c_str()), expected) << path;
  }
}

TEST(History, CutsLongRecordsAndDumpsSchedulerRecordsAsText) {
  sdwrap_sys_clean(nullptr);
  std::string huge(SDWRAP_HISTORY_RECORD * 2, 'h');
  sdwrap_hist_event(2, huge.data(), huge.size());
  size_t kept = 0;
  sdwrap_history_walk([](uint32_t, const void *, size_t length, void *kept) { *static_cast<size_t *>(kept) = length; },
                      &kept);
  EXPECT_EQ(kept, static_cast<size_t>(SDWRAP_HISTORY_RECORD));

  sdwrap_sys_clean(nullptr);
  unsigned char record[32] = {};
  int32_t level = 103;
  std::memcpy(record, &level, sizeof level);
  std::strcpy(reinterpret_cast<char *>(record) + 4, "saving\n");
  sdwrap_hist_event(0x730000, record, 4 + 8);
  FILE *out = std::tmpfile();
  sdwrap_history_dump(out);
  std::rewind(out);
  char line[64] = {};
  ASSERT_NE(std::fgets(line, sizeof line, out), nullptr);
  std::fclose(out);
  EXPECT_STREQ(line, "[103] saving\n");
}

TEST(DebugLevels, SwitchOnePerLevelOrAllAtOnce) {
  EXPECT_EQ(sdwrap_chk_int(103, 0, 0, 1), 0);
  sdwrap_debug_level_set(103, 1);
  EXPECT_EQ(sdwrap_chk_int(103, 0, 0, 1), 1);
  EXPECT_EQ(sdwrap_chk_int(102, 0, 0, 1), 0);
  sdwrap_debug_level_set(-1, 1);
  EXPECT_EQ(sdwrap_chk_int(100, 0, 0, 1), 1);
  sdwrap_dbg_clean(nullptr);
  EXPECT_EQ(sdwrap_chk_int(100, 0, 0, 1), 0);
  EXPECT_EQ(sdwrap_chk_int(-1, 0, 0, 1), 0);
  EXPECT_EQ(sdwrap_chk_int(SDWRAP_MAX_LEVEL + 1, 0, 0, 1), 0);

  EXPECT_EQ(sdwrap_hist_event_subtype_check(0x730000, 102), 0);
  sdwrap_history_level_set(102, 0);
  EXPECT_NE(sdwrap_hist_event_subtype_check(0x730000, 102), 0);
  sdwrap_history_level_set(-1, 1);
  EXPECT_EQ(sdwrap_hist_event_subtype_check(0x730000, 102), 0);
}

TEST(DebugDump, KnowsTheAllocatorStatistics) {
  FILE *out = std::tmpfile();
  EXPECT_EQ(sdwrap_debug_dump(nullptr, out, "mtrack_dump_memstats"), 0);
  EXPECT_GT(std::ftell(out), 0);
  EXPECT_EQ(sdwrap_debug_dump(nullptr, out, "nothing"), -1);
  std::fclose(out);
}

TEST(Syslog, RendersTheMarkerAsOnePercentAndCopiesToStandardError) {
  std::vector<std::string> seen;
  nost_syslog_set_sink(
      [](int severity, const char *text, void *context) {
        static_cast<std::vector<std::string> *>(context)->push_back(std::to_string(severity) + ":" + text);
      },
      &seen);
  nost_syslog_copy_to_stderr(1);
  ::testing::internal::CaptureStderr();
  nost_syslog(3, "<<%%%s-%d-SCH_ERR>> %s", "SCHEDULER", 3, "disk gone");
  std::string copied = ::testing::internal::GetCapturedStderr();
  nost_syslog_copy_to_stderr(0);
  nost_syslog(9, "plain %d", 1);  // an out-of-range severity is delivered as an error
  nost_syslog_set_sink(nullptr, nullptr);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], "3:%SCHEDULER-3-SCH_ERR>> disk gone");
  EXPECT_EQ(copied, "%SCHEDULER-3-SCH_ERR>> disk gone\n");
  EXPECT_EQ(seen[1], "3:plain 1");
}

// Every status word of the transport, users and secrets has a text of its own.
TEST(Syserr, EveryKnownCodeHasItsOwnTextAndUnknownCodesAreNamed) {
  EXPECT_STREQ(syserr2str(PSS2_ERR_NO_KEY), "No such record in the store");
  EXPECT_STREQ(syserr2str(SCH_STATUS_TIME_IN_PAST), "Specified time is in the past");
  EXPECT_STREQ(syserr2str(0x12345678), "unknown error 0x12345678");
  std::set<uint32_t> codes = {CMI_STREAM_END, CMI_NOTHING_WAITING};
  for (uint32_t code = CMI_ERR_BAD_ARGUMENT; code <= CMI_ERR_EMPTY; code++) codes.insert(code);
  for (uint32_t code = AUTH_ERR_BAD_ARGUMENT; code <= AUTH_ERR_NO_MEMORY; code++) codes.insert(code);
  for (uint32_t code = SECRETS_ERR_BAD_ARGUMENT; code <= SECRETS_ERR_NO_MEMORY; code++) codes.insert(code);
  std::set<std::string> texts;
  for (uint32_t code : codes) {
    std::string text = syserr2str(code);
    EXPECT_FALSE(text.starts_with("unknown error")) << std::hex << code;
    texts.insert(text);
  }
  EXPECT_EQ(texts.size(), codes.size());
}

TEST(FileUri, ParsesKnownFileSystemsAndPlainPathsAndRefusesTheRest) {
  file_uri uri;
  ASSERT_EQ(uri_parse("logs:sched.log", &uri), 0);
  EXPECT_STREQ(uri.device, "logs");
  EXPECT_STREQ(uri.path, "sched.log");
  ASSERT_EQ(uri_parse("/var/tmp/x.dat", &uri), 0);
  EXPECT_STREQ(uri.device, "");
  EXPECT_STREQ(uri.path, "/var/tmp/x.dat");
  char text[64];
  EXPECT_EQ(snprintf_uri_len(text, &uri, sizeof text), 14);
  EXPECT_STREQ(text, "/var/tmp/x.dat");
  uri_parse("bootflash:a/b", &uri);
  EXPECT_EQ(snprintf_uri_len(text, &uri, 8), 13) << "the full length, like snprintf";
  EXPECT_STREQ(text, "bootfla");

  for (const std::string &refused :
       {std::string("floppy:x"), std::string(), std::string("logs:"), std::string("logs:../../etc/passwd"),
        std::string("logs:a/../b"), std::string(300, 'p')}) {
    EXPECT_EQ(uri_parse(refused.c_str(), &uri), -1) << refused;
  }
  EXPECT_EQ(uri_parse(nullptr, &uri), -1);
}

TEST(FeatureManager, RequestParsingRefusesMalformedPayloads) {
  struct Case {
    std::vector<uint8_t> payload;
    uint32_t expected;
  };
  // The unterminated name ends at the payload's end.
  for (const auto &[payload, expected] :
       {Case{{3, 's', 'c', 'h', 0}, 0}, Case{{4, 's', 'c', 'h'}, 0}, Case{{7, 'x', 0}, FM_ERR_BAD_ARGUMENT},
        Case{{3, 0}, FM_ERR_BAD_ARGUMENT}, Case{{3}, FM_ERR_BAD_ARGUMENT}}) {
    uint32_t action = 0;
    char name[FM_FEATURE_NAME_SIZE] = {};
    EXPECT_EQ(fm_feature_request_parse(payload.data(), payload.size(), &action, name), expected) << int(payload[0]);
    if (expected == 0) {
      EXPECT_EQ(action, payload[0]);
      EXPECT_STREQ(name, "sch");
    }
  }
}

}  // namespace
