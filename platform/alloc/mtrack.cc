// Tracked allocation: counts by owner identity and kind, a statistics dump, and a failure hook.
#include "schedcli/platform/mtrack.h"

#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <utility>

namespace {

// Sits in front of every block; its size keeps the block maximally aligned.
struct alignas(alignof(std::max_align_t)) BlockHeader {
  uint64_t magic;
  size_t size;
  uint32_t identity;
  uint32_t kind;
};
constexpr uint64_t kLiveMagic = 0x6d747261636b4c56ull;  // a freed header is overwritten
constexpr uint64_t kFreedMagic = 0x6d747261636b4644ull;

struct KindRecord {
  mtrack_kind_stats stats{};
  const char *last_purpose = nullptr;
};

struct FailureHook {
  uint64_t nth = 0;  // 0: disarmed
  int kind = -1;
  bool persistent = false;
  uint64_t counted = 0;
};

struct Tracker {
  std::mutex mutex;
  std::map<std::pair<uint32_t, uint32_t>, KindRecord> kinds;
  FailureHook hook;
};

Tracker &tracker() {
  static Tracker instance;
  return instance;
}

// Decides under the lock whether this allocation is the one the hook makes fail.
bool hook_fires(FailureHook &hook, uint32_t kind) {
  if (hook.nth == 0) return false;
  if (hook.kind >= 0 && static_cast<uint32_t>(hook.kind) != kind) return false;
  hook.counted++;
  return hook.counted == hook.nth || (hook.persistent && hook.counted > hook.nth);
}

}  // namespace

extern "C" {

void *mtrack_alloc(uint32_t identity, uint32_t kind, size_t size, const char *purpose) {
  Tracker &t = tracker();
  std::lock_guard lock(t.mutex);
  KindRecord &record = t.kinds[std::make_pair(identity, kind)];
  record.last_purpose = purpose;
  if (kind > MTRACK_MAX_KIND || size > SIZE_MAX - sizeof(BlockHeader) || hook_fires(t.hook, kind)) {
    record.stats.failures++;
    return nullptr;
  }
  auto *header = static_cast<BlockHeader *>(std::malloc(sizeof(BlockHeader) + size));
  if (!header) {
    record.stats.failures++;
    return nullptr;
  }
  *header = BlockHeader{kLiveMagic, size, identity, kind};
  record.stats.live_blocks++;
  record.stats.live_bytes += size;
  record.stats.allocations++;
  return header + 1;
}

void mtrack_free(void *block) {
  if (!block) return;
  BlockHeader *header = static_cast<BlockHeader *>(block) - 1;
  Tracker &t = tracker();
  {
    std::lock_guard lock(t.mutex);
    if (header->magic != kLiveMagic) {
      // A double free or a foreign block: refuse it rather than corrupt the heap.
      std::fprintf(stderr, "mtrack_free: %p is not a live tracked block\n", block);
      return;
    }
    header->magic = kFreedMagic;
    auto found = t.kinds.find(std::make_pair(header->identity, header->kind));
    if (found != t.kinds.end()) {
      found->second.stats.live_blocks--;
      found->second.stats.live_bytes -= header->size;
    }
  }
  std::free(header);
}

size_t mtrack_block_size(const void *block) {
  return block ? (static_cast<const BlockHeader *>(block) - 1)->size : 0;
}

int mtrack_kind_stats_get(uint32_t identity, uint32_t kind, mtrack_kind_stats *out) {
  if (!out || kind > MTRACK_MAX_KIND) return -1;
  Tracker &t = tracker();
  std::lock_guard lock(t.mutex);
  auto found = t.kinds.find(std::make_pair(identity, kind));
  *out = found == t.kinds.end() ? mtrack_kind_stats{} : found->second.stats;
  return 0;
}

uint64_t mtrack_live_blocks(uint32_t identity) {
  Tracker &t = tracker();
  std::lock_guard lock(t.mutex);
  uint64_t live = 0;
  for (const auto &[id, record] : t.kinds) {
    if (id.first == identity) live += record.stats.live_blocks;
  }
  return live;
}

void mtrack_dump_memstats(FILE *out) {
  if (!out) return;
  Tracker &t = tracker();
  std::lock_guard lock(t.mutex);
  std::fprintf(out, "%-8s %-4s %10s %12s %12s %8s  %s\n", "identity", "kind", "live", "live bytes",
               "allocations", "failures", "last purpose");
  for (const auto &[id, record] : t.kinds) {
    const mtrack_kind_stats &s = record.stats;
    std::fprintf(out, "%-8" PRIu32 " %-4" PRIu32 " %10" PRIu64 " %12" PRIu64 " %12" PRIu64 " %8" PRIu64 "  %s\n",
                 id.first, id.second, s.live_blocks, s.live_bytes, s.allocations, s.failures,
                 record.last_purpose ? record.last_purpose : "-");
  }
}

void mtrack_reset_counters(void) {
  Tracker &t = tracker();
  std::lock_guard lock(t.mutex);
  for (auto &[id, record] : t.kinds) {
    record.stats.allocations = 0;
    record.stats.failures = 0;
  }
}

void mtrack_fail_nth(uint64_t nth, int kind, int persistent) {
  Tracker &t = tracker();
  std::lock_guard lock(t.mutex);
  t.hook = FailureHook{nth, kind, persistent != 0, 0};
}

uint64_t mtrack_hook_count(void) {
  Tracker &t = tracker();
  std::lock_guard lock(t.mutex);
  return t.hook.counted;
}

}  // extern "C"
