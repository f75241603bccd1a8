/* Walking a bit set held as 32-bit words: bit n is 1u << (n % 32) of word n / 32. */
#ifndef SCHEDCLI_PLATFORM_BITSET_H
#define SCHEDCLI_PLATFORM_BITSET_H

#include <stdint.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

/* The lowest set bit above `previous` among the first `bit_count` bits, or -1 when there is none.
 * Start a walk with previous = -1. */
SCHED_EXPORT int bitset_next_bit(const uint32_t *words, int bit_count, int previous);

SCHED_END_DECLS

#endif
