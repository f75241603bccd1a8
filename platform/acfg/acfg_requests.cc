// The shell's side of the configuration requests that the daemon hosting the generator serves.
#include <cstdlib>
#include <cstring>
#include <string>

#include "schedcli/platform/acfg.h"

namespace {

uint32_t exchange(cmi_session *session, uint32_t opcode, const void *request, uint32_t length, std::string *text) {
  void *reply = nullptr;
  uint32_t reply_length = length;
  uint32_t status = cmi_req_resp(ACFG_SERVICE, opcode, request, &reply, &reply_length, nullptr, nullptr, 136, session, 0);
  if (text && reply) text->assign(static_cast<const char *>(reply), reply_length);
  std::free(reply);
  return status;
}

// Hands a gathered text to the caller as a malloc'ed, terminated string.
uint32_t give(const std::string &gathered, char **text, size_t *length) {
  char *copy = static_cast<char *>(std::malloc(gathered.size() + 1));
  if (!copy) return ACFG_ERR_NO_MEMORY;
  std::memcpy(copy, gathered.c_str(), gathered.size() + 1);
  *text = copy;
  if (length) *length = gathered.size();
  return 0;
}

}  // namespace

extern "C" {

uint32_t acfg_request_config_text(cmi_session *session, uint32_t cfg_type, uint32_t filter_mode, char **text,
                                  size_t *length) {
  if (!text || cfg_type > 0xFF || filter_mode > 0xFF) return ACFG_ERR_BAD_ARGUMENT;
  *text = nullptr;
  const uint8_t request[2] = {static_cast<uint8_t>(cfg_type), static_cast<uint8_t>(filter_mode)};
  cmi_token_source source{};
  uint32_t status = cmi_send_request(ACFG_SERVICE, ACFG_OP_CONFIG_TEXT, request, sizeof request, nullptr, nullptr,
                                     nullptr, session, &source);
  if (status != 0) return status;
  mts_stream_context context{};
  context.mode = 1;
  context.token = mts_rr_token_get(&source);
  std::string gathered;
  cmi_message message{};
  while ((status = mts_recv(session, &message, &context)) == 0) {
    if (message.payload) gathered.append(static_cast<const char *>(message.payload), message.length);
    cmi_message_release(&message);
  }
  if (status != CMI_STREAM_END) return status;
  return give(gathered, text, length);
}

uint32_t acfg_request_copy_startup(cmi_session *session) {
  const uint8_t request[1] = {0};
  return exchange(session, ACFG_OP_COPY_STARTUP, request, sizeof request, nullptr);
}

uint32_t acfg_request_memory_stats(cmi_session *session, char **text, size_t *length) {
  if (!text) return ACFG_ERR_BAD_ARGUMENT;
  *text = nullptr;
  const uint8_t request[1] = {0};
  std::string gathered;
  uint32_t status = exchange(session, ACFG_OP_MEMORY_STATS, request, sizeof request, &gathered);
  return status != 0 ? status : give(gathered, text, length);
}

uint32_t acfg_request_logging_level(cmi_session *session, const char *facility, uint32_t level) {
  if (!facility || (level > 7 && level != ACFG_LEVEL_DEFAULT)) return ACFG_ERR_BAD_ARGUMENT;
  size_t name_length = strnlen(facility, 32);
  if (name_length == 0 || name_length == 32) return ACFG_ERR_BAD_ARGUMENT;
  uint8_t request[1 + 32] = {};
  request[0] = static_cast<uint8_t>(level);
  std::memcpy(request + 1, facility, name_length);
  return exchange(session, ACFG_OP_LOGGING_LEVEL, request, static_cast<uint32_t>(2 + name_length), nullptr);
}

}  // extern "C"
