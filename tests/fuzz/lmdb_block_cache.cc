// The fuzzing build's LMDB allocates through these functions (cmake/FuzzLmdb.cmake renames its
// calls). LMDB takes about 3 MiB of page lists each time it opens a writable environment and frees
// them when it closes it. The address sanitizer maps, poisons, quarantines and unmaps every such
// block, and that made opening a store most of what a daemon start costs in the harnesses: the
// restore harness starts a daemon twice per input. So a block of kLargeBlock bytes or more is kept
// when freed and handed out again for the same size; every other block is the sanitizer's as
// before. Accesses past a kept block's end are still caught; a use after free of one is not.
// A kept block's whole pages are given back to the kernel, which hands them out zeroed on first
// touch: LMDB callocs its lists but touches only their heads, and zeroing all of them again cost
// a sixth of a restore input.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sys/mman.h>
#include <unordered_map>

namespace {

constexpr size_t kLargeBlock = 256 * 1024;
constexpr size_t kAlignment = 4096;  // enough for any posix_memalign LMDB makes (a page)

struct BlockCache {
  std::mutex lock;
  std::unordered_map<void *, size_t> in_use;      // block -> size
  std::unordered_multimap<size_t, void *> kept;   // size -> block
};

// Never destroyed: an environment may still be closed while the process exits.
BlockCache &cache() {
  static auto *blocks = new BlockCache;
  return *blocks;
}

// Sets *zeroed_to to how many bytes from the block's start are known to be zero: a kept block's
// whole pages, none of a new one.
void *take(size_t size, size_t *zeroed_to = nullptr) {
  BlockCache &blocks = cache();
  std::lock_guard guard(blocks.lock);
  void *block = nullptr;
  size_t zeroed = 0;
  if (auto found = blocks.kept.find(size); found != blocks.kept.end()) {
    block = found->second;
    blocks.kept.erase(found);
    zeroed = size / kAlignment * kAlignment;
  } else if (posix_memalign(&block, kAlignment, size) != 0) {
    return nullptr;
  }
  blocks.in_use.emplace(block, size);
  if (zeroed_to) *zeroed_to = zeroed;
  return block;
}

// The size of a block take() handed out, or 0 for any other.
size_t size_of_taken(void *block) {
  BlockCache &blocks = cache();
  std::lock_guard guard(blocks.lock);
  auto found = blocks.in_use.find(block);
  return found == blocks.in_use.end() ? 0 : found->second;
}

// Keeps a block take() handed out; false for any other.
bool keep(void *block) {
  BlockCache &blocks = cache();
  std::lock_guard guard(blocks.lock);
  auto found = blocks.in_use.find(block);
  if (found == blocks.in_use.end()) return false;
  // Private anonymous pages read as zero after this; the block itself stays mapped and allocated.
  size_t whole_pages = found->second / kAlignment * kAlignment;
  if (madvise(block, whole_pages, MADV_DONTNEED) != 0) std::memset(block, 0, whole_pages);
  blocks.kept.emplace(found->second, block);
  blocks.in_use.erase(found);
  return true;
}

}  // namespace

extern "C" {

void *fuzz_lmdb_malloc(size_t size) { return size >= kLargeBlock ? take(size) : std::malloc(size); }

void *fuzz_lmdb_calloc(size_t count, size_t size) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes) || bytes < kLargeBlock) return std::calloc(count, size);
  size_t zeroed = 0;
  void *block = take(bytes, &zeroed);
  if (block) std::memset(static_cast<char *>(block) + zeroed, 0, bytes - zeroed);
  return block;
}

int fuzz_lmdb_posix_memalign(void **out, size_t alignment, size_t size) {
  if (size < kLargeBlock || alignment > kAlignment) return posix_memalign(out, alignment, size);
  *out = take(size);
  return *out ? 0 : ENOMEM;
}

void fuzz_lmdb_free(void *block) {
  if (block && !keep(block)) std::free(block);
}

void *fuzz_lmdb_realloc(void *block, size_t size) {
  size_t old_size = block ? size_of_taken(block) : 0;
  if (old_size == 0) return std::realloc(block, size);
  void *moved = fuzz_lmdb_malloc(size);
  if (!moved) return nullptr;
  std::memcpy(moved, block, std::min(old_size, size));
  keep(block);
  return moved;
}

}  // extern "C"
