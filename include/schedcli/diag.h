/* Diagnostics of the scheduler library: the syslog message catalogue, tracked allocation of the
 * configuration database, platform-error tracing and the debug trace switch.
 *
 * Debug traces: every notable step formats a text (at most 511 characters) with a level (100
 * start-up and framework events, 102 fragment and run-result details, 103 per-record and
 * per-command events). The text goes to standard error when cli_debug is non-zero, into the
 * platform's event history (event 0x730000, record = level word then text) unless that level is
 * filtered there, and to buginf when the level is switched on. */
#ifndef SCHEDCLI_DIAG_H
#define SCHEDCLI_DIAG_H

#include <stddef.h>
#include <stdint.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

/* The event id under which the library records its traces. */
#define SCH_TRACE_EVENT 0x730000u
/* The library's owner identity in the tracked allocator. */
#define SCH_MTRACK_IDENTITY 224u

/* Debug flag of the command in hand: non-zero copies every trace to standard error. */
SCHED_EXPORT extern int cli_debug;

/* Facility descriptor read by the platform's syslog library (12 bytes on the target). */
typedef struct syslog_facility {
  const char *name;
  uint32_t number;
  uint8_t default_level;
  uint8_t current_level;  /* a message is emitted only when its severity is not greater */
  uint16_t padding;
} syslog_facility;

/* Message descriptor (16 bytes on the target). */
typedef struct syslog_message {
  const char *name;
  const syslog_facility *facility;
  const char *format;
  uint8_t severity;
  uint8_t padding[3];
} syslog_message;

SCHED_EXPORT extern syslog_facility syslog_fac_LOG_SCHEDULER;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_MSG;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_ERR;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_WARN;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_SYSLOG_MTS_ERR;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_SYSLOG_FILE_ERR;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_SYSLOG_PSS_ERR;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_SYSLOG_MALLOC_ERR;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_SYSLOG_SDWRAP_ERR;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_SYSLOG_PSS_SNAPSHOT_ERR;
SCHED_EXPORT extern const syslog_message syslog_msg_SCH_SYSLOG_USER_ERR;

/* A zero-filled tracked block of `size` bytes (identity 224, the given kind and purpose), or NULL
 * after a debug trace "Malloc FAILED: <purpose>" and, when the facility's level admits severity 2,
 * the SCH_SYSLOG_MALLOC_ERR message. `unused` is ignored. Release with mtrack_free. */
SCHED_EXPORT void *sch_malloc_check(size_t size, int kind, int unused, const char *purpose);

/* Traces a platform status word decoded: "Syserr - type:%d facility:%d number:%d" at `level`. */
SCHED_EXPORT void sch_syserr_log(int level, uint32_t code);

SCHED_END_DECLS

#endif
