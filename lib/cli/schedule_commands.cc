// Schedule commands: create or delete a schedule, and add or delete one of its email addresses.
#include <cstdio>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "diag/trace.h"
#include "schedcli/status.h"

using namespace sch::cli;

extern "C" {

uint32_t sch_cli_create_delete_schedule(sch_cli_context *context) {
  if (context->replay) return 0;
  cli_debug = context->debug;
  const char *name;
  if (!admit_named(context, "schedule", &name)) return 255;

  RequestImage image(sizeof(sch_schedule_request));
  if (!image.ok()) return 2;
  sch_schedule_request request{};
  request.header.length = sizeof request - sizeof request.header;
  request.no_flag = context->no_flag ? 1 : 0;
  put_string(request.name, name);
  // "enqueing" in both traces is the intended spelling.
  if (context->no_flag) {
    request.header.type = SCH_REQ_DELETE_SCHEDULE;
    sch::trace(sch::kTraceRecord, "scheduler stub enqueing delete schedule name %s", name);
  } else {
    request.header.type = SCH_REQ_CREATE_SCHEDULE;
    sch::trace(sch::kTraceRecord, "scheduler stub enqueing create schedule name %s", name);
  }
  image.encode(SCH_WIRE_SCHEDULE_REQUEST, &request);

  uint32_t result = send_config(caller_of(context), image);
  if (result == 0) return 0;
  if (context->no_flag) {
    print_error("Error: delete schedule failed", result);
    return result;
  }
  // Entering an existing schedule is how the operator gets into its mode: quiet on purpose.
  if (result == SCH_STATUS_EXISTS) return result;
  print_error("Error: create schedule failed", result);
  return 255;
}

uint32_t sch_cli_modify_schedule_emailaddr(sch_cli_context *context) {
  cli_debug = context->debug;
  if (!pass_gate(context)) return 255;

  // The record is released after the call like every other request: nothing else reads it.
  RequestImage image(sizeof(sch_schedule_email_request));
  if (!image.ok()) return 2;
  sch_schedule_email_request request{};
  request.header.type = SCH_REQ_SCHEDULE_EMAIL;
  request.header.length = sizeof request - sizeof request.header;
  put_string(request.schedule, param_string(context, 0));
  sch::trace(sch::kTraceRecord, "modify schedule %s", request.schedule);
  request.operation = context->no_flag ? SCH_EMAIL_DELETE : SCH_EMAIL_ADD;
  put_string(request.address, param_string(context, 1));
  sch::trace(sch::kTraceRecord, "to_emailid <%s>", request.address);
  image.encode(SCH_WIRE_SCHEDULE_EMAIL_REQUEST, &request);

  uint32_t result = send_config(caller_of(context), image);
  if (result != 0) {
    // "could add" (without "not") is the intended text.
    print_error(context->no_flag ? "Error: could not delete email-id" : "Error: could add email-id", result);
  }
  return result;
}

}  // extern "C"
