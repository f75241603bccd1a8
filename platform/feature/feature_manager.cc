// The feature manager: feature requests to the daemon and the shell's command removal hook.
#include "schedcli/platform/feature.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {
std::atomic<vsh_parse_tree_hook> parse_tree_hook{nullptr};
std::atomic<void *> parse_tree_context{nullptr};
}  // namespace

extern "C" {

uint32_t fm_cmi_set_feature_wait(cmi_session *session, const char *feature, const char *user, const void *identity,
                                 uint32_t action) {
  if (!feature || (action != FM_FEATURE_ENABLE && action != FM_FEATURE_DISABLE)) return FM_ERR_BAD_ARGUMENT;
  size_t name_length = strnlen(feature, FM_FEATURE_NAME_SIZE);
  if (name_length == 0 || name_length >= FM_FEATURE_NAME_SIZE) return FM_ERR_BAD_ARGUMENT;
  uint8_t request[1 + FM_FEATURE_NAME_SIZE] = {};
  request[0] = static_cast<uint8_t>(action);
  std::memcpy(request + 1, feature, name_length);
  void *reply = nullptr;
  uint32_t length = static_cast<uint32_t>(1 + name_length + 1);
  uint32_t status = cmi_req_resp(FM_SERVICE, action, request, &reply, &length, user, identity, 136, session, 0);
  std::free(reply);
  return status;
}

void vsh_parse_tree_hook_set(vsh_parse_tree_hook hook, void *context) {
  parse_tree_context.store(context);
  parse_tree_hook.store(hook);
}

uint32_t vsh_deregister_parse_tree(cmi_session * /*session*/, const char *feature) {
  if (!feature) return FM_ERR_BAD_ARGUMENT;
  if (vsh_parse_tree_hook hook = parse_tree_hook.load()) hook(feature, parse_tree_context.load());
  return 0;
}

uint32_t fm_feature_request_parse(const void *payload, uint32_t length, uint32_t *action,
                                  char name[FM_FEATURE_NAME_SIZE]) {
  if (!payload || !action || !name || length < 2) return FM_ERR_BAD_ARGUMENT;
  const auto *bytes = static_cast<const uint8_t *>(payload);
  if (bytes[0] != FM_FEATURE_ENABLE && bytes[0] != FM_FEATURE_DISABLE) return FM_ERR_BAD_ARGUMENT;
  size_t name_length = strnlen(reinterpret_cast<const char *>(bytes + 1), length - 1);
  if (name_length == 0 || name_length >= FM_FEATURE_NAME_SIZE) return FM_ERR_BAD_ARGUMENT;
  *action = bytes[0];
  std::memset(name, 0, FM_FEATURE_NAME_SIZE);
  std::memcpy(name, bytes + 1, name_length);
  return 0;
}

}  // extern "C"
