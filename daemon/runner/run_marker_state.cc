// The run marker's first byte, which the job's child and the daemon change with atomic operations
// on the shared mapping. Apart from the rest of the marker: the ready-job program needs only this.
#include <sys/mman.h>

#include <atomic>

#include "runner/run_marker.h"

namespace schedd::runner {

static_assert(std::atomic_ref<char>::is_always_lock_free, "the start is claimed across processes");

bool RunMarker::claim(char *state) {
  char expected = kWaiting;
  return std::atomic_ref<char>(*state).compare_exchange_strong(expected, kStarted) || expected == kStarted;
}

bool RunMarker::claim_start() { return claim(state_); }

bool RunMarker::claim_start(int fd) {
  void *mapped = mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (mapped == MAP_FAILED) return false;
  bool claimed = claim(static_cast<char *>(mapped));
  munmap(mapped, 1);
  return claimed;
}

bool RunMarker::cancel() {
  char expected = kWaiting;
  return std::atomic_ref<char>(*state_).compare_exchange_strong(expected, kCancelled) || expected == kCancelled;
}

bool RunMarker::started() const { return std::atomic_ref<char>(*state_).load() == kStarted; }

}  // namespace schedd::runner
