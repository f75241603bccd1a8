// From a received request record to the handler of its type, after the checks every record
// passes: a header, a known type on its own service and opcode, and the size the type calls for.
#ifndef SCHEDD_IPC_DISPATCH_H
#define SCHEDD_IPC_DISPATCH_H

#include <cstdint>

#include "requests/requests.h"

namespace schedd {

// Answers one request. A standby refuses every change, since its stores belong to the active
// daemon. While the scheduler feature is off, every scheduler request record is refused;
// the feature manager's and the configuration framework's requests go to their own handlers.
// Never fails: a request that does not hold up gets its status.
Reply dispatch(uint32_t service, uint32_t opcode, RequestBytes request, const RequestContext &context);

}  // namespace schedd

#endif
