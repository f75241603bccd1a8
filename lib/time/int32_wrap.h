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

}  // namespace sch

#endif
