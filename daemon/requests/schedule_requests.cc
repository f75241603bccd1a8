// Requests that create, modify and delete schedules (types 3, 4, 5).
#include "requests/permissions.h"
#include "requests/requests.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

bool decode_schedule_request(RequestBytes bytes, sch_schedule_request *request) {
  sch_wire_decode(SCH_WIRE_SCHEDULE_REQUEST, bytes.data(), bytes.size(), request);
  return holds_text(request->name);
}

}  // namespace

Reply create_schedule(RequestBytes bytes, const RequestContext &context) {
  sch_schedule_request request;
  if (!decode_schedule_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  return status_reply(context.model.create_schedule(field_text(request.name), context.caller.user));
}

Reply modify_schedule(RequestBytes bytes, const RequestContext &context) {
  sch_modify_schedule_request request;
  sch_wire_decode(SCH_WIRE_MODIFY_SCHEDULE_REQUEST, bytes.data(), bytes.size(), &request);
  if (!holds_text(request.schedule) || !terminated(request.job)) return status_reply(SCH_STATUS_BAD_REQUEST);
  std::string_view schedule = field_text(request.schedule);
  Model &model = context.model;
  if (uint32_t refused = may_change_schedule(context, schedule)) return status_reply(refused);
  switch (request.code) {
    case SCH_MODIFY_ONESHOT:
    case SCH_MODIFY_DAILY:
    case SCH_MODIFY_WEEKLY:
    case SCH_MODIFY_MONTHLY:
    case SCH_MODIFY_START_REPEAT:
      if (request.no_flag) return status_reply(SCH_STATUS_BAD_REQUEST);
      return status_reply(model.set_schedule_time(schedule, request.code, request.time, context.caller.user));
    case SCH_MODIFY_JOB:
      // A job goes onto a schedule only when its user may change the job: otherwise a user could
      // take another's job out of that user's hands by putting it on a schedule of their own.
      if (!request.no_flag) {
        if (uint32_t refused = may_change_job(context, field_text(request.job))) return status_reply(refused);
      }
      return status_reply(model.assign_job(schedule, field_text(request.job), request.no_flag == 0));
    case SCH_MODIFY_JOB_NO_NAME:
      // "no job" with no name takes every job off the schedule; the positive form names none.
      if (!request.no_flag) return {};
      return status_reply(model.unassign_every_job(schedule));
    default:
      return status_reply(SCH_STATUS_BAD_REQUEST);
  }
}

Reply delete_schedule(RequestBytes bytes, const RequestContext &context) {
  sch_schedule_request request;
  if (!decode_schedule_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (uint32_t refused = may_change_schedule(context, field_text(request.name))) return status_reply(refused);
  return status_reply(context.model.delete_schedule(field_text(request.name)));
}

}  // namespace schedd
