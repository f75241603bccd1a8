// Requests on the run log: its size limit (type 9), its name (type 10), clearing it (type 11), and
// the size for display (type 12).
#include "config/database.h"
#include "requests/permissions.h"
#include "requests/requests.h"
#include "runner/log_file.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

bool decode_log_file_request(RequestBytes bytes, sch_log_file_request *request) {
  sch_wire_decode(SCH_WIRE_LOG_FILE_REQUEST, bytes.data(), bytes.size(), request);
  return terminated(request->path) && terminated(request->uri);
}

}  // namespace

Reply log_file_size(RequestBytes bytes, const RequestContext &context) {
  sch_log_file_request request;
  if (!decode_log_file_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (uint32_t refused = may_administer(context)) return status_reply(refused);
  return status_reply(context.model.set_log_file_size(request.no_flag ? SCH_LOG_FILE_SIZE_DEFAULT : request.size));
}

Reply log_file_name(RequestBytes bytes, const RequestContext &context) {
  sch_log_file_request request;
  if (!decode_log_file_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (uint32_t refused = may_administer(context)) return status_reply(refused);
  // The no form names the default file whatever the request carries.
  return status_reply(context.model.rename_log_file(request.no_flag ? kDefaultLogFileName : field_text(request.path)));
}

Reply log_file_clear(RequestBytes bytes, const RequestContext &context) {
  sch_log_file_request request;
  if (!decode_log_file_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (uint32_t refused = may_administer(context)) return status_reply(refused);
  return status_reply(context.model.clear_log_file());
}

Reply log_file_config(RequestBytes, const RequestContext &) {
  Reply reply;
  reply.payload.resize(sizeof(int32_t));
  sch_wire_put_u32(reply.payload.data(), sch_log_file.size_limit);
  return reply;
}

}  // namespace schedd
