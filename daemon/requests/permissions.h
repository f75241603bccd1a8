// Who may do what. Root administers the scheduler: the feature, the transport, the log file, the
// copy to startup, the logging level and every object. A user of the daemon's group manages the
// schedules that run as that user and the jobs that only such schedules run. Each check answers 0
// or the status that refuses the request.
#ifndef SCHEDD_REQUESTS_PERMISSIONS_H
#define SCHEDD_REQUESTS_PERMISSIONS_H

#include <cstdint>
#include <string_view>

#include "requests/requests.h"

namespace schedd {

// Settings of the whole scheduler: root only.
uint32_t may_administer(const RequestContext &context);
// A schedule: its user or root. SCH_STATUS_NO_SUCH_SCHEDULE when there is none.
uint32_t may_change_schedule(const RequestContext &context, std::string_view schedule);
// A job (its text, its deletion, assigning it): root, or a user when every schedule it is assigned
// to is that user's. SCH_STATUS_NO_SUCH_JOB when there is none.
uint32_t may_change_job(const RequestContext &context, std::string_view job);

}  // namespace schedd

#endif
