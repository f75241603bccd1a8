// Job-execution credentials: the request that fetches, stores or deletes a remote user's
// password in the daemon, the check that a stored password is still accepted, and the gate in
// front of every job and schedule change.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "diag/trace.h"
#include "schedcli/platform/auth.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/status.h"

namespace {

constexpr size_t kHostNameSize = 130;

// Frees a decrypted password after wiping it.
void discard_clear(char *clear, uint32_t length) {
  if (!clear) return;
  explicit_bzero(clear, length);
  std::free(clear);
}

}  // namespace

extern "C" {

int sch_config_remote_user(sch_cli_context *context, char *user, char *password, int operation) {
  using namespace sch::cli;
  RequestImage image(sizeof(sch_credential_request));
  if (!image.ok()) {
    std::fputs("Could not allocate memory\n", stderr);
    return 2;
  }
  sch_credential_request request{};
  request.header.type = SCH_REQ_USER_CREDENTIAL;
  request.header.length = sizeof request - sizeof request.header;
  request.operation = static_cast<uint8_t>(operation);
  std::memcpy(request.user, user, sizeof request.user);
  std::memcpy(request.password, password, sizeof request.password);
  image.encode(SCH_WIRE_CREDENTIAL_REQUEST, &request);
  explicit_bzero(&request, sizeof request);

  Reply reply;
  uint32_t result = exchange(caller_of(context), SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, image, &reply);
  if (result != 0 || operation != SCH_CREDENTIAL_FETCH || !reply.data) return 0;

  // The fetch answer is the user name, then the encrypted password, 128 bytes each.
  if (reply.length < SCH_USER_NAME_SIZE + SCH_PASSWORD_SIZE) return static_cast<int>(CMI_ERR_LENGTH);
  std::memcpy(password, reply.bytes() + SCH_USER_NAME_SIZE, SCH_PASSWORD_SIZE);
  sch::trace(sch::kTraceRecord, "Password returned for %.*s is %.*s", SCH_USER_NAME_SIZE, user, SCH_PASSWORD_SIZE,
             password);
  return 0;
}

uint32_t sch_validate_authentication_passwd(cmi_session *session, const char *user, const char *encrypted) {
  if (!user || !*user || !encrypted || !*encrypted) return SCH_STATUS_NO_CREDENTIAL;
  if (check_if_user_local(session, user)) return SCH_STATUS_LOCAL_USER;

  char host[kHostNameSize] = {};
  if (gethostname(host, sizeof host - 1) != 0) host[0] = '\0';

  char *clear = nullptr;
  uint32_t clear_length = 0;
  uint32_t decrypted = security_conf_decrypt(encrypted, static_cast<uint32_t>(std::strlen(encrypted) + 1),
                                             SECRETS_TYPE7, 0, 0, &clear, &clear_length);
  if (decrypted != 0 || !clear || clear_length == 0) {
    discard_clear(clear, clear_length);
    // The blank at the end of both failure traces is intended.
    sch::trace(sch::kTraceRecord, "Decryption of passwd for user %s Failed ", user);
    return SCH_STATUS_AUTH_FAILED;
  }

  aaa_auth_result *outcome = nullptr;
  uint32_t ran = aaa_scheduler_authenticate(user, clear, "login", "default", host, 0, &outcome);
  discard_clear(clear, clear_length);
  bool accepted = ran == 0 && outcome && outcome->accepted == 1;
  std::free(outcome);
  if (accepted) return 0;
  sch::trace(sch::kTraceRecord, "AAA auth for user %s Failed ", user);
  return SCH_STATUS_AUTH_FAILED;
}

uint32_t sch_validate_remote_user(sch_cli_context *context, const char *user) {
  if (!user || !*user) return SCH_STATUS_NO_CREDENTIAL;
  if (check_if_user_local(context->session, user)) {
    sch::trace(sch::kTraceRecord, " Not remote User\n");
    return 0;
  }
  // The request takes 128-byte fields; the password buffer has one byte more so that a fetched
  // password that fills its field still ends.
  char name[SCH_USER_NAME_SIZE] = {};
  char password[SCH_PASSWORD_SIZE + 1] = {};
  std::memcpy(name, user, strnlen(user, sizeof name - 1));
  if (sch_config_remote_user(context, name, password, SCH_CREDENTIAL_FETCH) != 0) {
    return SCH_STATUS_CREDENTIAL_FETCH;
  }
  uint32_t result = sch_validate_authentication_passwd(context->session, user, password);
  explicit_bzero(password, sizeof password);
  return result;
}

}  // extern "C"
