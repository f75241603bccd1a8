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

}  // namespace
