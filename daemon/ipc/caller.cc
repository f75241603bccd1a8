// Who sent a request.
#include "ipc/caller.h"

#include <pwd.h>

#include <vector>

namespace schedd {

Caller caller_of(const cmi_peer &peer) {
  Caller caller;
  caller.uid = peer.uid;
  passwd entry;
  passwd *found = nullptr;
  std::vector<char> buffer(16384);
  if (getpwuid_r(peer.uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_name &&
      found->pw_name[0] != '\0') {
    caller.user = found->pw_name;
  } else {
    caller.user = std::to_string(peer.uid);
  }
  return caller;
}

}  // namespace schedd
