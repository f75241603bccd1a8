/* The system-log emitter used by the scheduler's message catalogue.
 *
 * A catalogue format begins "<<%%%s-%d-NAME>>": the emitter renders the "<<%%" marker as a single
 * '%', so the logged line reads "%FACILITY-SEVERITY-NAME>> text". */
#ifndef SCHEDCLI_PLATFORM_SYSLOG_H
#define SCHEDCLI_PLATFORM_SYSLOG_H

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

/* Formats `format` with the further arguments and sends it to syslog(3) at `severity` (0..7),
 * and to standard error when copying is on. Never fails visibly; an over-long text is cut. */
SCHED_EXPORT void nost_syslog(int severity, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

/* Copy every message to standard error too (a daemon in the foreground turns this on). */
SCHED_EXPORT void nost_syslog_copy_to_stderr(int enabled);

/* Test hook: instead of syslog(3), hand each rendered message to `sink`; NULL restores syslog. */
typedef void (*nost_syslog_sink)(int severity, const char *text, void *context);
SCHED_EXPORT void nost_syslog_set_sink(nost_syslog_sink sink, void *context);

SCHED_END_DECLS

#endif
