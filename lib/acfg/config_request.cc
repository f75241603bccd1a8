// Serving a request of the configuration framework: the running or the startup configuration.
#include "diag/trace.h"
#include "schedcli/acfg.h"
#include "schedcli/protocol.h"
#include "schedcli/pss.h"

using sch::kTraceFramework;
using sch::trace;

namespace {

constexpr uint32_t kPermissions = SCH_PSS_PERMISSIONS;

// Renders the startup store through the private copy, then frees the copy. The restore refreshes
// the live single-instance records from the startup store and leaves them so: intended.
void render_startup(acfg_handle *handle, acfg_message *message) {
  sch_log_file.size_limit = SCH_LOG_FILE_SIZE_DEFAULT;  // a store without a log-file record shows no size
  const char *uri = acfg_uri_complete(acfg_startup_cfg_uri_prefix_get(message), "", SCH_STORE_STARTUP);
  trace(kTraceFramework, "Opening Startup config PSS file at %s", uri ? uri : "");
  uint32_t status = 0;
  pss2_handle startup = pss2_open(uri, PSS2_MODE_UPDATE, kPermissions, 0, nullptr, &status);
  if (status != 0) {
    trace(kTraceFramework, "Error in opening in PSS file 0x%x", status);
    return;
  }
  sch_restore_config_from_pss(&sch_startup_config, startup, 1);

  pss2_handle debug = 0;
  const char *debug_uri =
      acfg_uri_complete(acfg_startup_debug_cfg_uri_prefix_get(message), "", SCH_STORE_DEBUG_STARTUP);
  if (!debug_uri) {
    trace(kTraceFramework, "Error in getting dbg_uri\n");
  } else {
    debug = pss2_open(debug_uri, PSS2_MODE_UPDATE, kPermissions, 0, nullptr, &status);
    if (status != 0) trace(kTraceFramework, "Error in opening in debyg PSS file 0x%x", status);  // "debyg": intended
  }
  sch_acfg_gen(&sch_startup_config, handle, debug);

  status = pss2_close(startup);
  if (status != 0) trace(kTraceFramework, "Error in closing in PSS file 0x%x", status);
  if (debug) {
    status = pss2_close(debug);
    if (status != 0) trace(kTraceFramework, "Error in closing in PSS file 0x%x", status);
  }
  sch_free_config(&sch_startup_config);
  sch_free_user_config(&sch_uname_acfg_q);
}

}  // namespace

extern "C" uint32_t sch_acfgcb_cfg_gen(void *context, acfg_message *message) {
  trace(kTraceFramework, "Received Request to generate Ascii config");
  acfg_handle *handle = nullptr;
  acfg_hdl_init(&handle);
  cfg_type = acfg_cfg_type_get(message);
  filter_mode = acfg_vsh_execution_filter_mode_get(message);
  if (cfg_type == ACFG_CFG_RUNNING) {
    sch_acfg_gen(&sch_running_config, handle, debug_pss_running);
  } else if (cfg_type == ACFG_CFG_STARTUP) {
    render_startup(handle, message);
  }
  return acfg_respond(handle, context, message);
}
