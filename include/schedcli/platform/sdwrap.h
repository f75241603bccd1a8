/* Debug levels, the in-memory event history and buginf output.
 *
 * Levels are small integers (the scheduler uses 100, 102 and 103); each can be switched on for
 * buginf output. The event history is a bounded ring of the latest records of each event id:
 * when full, the oldest record gives way. */
#ifndef SCHEDCLI_PLATFORM_SDWRAP_H
#define SCHEDCLI_PLATFORM_SDWRAP_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

#define SDWRAP_MAX_LEVEL 255
#define SDWRAP_HISTORY_EVENTS 1024   /* records kept in the ring */
#define SDWRAP_HISTORY_RECORD 520    /* bytes kept of one record */

/* Appends a record (cut to SDWRAP_HISTORY_RECORD bytes) to the history. Returns 0. */
SCHED_EXPORT int sdwrap_hist_event(uint32_t event_id, const void *record, size_t length);
/* Non-zero when records of this event id at this level are not to be kept in the history. */
SCHED_EXPORT int sdwrap_hist_event_subtype_check(uint32_t event_id, int level);
/* Non-zero when buginf output is on for `level`. The other arguments are accepted for the
 * callers' sake and not used. */
SCHED_EXPORT int sdwrap_chk_int(int level, int unused1, int unused2, int unused3);

/* Switches buginf output for one level on or off; -1 for `level` means every level. */
SCHED_EXPORT void sdwrap_debug_level_set(int level, int enabled);
/* Keeps (enabled = 1) or drops (0) history records of one level; all are kept at start. */
SCHED_EXPORT void sdwrap_history_level_set(int level, int enabled);

/* Writes the formatted text to the buginf stream (standard error unless redirected), adding a
 * newline when the text has none. */
SCHED_EXPORT void buginf(const char *format, ...) __attribute__((format(printf, 1, 2)));
SCHED_EXPORT void sdwrap_buginf_stream_set(FILE *stream);

/* Calls `visit` for each history record, oldest first. Returns the number visited. */
typedef void (*sdwrap_history_visitor)(uint32_t event_id, const void *record, size_t length,
                                       void *context);
SCHED_EXPORT size_t sdwrap_history_walk(sdwrap_history_visitor visit, void *context);
/* Writes the history as text: for the scheduler's records (a level word, then the text) one line
 * "[level] text" each. */
SCHED_EXPORT void sdwrap_history_dump(FILE *out);

/* Runs a named dump ("mtrack_dump_memstats" is known) into `out` (standard output when NULL):
 * this process's when `session` is NULL, else the daemon's, asked through that cmi_session.
 * Returns 0, or -1 when the name is unknown or the daemon cannot be asked. */
SCHED_EXPORT int sdwrap_debug_dump(void *session, FILE *out, const char *what);
/* Release of the debug facility at shutdown: levels off, history emptied. Return 0. */
SCHED_EXPORT int sdwrap_dbg_clean(void *context);
SCHED_EXPORT int sdwrap_sys_clean(void *context);

SCHED_END_DECLS

#endif
