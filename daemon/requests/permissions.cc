// The checks of who may do what, on the model's answers about schedules and jobs.
#include "requests/permissions.h"

#include <algorithm>

namespace schedd {

uint32_t may_administer(const RequestContext &context) {
  return context.caller.privileged() ? 0 : SCH_STATUS_NOT_PERMITTED;
}

uint32_t may_change_schedule(const RequestContext &context, std::string_view schedule) {
  std::optional<std::string> user = context.model.schedule_user(schedule);
  if (!user) return SCH_STATUS_NO_SUCH_SCHEDULE;
  return context.caller.privileged() || *user == context.caller.user ? 0 : SCH_STATUS_NOT_PERMITTED;
}

uint32_t may_change_job(const RequestContext &context, std::string_view job) {
  std::optional<std::vector<std::string>> users = context.model.job_schedule_users(job);
  if (!users) return SCH_STATUS_NO_SUCH_JOB;
  if (context.caller.privileged()) return 0;
  // A job runs as the user of each schedule it is on: changing it changes what they run.
  bool all_own = std::all_of(users->begin(), users->end(), [&](const std::string &user) {
    return user == context.caller.user;
  });
  return all_own ? 0 : SCH_STATUS_NOT_PERMITTED;
}

}  // namespace schedd
