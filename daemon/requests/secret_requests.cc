// Type-7 passwords for the shell, which may not read the device key: encryption for any caller,
// decryption of the caller's own credential only (root: any).
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

#include "config/database.h"
#include "config/fields.h"
#include "requests/requests.h"
#include "schedcli/platform/secrets.h"

namespace schedd {

namespace {

// A user stores a password in two steps: the shell has it encrypted, then decrypts it again to
// check it with the authentication service before storing it. So a text this daemon made for a
// caller is that caller's own for a while; a bounded number of them is remembered.
constexpr size_t kRememberedTexts = 64;
constexpr std::chrono::minutes kRememberedFor{10};

struct Issued {
  uint32_t uid;
  std::string text;
  std::chrono::steady_clock::time_point when;
};

std::deque<Issued> &issued() {
  static std::deque<Issued> texts;
  return texts;
}

void remember(uint32_t uid, std::string text) {
  std::deque<Issued> &texts = issued();
  if (texts.size() >= kRememberedTexts) texts.pop_front();
  texts.push_back(Issued{uid, std::move(text), std::chrono::steady_clock::now()});
}

bool issued_to(uint32_t uid, std::string_view text) {
  auto oldest = std::chrono::steady_clock::now() - kRememberedFor;
  for (const Issued &entry : issued()) {
    if (entry.uid == uid && entry.text == text && entry.when >= oldest) return true;
  }
  return false;
}

// The caller's stored credential is this text.
bool own_credential(const Caller &caller, std::string_view text) {
  char user[SCH_USER_NAME_SIZE];
  if (caller.user.size() >= sizeof user) return false;
  copy_text(user, caller.user);
  const sch_user_element *element = sch_find_user_info(&sch_uname_q, user);
  return element && field_text(element->record.password) == text;
}

// The answer of one operation: its text as the payload, wiped from memory once sent.
Reply text_reply(uint32_t status, char *text, uint32_t length) {
  Reply reply;
  reply.status = status;
  if (status == 0 && text) reply.payload.assign(text, text + length);
  if (text) {
    explicit_bzero(text, length);
    std::free(text);
  }
  return reply;
}

}  // namespace

Reply secret_request(uint32_t opcode, std::span<const uint8_t> payload, const RequestContext &context) {
  // The text must be terminated for the encryption calls; it may not hold a NUL of its own.
  std::string text(payload.begin(), payload.end());
  if (text.find('\0') != std::string::npos) return status_reply(SCH_STATUS_BAD_REQUEST);
  char *answer = nullptr;
  uint32_t length = 0;
  Reply reply;
  switch (opcode) {
    case SECRETS_OP_ENCRYPT: {
      uint32_t status = security_conf_encrypt(text.c_str(), SECRETS_TYPE7, 0, 0, &answer, &length);
      if (status == 0) remember(context.caller.uid, std::string(answer, length));
      reply = text_reply(status, answer, length);
      break;
    }
    case SECRETS_OP_DECRYPT:
      if (!context.caller.privileged() && !own_credential(context.caller, text) &&
          !issued_to(context.caller.uid, text)) {
        reply = status_reply(SCH_STATUS_NOT_PERMITTED);
        break;
      }
      {
        uint32_t status = security_conf_decrypt(text.c_str(), static_cast<uint32_t>(text.size() + 1), SECRETS_TYPE7,
                                                0, 0, &answer, &length);
        reply = text_reply(status, answer, length);
      }
      break;
    default:
      reply = status_reply(SCH_STATUS_UNKNOWN_REQUEST);
  }
  explicit_bzero(text.data(), text.size());
  return reply;
}

}  // namespace schedd
