// The walk of the display requests: one entry per request, echoing the daemon's cursor, until an
// empty reply; and the checks that a reply holds all its display will read.
#ifndef SCHEDCLI_LIB_CLI_SHOW_LISTING_H
#define SCHEDCLI_LIB_CLI_SHOW_LISTING_H

#include <cstdint>

#include "schedcli/cli.h"

namespace sch::cli {

struct Listing {
  uint32_t request_type;       // SCH_REQ_GET_JOBS or SCH_REQ_GET_SCHEDULES
  const char *sending_trace;
  // Checks that `reply` holds everything its display will read; on success stores the cursor
  // for the next request.
  bool (*check)(const uint8_t *reply, uint32_t length, int32_t *cursor);
  void (*display)(const void *reply);
  const char *closing_trace;   // emitted when the walk succeeded; may be null
  bool by_name;                // parameter 1 names the entry wanted and goes in the request
  bool ruled;                  // a rule of '=' and an empty line after each entry
};

// Runs the walk for `context`; a parameter count of 1 stops it after the first entry. Returns 0
// (also when nothing was shown), 1 when a request failed or a reply was malformed, 2 when the
// request could not be allocated.
int run_listing(const sch_cli_context *context, const Listing &listing);

// The checks of a job reply (head and command text) and a schedule reply (head and job entries),
// as a Listing takes them.
bool check_job_reply(const uint8_t *reply, uint32_t length, int32_t *cursor);
bool check_schedule_reply(const uint8_t *reply, uint32_t length, int32_t *cursor);

// The failure line of a display request, after its trace.
void report_display_failure(uint32_t code);

}  // namespace sch::cli

#endif
