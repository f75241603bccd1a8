// The request that adds or removes an email address of a schedule (type 20).
#include "requests/permissions.h"
#include "requests/requests.h"
#include "schedcli/wire.h"

namespace schedd {

Reply schedule_email(RequestBytes bytes, const RequestContext &context) {
  sch_schedule_email_request request;
  sch_wire_decode(SCH_WIRE_SCHEDULE_EMAIL_REQUEST, bytes.data(), bytes.size(), &request);
  if (!holds_text(request.schedule) || !holds_text(request.address) ||
      (request.operation != SCH_EMAIL_ADD && request.operation != SCH_EMAIL_DELETE)) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  std::string_view schedule = field_text(request.schedule);
  std::string_view address = field_text(request.address);
  if (uint32_t refused = may_change_schedule(context, schedule)) return status_reply(refused);
  return status_reply(request.operation == SCH_EMAIL_ADD ? context.model.add_email(schedule, address)
                                                         : context.model.remove_email(schedule, address));
}

}  // namespace schedd
