// Who sent a request: the kernel's word for the peer, turned into an account name.
#ifndef SCHEDD_IPC_CALLER_H
#define SCHEDD_IPC_CALLER_H

#include "ipc/reply.h"
#include "schedcli/platform/cmi.h"

namespace schedd {

// The caller behind a connection's peer credentials; an account without a name is known by its
// uid in decimal.
Caller caller_of(const cmi_peer &peer);

}  // namespace schedd

#endif
