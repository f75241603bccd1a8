// 32-bit two's-complement arithmetic for words taken from records and requests. The target
// computes these sums in plain 32-bit registers, so an unchecked word wraps rather than failing;
// doing the same here keeps results identical and free of signed-overflow faults.
#ifndef SCHEDCLI_LIB_TIME_INT32_WRAP_H
#define SCHEDCLI_LIB_TIME_INT32_WRAP_H

#include <cstdint>

namespace sch {

constexpr int32_t wrapping_add(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

constexpr int32_t wrapping_sub(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

// Whether a time in seconds since the epoch fits a record's signed 32-bit seconds word, the
// target's own time value (so on the target every time fits: its clock ends in January 2038).
// Callers pass time_t; 64-bit hosts have times that do not fit, and they are refused rather than
// cut to another date.
constexpr bool fits_time_word(int64_t seconds) {
  return seconds >= INT32_MIN && seconds <= INT32_MAX;
}

}  // namespace sch

#endif
