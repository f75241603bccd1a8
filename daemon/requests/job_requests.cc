// Requests that create a job, replace its command text, and delete it (types 0, 1, 2).
#include <cstring>

#include "requests/permissions.h"
#include "requests/requests.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

// The job request at the head of the record, or false when its name is not a usable one.
bool decode_job_request(RequestBytes bytes, sch_job_request *request) {
  sch_wire_decode(SCH_WIRE_JOB_REQUEST, bytes.data(), bytes.size(), request);
  return holds_text(request->name);
}

}  // namespace

Reply create_job(RequestBytes bytes, const RequestContext &context) {
  sch_job_request request;
  if (!decode_job_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  return status_reply(context.model.create_job(field_text(request.name)));
}

Reply define_job(RequestBytes bytes, const RequestContext &context) {
  sch_job_request request;
  if (!decode_job_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  std::span<const uint8_t> text = bytes.subspan(sizeof request);
  if (request.text_length != text.size()) return status_reply(SCH_STATUS_BAD_REQUEST);
  // The text is handled as a C string further on (configuration text, the job's script).
  if (std::memchr(text.data(), '\0', text.size())) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (uint32_t refused = may_change_job(context, field_text(request.name))) return status_reply(refused);
  return status_reply(context.model.define_job(field_text(request.name), text));
}

Reply delete_job(RequestBytes bytes, const RequestContext &context) {
  sch_job_request request;
  if (!decode_job_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (uint32_t refused = may_change_job(context, field_text(request.name))) return status_reply(refused);
  return status_reply(context.model.delete_job(field_text(request.name)));
}

}  // namespace schedd
