// The credentials a job runs under: a remote user's stored type-7 password is decrypted and
// checked through PAM on a worker thread, and the verdict comes back on the daemon's main context.
#ifndef SCHEDD_RUNNER_RUN_CREDENTIALS_H
#define SCHEDD_RUNNER_RUN_CREDENTIALS_H

#include <glib.h>

#include <functional>
#include <memory>
#include <string>

#include "schedcli/platform/queue.h"

namespace schedd::runner {

struct CredentialVerdict {
  bool passed = false;
  std::string reason;  // why not, as the failed run's output (ends with a newline)
};

class RunCredentials {
 public:
  using Completion = std::function<void(const CredentialVerdict &)>;

  // Checks whether jobs may run as `user`: a local user (listed in the local password file)
  // passes; any other needs a stored credential in `users` (a queue of sch_user_element, such as
  // sch_uname_q) that decrypts and that PAM accepts. The queue is read here, on the calling loop
  // thread; the password file, decryption and PAM are used on a worker thread. `done` is called
  // once, from `context`, never from within check(). Destroying the object first means `done` is
  // never called. nullptr when no worker thread can be started.
  static std::unique_ptr<RunCredentials> check(GMainContext *context, queue_header *users, const std::string &user,
                                               Completion done);
  ~RunCredentials();
  RunCredentials(const RunCredentials &) = delete;
  RunCredentials &operator=(const RunCredentials &) = delete;

  struct Pending;

 private:
  RunCredentials() = default;
  std::shared_ptr<Pending> pending_;
};

}  // namespace schedd::runner

#endif
