// Checking a run's credentials off the loop thread.
#include "runner/run_credentials.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>

#include "schedcli/db.h"
#include "schedcli/platform/auth.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"

namespace schedd::runner {

// Shared by the owner on the loop thread and the worker. `owner` and `done` are only touched on
// the loop thread; the worker writes `verdict` before it posts the report.
struct RunCredentials::Pending {
  GMainContext *context = nullptr;
  RunCredentials *owner = nullptr;  // null once the owner is gone
  Completion done;
  std::string user;
  std::string encrypted;  // empty: none stored
  CredentialVerdict verdict;

  ~Pending() {
    if (context) g_main_context_unref(context);
  }
};

namespace {

constexpr size_t kHostNameSize = 256;

CredentialVerdict judge(const std::string &user, const std::string &encrypted) {
  if (check_if_user_local(nullptr, user.c_str())) return {true, ""};
  if (encrypted.empty()) return {false, "no stored credential for remote user " + user + "\n"};
  char *clear = nullptr;
  uint32_t clear_length = 0;
  uint32_t status = security_conf_decrypt(encrypted.c_str(), static_cast<uint32_t>(encrypted.size() + 1), SECRETS_TYPE7,
                                          0, 0, &clear, &clear_length);
  if (status != 0 || !clear) {
    std::free(clear);
    return {false, "stored credential of user " + user + " cannot be used: " + syserr2str(status) + "\n"};
  }
  char host[kHostNameSize] = {};
  if (gethostname(host, sizeof host - 1) != 0) host[0] = '\0';
  aaa_auth_result *result = nullptr;
  status = aaa_scheduler_authenticate(user.c_str(), clear, "login", "default", host, 0, &result);
  explicit_bzero(clear, clear_length);
  std::free(clear);
  bool accepted = status == 0 && result && result->accepted == 1;
  std::free(result);
  if (accepted) return {true, ""};
  return {false, "authentication of user " + user + " failed" +
                     (status != 0 ? std::string(": ") + syserr2str(status) : std::string()) + "\n"};
}

gboolean report(gpointer data) {
  auto &pending = *static_cast<std::shared_ptr<RunCredentials::Pending> *>(data);
  if (pending->owner) {
    pending->owner = nullptr;
    // The callback may destroy the owner; the shared state outlives it.
    RunCredentials::Completion done = std::move(pending->done);
    done(pending->verdict);
  }
  return G_SOURCE_REMOVE;
}

void release(gpointer data) { delete static_cast<std::shared_ptr<RunCredentials::Pending> *>(data); }

}  // namespace

std::unique_ptr<RunCredentials> RunCredentials::check(GMainContext *context, queue_header *users,
                                                      const std::string &user, Completion done) {
  std::unique_ptr<RunCredentials> check(new RunCredentials());
  auto pending = std::make_shared<Pending>();
  pending->context = g_main_context_ref(context);
  pending->owner = check.get();
  pending->done = std::move(done);
  pending->user = user;
  if (const sch_user_element *stored = users ? sch_find_user_info(users, user.c_str()) : nullptr) {
    const char *password = stored->record.password;
    pending->encrypted.assign(password, strnlen(password, sizeof stored->record.password));
  }
  check->pending_ = pending;
  try {
    std::thread([pending] {
      pending->verdict = judge(pending->user, pending->encrypted);
      explicit_bzero(pending->encrypted.data(), pending->encrypted.size());
      GSource *source = g_idle_source_new();
      g_source_set_callback(source, report, new std::shared_ptr<Pending>(pending), release);
      g_source_attach(source, pending->context);
      g_source_unref(source);
    }).detach();
  } catch (const std::system_error &) {
    return nullptr;
  }
  return check;
}

RunCredentials::~RunCredentials() {
  // On the loop thread, like report(): once cleared, no report reaches the owner.
  if (pending_) pending_->owner = nullptr;
}

}  // namespace schedd::runner
