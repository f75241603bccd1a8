// The library's debug trace: one call formats a text and routes it to standard error, the event
// history and buginf as the switches say.
#ifndef SCHEDCLI_LIB_DIAG_TRACE_H
#define SCHEDCLI_LIB_DIAG_TRACE_H

#include "schedcli/diag.h"

namespace sch {

// Trace levels used by the library.
inline constexpr int kTraceFramework = 100;  // start-up and framework events
inline constexpr int kTraceDetail = 102;     // fragment and run-result details
inline constexpr int kTraceRecord = 103;     // per-record and per-command events

// Formats into a 512-byte buffer (longer texts are cut) and emits it.
void trace(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace sch

#endif
