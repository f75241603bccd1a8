// Authentication of users who are not local, through the PAM service "schedcli".
#include <security/pam_appl.h>

#include <cstdlib>
#include <cstring>

#include "schedcli/platform/auth.h"

namespace {

struct Credentials {
  const char *user_name;
  const char *password;
};

void free_responses(pam_response *responses, int count) {
  for (int i = 0; i < count; i++) {
    if (responses[i].resp) {
      explicit_bzero(responses[i].resp, std::strlen(responses[i].resp));
      std::free(responses[i].resp);
    }
  }
  std::free(responses);
}

// Nobody is at a terminal: hidden prompts get the password, a visible one (a login prompt) the
// user name, and notices are acknowledged. Anything else ends the attempt.
int answer_prompts(int count, const pam_message **messages, pam_response **responses, void *data) {
  if (count <= 0 || count > PAM_MAX_NUM_MSG || !messages || !responses) return PAM_CONV_ERR;
  const auto *credentials = static_cast<const Credentials *>(data);
  auto *answers = static_cast<pam_response *>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
  if (!answers) return PAM_BUF_ERR;
  for (int i = 0; i < count; i++) {
    const char *answer = nullptr;
    switch (messages[i]->msg_style) {
      case PAM_PROMPT_ECHO_OFF:
        answer = credentials->password;
        break;
      case PAM_PROMPT_ECHO_ON:
        answer = credentials->user_name;
        break;
      case PAM_ERROR_MSG:
      case PAM_TEXT_INFO:
        continue;
      default:
        free_responses(answers, count);
        return PAM_CONV_ERR;
    }
    if ((answers[i].resp = strdup(answer)) == nullptr) {
      free_responses(answers, count);
      return PAM_BUF_ERR;
    }
  }
  *responses = answers;
  return PAM_SUCCESS;
}

}  // namespace

extern "C" uint32_t aaa_scheduler_authenticate(const char *user_name, const char *password, const char *,
                                               const char *, const char *host_name, uint32_t,
                                               aaa_auth_result **result) {
  if (result) *result = nullptr;
  if (!user_name || !*user_name || !password || !result) return AUTH_ERR_BAD_ARGUMENT;
  auto *outcome = static_cast<aaa_auth_result *>(std::calloc(1, sizeof(aaa_auth_result)));
  if (!outcome) return AUTH_ERR_NO_MEMORY;

  Credentials credentials{user_name, password};
  pam_conv conversation{answer_prompts, &credentials};
  pam_handle_t *handle = nullptr;
  int status = pam_start(AUTH_PAM_SERVICE, user_name, &conversation, &handle);
  if (status != PAM_SUCCESS) {
    if (handle) pam_end(handle, status);
    std::free(outcome);
    return AUTH_ERR_PAM_START;
  }
  if (host_name && *host_name) pam_set_item(handle, PAM_RHOST, host_name);
  status = pam_authenticate(handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
  // A right password is not enough: the account must also be usable (not expired or locked).
  if (status == PAM_SUCCESS) status = pam_acct_mgmt(handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
  pam_end(handle, status);

  outcome->pam_status = status;
  outcome->accepted = status == PAM_SUCCESS ? 1 : 0;
  *result = outcome;
  return 0;
}
