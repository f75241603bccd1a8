/* Tracked allocation: every long-lived buffer of the scheduler is counted by owner identity and
 * allocation kind, so leaks and growth can be seen per kind and tests can make allocations fail.
 *
 * Ownership: a block from mtrack_alloc is the caller's until it hands it to mtrack_free.
 * mtrack_free(NULL) does nothing. Blocks are not zero-filled. */
#ifndef SCHEDCLI_PLATFORM_MTRACK_H
#define SCHEDCLI_PLATFORM_MTRACK_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

/* Kinds are small numbers chosen by the owner; larger ones are refused. */
#define MTRACK_MAX_KIND 63

/* Returns a block of `size` bytes (a zero-size request gives a valid, unique block), or NULL when
 * memory is exhausted, the kind is out of range, or the failure hook fires. */
SCHED_EXPORT void *mtrack_alloc(uint32_t identity, uint32_t kind, size_t size, const char *purpose);
SCHED_EXPORT void mtrack_free(void *block);

typedef struct mtrack_kind_stats {
  uint64_t live_blocks;   /* allocated and not yet freed */
  uint64_t live_bytes;
  uint64_t allocations;   /* successful allocations since start or the last reset */
  uint64_t failures;      /* refused allocations, the hook's included */
} mtrack_kind_stats;

/* The size a live block was allocated with; 0 for NULL. */
SCHED_EXPORT size_t mtrack_block_size(const void *block);

/* Statistics of one identity and kind; zeroes for a pair never seen. Returns 0, or -1 for a kind
 * out of range. */
SCHED_EXPORT int mtrack_kind_stats_get(uint32_t identity, uint32_t kind, mtrack_kind_stats *out);
/* Live blocks of an identity over all kinds. */
SCHED_EXPORT uint64_t mtrack_live_blocks(uint32_t identity);
/* Writes one line per identity and kind in use: live blocks, live bytes, allocations, failures,
 * and the purpose of the latest allocation. */
SCHED_EXPORT void mtrack_dump_memstats(FILE *out);
/* Forgets the allocation and failure counters (live counts stay: their blocks still exist). */
SCHED_EXPORT void mtrack_reset_counters(void);

/* Test hook: the `nth` allocation from now on (1 = the next one) fails; with kind >= 0 only
 * allocations of that kind are counted. `persistent` non-zero makes every later matching one fail
 * too. nth = 0 disarms the hook. */
SCHED_EXPORT void mtrack_fail_nth(uint64_t nth, int kind, int persistent);
/* Number of matching allocations counted since the hook was last armed. */
SCHED_EXPORT uint64_t mtrack_hook_count(void);

SCHED_END_DECLS

#endif
