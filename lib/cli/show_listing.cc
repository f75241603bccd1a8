// The listing walk shared by show jobs, show schedules and show configuration.
#include "cli/show_listing.h"

#include <cstdio>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "diag/trace.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/wire.h"

namespace sch::cli {

namespace {
constexpr int kEntryRuleWidth = 78;
}  // namespace

void report_display_failure(uint32_t code) {
  sch::trace(sch::kTraceRecord, "error is %d %s", static_cast<int>(code), syserr2str(code));
  print_error("Error", code);
}

bool check_job_reply(const uint8_t *reply, uint32_t length, int32_t *cursor) {
  if (length < sizeof(sch_job_reply)) return false;
  sch_job_reply head;
  sch_wire_decode(SCH_WIRE_JOB_REPLY, reply, length, &head);
  // A negative length shows no text; a longer one than was received is broken.
  if (head.text_length > 0 && static_cast<uint32_t>(head.text_length) > length - sizeof head) return false;
  *cursor = static_cast<int32_t>(head.cursor);
  return true;
}

bool check_schedule_reply(const uint8_t *reply, uint32_t length, int32_t *cursor) {
  if (length < sizeof(sch_schedule_reply)) return false;
  sch_schedule_reply head;
  sch_wire_decode(SCH_WIRE_SCHEDULE_REPLY, reply, length, &head);
  if (head.job_count > (length - sizeof head) / sizeof(sch_schedule_reply_job)) return false;
  *cursor = static_cast<int32_t>(head.cursor);
  return true;
}

int run_listing(const sch_cli_context *context, const Listing &listing) {
  cli_debug = context->debug;
  RequestImage image(sizeof(sch_display_request));
  if (!image.ok()) return 2;
  sch_display_request request{};
  request.header.type = listing.request_type;
  request.header.length = sizeof request - sizeof request.header;
  request.cursor = -1;

  bool single = context->param_count == 1;
  if (single && listing.by_name) {
    sch::trace(sch::kTraceRecord, "parameter found");
    put_padded(request.name, param_string(context, 0));
  }

  bool exhausted = false;
  while (!exhausted) {
    sch::trace(sch::kTraceRecord, "%s", listing.sending_trace);
    image.encode(SCH_WIRE_DISPLAY_REQUEST, &request);
    Reply reply;
    uint32_t result = exchange(caller_of(context), SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, image, &reply);
    if (result != 0) {
      report_display_failure(result);
      return 1;
    }
    if (!reply.data) {
      exhausted = true;
      break;
    }
    int32_t cursor = 0;
    if (!listing.check(reply.bytes(), reply.length, &cursor)) {
      // A reply shorter than what it declares is refused rather than read past its end.
      report_display_failure(CMI_ERR_LENGTH);
      return 1;
    }
    listing.display(reply.data);
    if (listing.ruled) {
      print_line(kEntryRuleWidth, '=');
      std::putchar('\n');
    }
    request.cursor = cursor;
    if (single) break;
  }

  // Also after the last of several entries.
  if (exhausted) sch::trace(sch::kTraceRecord, "nothing to show");
  if (listing.closing_trace) sch::trace(sch::kTraceRecord, "%s", listing.closing_trace);
  return 0;
}

}  // namespace sch::cli
