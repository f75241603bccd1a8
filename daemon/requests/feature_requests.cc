// The feature manager's requests for the scheduler feature: turning it on, and turning it off with
// everything configured under it.
#include <cstring>

#include "requests/permissions.h"
#include "requests/requests.h"
#include "schedcli/platform/feature.h"

namespace schedd {

namespace {

constexpr const char *kFeatureName = "scheduler";

}  // namespace

Reply feature_request(uint32_t opcode, std::span<const uint8_t> payload, const RequestContext &context) {
  uint32_t action = 0;
  char name[FM_FEATURE_NAME_SIZE];
  if (fm_feature_request_parse(payload.data(), static_cast<uint32_t>(payload.size()), &action, name) != 0 ||
      action != opcode) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  if (std::strcmp(name, kFeatureName) != 0) return status_reply(SCH_STATUS_NO_SUCH_FEATURE);
  if (context.standby) return status_reply(SCH_STATUS_STANDBY);
  // Turning the feature off removes every user's configuration and credentials.
  if (uint32_t refused = may_administer(context)) return status_reply(refused);
  return status_reply(action == FM_FEATURE_ENABLE ? context.model.enable_feature() : context.model.disable_feature());
}

}  // namespace schedd
