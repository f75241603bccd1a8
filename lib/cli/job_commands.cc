// Job commands: create or delete a job, and send a job's complete command text.
#include <cstring>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "diag/trace.h"
#include "schedcli/status.h"

using namespace sch::cli;

extern "C" {

uint32_t sch_cli_create_delete_job(sch_cli_context *context) {
  if (context->replay) return 0;
  cli_debug = context->debug;
  const char *name;
  if (!admit_named(context, "job", &name)) return 255;

  RequestImage image(sizeof(sch_job_request));
  if (!image.ok()) {
    std::fputs("Could not allocate memory\n", stderr);
    return 2;
  }
  sch_job_request request{};
  request.header.length = sizeof request - sizeof request.header;
  request.no_flag = context->no_flag ? 1 : 0;
  put_string(request.name, name);
  // "enqueing" in both traces is the intended spelling.
  if (context->no_flag) {
    request.header.type = SCH_REQ_DELETE_JOB;
    sch::trace(sch::kTraceRecord, "scheduler stub enqueing delete job name %s", name);
  } else {
    request.header.type = SCH_REQ_CREATE_JOB;
    sch::trace(sch::kTraceRecord, "scheduler stub enqueing create job name %s", name);
  }
  image.encode(SCH_WIRE_JOB_REQUEST, &request);

  uint32_t result = send_config(caller_of(context), image);
  if (result == 0) return 0;
  if (result == SCH_STATUS_EXISTS) {
    std::fputs("Error: job exists\n", stderr);
  } else {
    print_error(context->no_flag ? "Error: delete job failed" : "Error: create job failed", result);
  }
  return 255;
}

uint32_t sch_cli_define_job(cmi_session *session, const char *text, int length, const char *job, const char *user,
                            const void *identity) {
  // A missing text or a negative length is sent as an empty text.
  uint32_t text_length = text && length > 0 ? static_cast<uint32_t>(length) : 0;
  RequestImage image(sizeof(sch_job_request) + text_length);
  if (!image.ok()) return 2;
  sch_job_request request{};
  request.header.type = SCH_REQ_DEFINE_JOB;
  request.header.length = image.size() - sizeof request.header;
  put_string(request.name, job);
  request.text_length = text_length;
  image.encode(SCH_WIRE_JOB_REQUEST, &request);
  if (text_length) std::memcpy(image.data() + sizeof request, text, text_length);

  // The text carries no terminator of its own.
  sch::trace(sch::kTraceRecord, "scheduler stub enqueing define job name %s", or_empty(job));
  sch::trace(sch::kTraceRecord, "length %d data %.*s", static_cast<int>(text_length), static_cast<int>(text_length),
             text_length ? text : "");

  uint32_t result = send_config({session, user, identity}, image);
  if (result != 0) print_error("Error: job definition failed", result);
  return result;
}

}  // extern "C"
