// feature scheduler: turning the scheduler on and off through the feature manager.
#include "cli/request_frame.h"
#include "schedcli/cli_config.h"
#include "schedcli/platform/feature.h"

namespace {
constexpr const char *kFeature = "scheduler";
}  // namespace

extern "C" int sch_enable_scheduler(sch_cli_context *context) {
  if (context->feature) return 0;
  bool disable = context->no_flag != 0;
  uint32_t result = fm_cmi_set_feature_wait(context->session, kFeature, context->user, context->identity,
                                            disable ? FM_FEATURE_DISABLE : FM_FEATURE_ENABLE);
  if (result == 0) {
    // Only a feature that really went off loses its commands.
    if (disable) vsh_deregister_parse_tree(context->session, kFeature);
    return 0;
  }
  sch::cli::print_error("Error", result);
  // Asking for the state the feature is already in is reported but is not a failure.
  uint32_t tolerated = disable ? FM_ERR_ALREADY_DISABLED : FM_ERR_ALREADY_ENABLED;
  return result == tolerated ? 0 : 1;
}
