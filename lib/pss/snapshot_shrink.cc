// Copy of a store to its startup counterpart, and reclaiming the free space of the open stores.
#include "diag/syslog_emit.h"
#include "diag/trace.h"
#include "pss/store_io.h"
#include "schedcli/protocol.h"

using sch::kTraceFramework;
using sch::kTraceRecord;
using sch::trace;

extern "C" {

int sch_pss_snapshot(const char *source_uri, const char *destination_uri) {
  uint32_t status = 0;
  pss2_handle source = pss2_open(source_uri, PSS2_MODE_READ, SCH_PSS_PERMISSIONS, 0, nullptr, &status);
  if (!source) return -1;
  // The second argument is the debug store's handle, not the destination: the store service
  // derives the destination itself. Intended.
  status = pss2_snapshot(source, debug_pss_running);
  if (status != 0) {
    trace(kTraceFramework, "PSS %s to %s snapshot failed", source_uri, destination_uri ? destination_uri : "");
    sch_syserr_log(kTraceFramework, status);
    sch::syslog_emit(syslog_msg_SCH_SYSLOG_PSS_SNAPSHOT_ERR, source_uri, destination_uri ? destination_uri : "",
                     static_cast<int>(status));
  }
  pss2_close(source);
  return status != 0 ? -1 : 0;
}

pss2_handle sch_verify_pss_shrink(pss2_handle store, const char *uri, unsigned int max_free, uint32_t *out) {
  uint32_t free_space = 0;
  *out = pss_free_space(store, &free_space);
  trace(kTraceRecord, "Free space in %s: %d status: 0x%x ", uri, static_cast<int>(free_space), *out);
  if (*out == 0 && free_space > max_free) {
    pss2_handle replacement = pss_shrink(store, out);
    trace(kTraceRecord, "Attempted pss shrink on %s. status: 0x%x\n", uri, *out);
    return *out == 0 ? replacement : 0;
  }
  trace(kTraceRecord, "Freespace %d max size %d. Uri %s", static_cast<int>(free_space), static_cast<int>(max_free), uri);
  return store;
}

uint32_t sch_pss_shrink(unsigned int max_free) {
  struct Store {
    pss2_handle *handle;
    const char (*uri)[SCH_PSS_URI_SIZE];
  };
  const Store stores[] = {{&pss_running, &sch_pss_running_uri},
                          {&pss_running_db, &sch_pss_running_db_uri},
                          {&debug_pss_running, &sch_debug_pss_running_uri}};
  uint32_t status = 0;
  for (const Store &store : stores) {
    // A failed shrink leaves the handle at 0: the store is closed to the daemon until it is
    // opened again. Intended.
    *store.handle = sch_verify_pss_shrink(*store.handle, sch::pss::uri_text(*store.uri).c_str(), max_free, &status);
    if (status != 0) break;
  }
  return status;
}

}  // extern "C"
