// The command that stores or deletes the password under which a remote user's jobs run.
#include <cstdlib>
#include <cstring>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "schedcli/platform/secrets.h"

namespace {

constexpr int kDone = 8;
constexpr int kFailed = 9;
constexpr int kNotEncrypted = 1;

// What the operator gave: all three fields are the request's 128-byte fields.
struct Credential {
  char user[SCH_USER_NAME_SIZE] = {};
  char clear[SCH_PASSWORD_SIZE] = {};
  char encrypted[SCH_PASSWORD_SIZE] = {};

  Credential() = default;
  Credential(const Credential &) = delete;
  Credential &operator=(const Credential &) = delete;
  ~Credential() {
    explicit_bzero(clear, sizeof clear);
    explicit_bzero(encrypted, sizeof encrypted);
  }
};

template <size_t N>
void copy_terminated(char (&field)[N], const char *value) {
  std::memset(field, 0, N);
  std::memcpy(field, value, strnlen(value, N - 1));
}

// Takes the parameters into `credential`. Returns 0, or the command's result when one is refused.
int take_params(const sch_cli_context *context, Credential *credential) {
  int count = context->param_count < SCH_CLI_MAX_PARAMS ? context->param_count : SCH_CLI_MAX_PARAMS;
  for (int i = 0; i < count; i++) {
    const sch_cli_param *param = context->params[i];
    if (!param) continue;
    if (param->kind < SCH_PARAM_USER_NAME || param->kind > SCH_PARAM_ENCRYPTED_PASSWORD) continue;
    if (param->value_type != SCH_VALUE_STRING) return kFailed;
    const char *value = static_cast<const char *>(param->value);

    switch (param->kind) {
      case SCH_PARAM_USER_NAME:
        if (value) copy_terminated(credential->user, value);
        break;
      case SCH_PARAM_CLEAR_PASSWORD: {
        if (!value) return kFailed;
        copy_terminated(credential->clear, value);
        char *encrypted = nullptr;
        uint32_t encrypted_length = 0;
        uint32_t status = security_conf_encrypt(credential->clear, SECRETS_TYPE7, 0, 0, &encrypted, &encrypted_length);
        if (status != 0 || !encrypted || encrypted_length == 0) {
          std::free(encrypted);
          return kNotEncrypted;
        }
        copy_terminated(credential->encrypted, encrypted);
        std::free(encrypted);
        break;
      }
      default:  // SCH_PARAM_ENCRYPTED_PASSWORD
        if (!value) return kFailed;
        copy_terminated(credential->encrypted, value);
        break;
    }
  }
  return 0;
}

}  // namespace

extern "C" int sch_cli_aaa_auth_passwd(sch_cli_context *context) {
  Credential credential;
  // The session's user field may be filled to its last byte.
  std::memcpy(credential.user, context->user, strnlen(context->user, sizeof context->user));
  if (int refused = take_params(context, &credential)) return refused;

  int code;
  if (context->no_flag) {
    // Deleting needs no proof that the password still works.
    code = sch_config_remote_user(context, credential.user, credential.encrypted, SCH_CREDENTIAL_DELETE);
  } else {
    code = static_cast<int>(sch_validate_authentication_passwd(context->session, credential.user, credential.encrypted));
    if (code == 0) code = sch_config_remote_user(context, credential.user, credential.encrypted, SCH_CREDENTIAL_STORE);
  }
  if (code == -1) return kFailed;
  if (code == 0) return kDone;
  sch::cli::print_error("Error", static_cast<uint32_t>(code));
  return kFailed;
}
