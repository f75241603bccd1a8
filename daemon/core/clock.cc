// The system's clocks.
#include "core/clock.h"

namespace schedd {

std::time_t SystemClock::wall_seconds() const { return std::time(nullptr); }

int64_t SystemClock::monotonic_ms() const {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace schedd
