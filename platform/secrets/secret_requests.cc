// Type-7 passwords for processes that do not hold the device key: each operation is a request to
// the daemon, which does.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>

#include "schedcli/platform/cmi.h"
#include "schedcli/platform/secrets.h"
#include "secrets/device_key.h"

namespace {

std::atomic<bool> key_held{false};

struct SocketSetting {
  std::mutex mutex;
  std::optional<std::string> path;  // unset: the runtime directory's socket
};

SocketSetting &socket_setting() {
  static SocketSetting instance;
  return instance;
}

// Sends `text` to the daemon and hands its answer back as a malloc'ed, terminated text.
uint32_t ask_daemon(uint32_t opcode, const char *text, size_t length, char **answer, uint32_t *answer_length) {
  std::optional<std::string> path;
  {
    SocketSetting &setting = socket_setting();
    std::lock_guard lock(setting.mutex);
    path = setting.path;
  }
  cmi_session *session = cmi_session_open(path ? path->c_str() : nullptr);
  if (!session) return CMI_ERR_PATH;
  void *reply = nullptr;
  auto reply_length = static_cast<uint32_t>(length);
  uint32_t status =
      cmi_req_resp(SECRETS_SERVICE, opcode, text, &reply, &reply_length, nullptr, nullptr, 0, session, 0);
  cmi_session_close(session);
  auto *result = static_cast<char *>(status == 0 ? std::malloc(reply_length + 1) : nullptr);
  if (status == 0 && !result) status = SECRETS_ERR_NO_MEMORY;
  if (result) {
    if (reply_length > 0) std::memcpy(result, reply, reply_length);
    result[reply_length] = '\0';
    // A NUL inside the answer would cut the text short; the answer's length says what it holds.
    *answer = result;
    *answer_length = static_cast<uint32_t>(std::strlen(result));
  }
  if (reply) {
    // It may be a clear password.
    std::memset(reply, 0, reply_length);
    std::free(reply);
  }
  return status;
}

}  // namespace

extern "C" {

void secrets_use_device_key(int use) { key_held.store(use != 0); }

uint32_t secrets_daemon_socket_set(const char *path) {
  if (path && !*path) return SECRETS_ERR_BAD_ARGUMENT;
  SocketSetting &setting = socket_setting();
  std::lock_guard lock(setting.mutex);
  setting.path = path ? std::optional<std::string>(path) : std::nullopt;
  return 0;
}

uint32_t security_conf_encrypt(const char *clear, int type, int, int, char **encrypted, uint32_t *encrypted_length) {
  if (key_held.load()) return secrets::encrypt_with_key(clear, type, encrypted, encrypted_length);
  if (encrypted) *encrypted = nullptr;
  if (encrypted_length) *encrypted_length = 0;
  if (!clear || !encrypted || !encrypted_length) return SECRETS_ERR_BAD_ARGUMENT;
  if (type != SECRETS_TYPE7) return SECRETS_ERR_TYPE;
  size_t clear_length = strnlen(clear, SECRETS_MAX_CLEAR + 1);
  if (clear_length > SECRETS_MAX_CLEAR) return SECRETS_ERR_TOO_LONG;
  return ask_daemon(SECRETS_OP_ENCRYPT, clear, clear_length, encrypted, encrypted_length);
}

uint32_t security_conf_decrypt(const char *encrypted, uint32_t length, int type, int, int, char **clear,
                               uint32_t *clear_length) {
  if (key_held.load()) return secrets::decrypt_with_key(encrypted, length, type, clear, clear_length);
  if (clear) *clear = nullptr;
  if (clear_length) *clear_length = 0;
  if (!encrypted || !clear || !clear_length) return SECRETS_ERR_BAD_ARGUMENT;
  if (type != SECRETS_TYPE7) return SECRETS_ERR_TYPE;
  size_t text_length = strnlen(encrypted, length);
  if (text_length != SECRETS_TYPE7_MAX_TEXT) return SECRETS_ERR_FORMAT;
  return ask_daemon(SECRETS_OP_DECRYPT, encrypted, text_length, clear, clear_length);
}

}  // extern "C"
