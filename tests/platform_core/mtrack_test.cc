// Tracked allocation: per-kind statistics and the failure hook.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "schedcli/platform/mtrack.h"

namespace {

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

TEST(Mtrack, BlocksAreAlignedAndUsableToTheirSize) {
  for (size_t size : {0u, 1u, 7u, 4096u}) {
    auto *block = static_cast<unsigned char *>(mtrack_alloc(kOwner, 1, size, "aligned"));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
    for (size_t i = 0; i < size; i++) block[i] = 0xAB;
    mtrack_free(block);
  }
}

TEST(Mtrack, HookFailsTheNthAllocationOnceOrFromThenOn) {
  mtrack_fail_nth(2, -1, 0);
  void *first = mtrack_alloc(kOwner, 1, 8, "1");
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(mtrack_alloc(kOwner, 1, 8, "2"), nullptr);
  void *third = mtrack_alloc(kOwner, 1, 8, "3");
  EXPECT_NE(third, nullptr);
  mtrack_free(first);
  mtrack_free(third);

  mtrack_fail_nth(1, -1, 1);
  EXPECT_EQ(mtrack_alloc(kOwner, 1, 8, "p1"), nullptr);
  EXPECT_EQ(mtrack_alloc(kOwner, 1, 8, "p2"), nullptr);
  mtrack_fail_nth(0, -1, 0);
  void *fine = mtrack_alloc(kOwner, 1, 8, "after");
  EXPECT_NE(fine, nullptr);
  mtrack_free(fine);
}

TEST(Mtrack, HookCanCountOneKindOnly) {
  mtrack_fail_nth(1, 7, 0);
  void *other = mtrack_alloc(kOwner, 6, 8, "other kind");
  EXPECT_NE(other, nullptr);
  EXPECT_EQ(mtrack_hook_count(), 0u);
  EXPECT_EQ(mtrack_alloc(kOwner, 7, 8, "chosen kind"), nullptr);
  EXPECT_EQ(mtrack_hook_count(), 1u);
  mtrack_kind_stats stats{};
  mtrack_kind_stats_get(kOwner, 7, &stats);
  EXPECT_EQ(stats.failures, 1u);
  mtrack_fail_nth(0, -1, 0);
  mtrack_free(other);
}

TEST(Mtrack, DumpListsEachKindWithItsLatestPurpose) {
  void *block = mtrack_alloc(kOwner, 9, 64, "dump me");
  FILE *out = std::tmpfile();
  mtrack_dump_memstats(out);
  std::rewind(out);
  std::string text;
  char line[256];
  while (std::fgets(line, sizeof line, out)) text += line;
  std::fclose(out);
  mtrack_free(block);
  EXPECT_NE(text.find("dump me"), std::string::npos);
  EXPECT_NE(text.find("900"), std::string::npos);
}

}  // namespace
