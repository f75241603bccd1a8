// Walking a bit set of 32-bit words.
#include "schedcli/platform/bitset.h"

extern "C" int bitset_next_bit(const uint32_t *words, int bit_count, int previous) {
  if (!words || bit_count <= 0) return -1;
  int bit = previous < 0 ? 0 : previous + 1;
  while (bit < bit_count) {
    // Skip the rest of the word at once when no higher bit in it is set.
    uint32_t remaining = words[bit / 32] >> (bit % 32);
    if (remaining == 0) {
      bit = (bit / 32 + 1) * 32;
      continue;
    }
    bit += __builtin_ctz(remaining);
    return bit < bit_count ? bit : -1;
  }
  return -1;
}
