// The debug store and the logging level it keeps.
#include "config/debug_store.h"

#include <cstring>
#include <vector>

#include "config/database.h"
#include "core/debug.h"
#include "pss/store_walk.h"
#include "schedcli/acfg.h"
#include "schedcli/diag.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/protocol.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

constexpr int kDebugKeySize = 4;  // the logging-level key is the widest the store takes
constexpr uint32_t kLevelMarker = 1;
constexpr uint32_t kHighestLevel = 7;

// The level the store keeps, when it keeps one that could be in force.
bool kept_level(uint32_t *level) {
  uint32_t status = 0;
  pss2_datum value = pss2_fetch(debug_pss_running, sch_get_syslog_pss_key(), &status);
  if (status != 0 || !value.data || value.length < 8) return false;
  const auto *bytes = static_cast<const uint8_t *>(value.data);
  if (sch_wire_get_u32(bytes) != kLevelMarker) return false;
  *level = sch_wire_get_u32(bytes + 4);
  return *level <= kHighestLevel;
}

// Records of the debug startup store, copied whole: it was written from a debug store.
uint32_t copy_debug_startup() {
  if (sch_debug_pss_startup_uri[0] == '\0') return 0;
  uint32_t status = 0;
  pss2_handle startup = pss2_open(sch_debug_pss_startup_uri, PSS2_MODE_READ, SCH_PSS_PERMISSIONS, 0, nullptr, &status);
  if (status != 0) return 0;  // never copied to startup: nothing to take
  std::vector<std::pair<std::vector<uint8_t>, std::vector<uint8_t>>> records;
  sch::pss::walk_store(startup, [&](pss2_datum key) {
    uint32_t value_status = 0;
    pss2_datum value = pss2_getvalue(startup, &value_status);
    if (value_status != 0 || !key.data || !value.data) return true;
    const auto *key_bytes = static_cast<const uint8_t *>(key.data);
    const auto *value_bytes = static_cast<const uint8_t *>(value.data);
    records.emplace_back(std::vector<uint8_t>(key_bytes, key_bytes + key.length),
                         std::vector<uint8_t>(value_bytes, value_bytes + value.length));
    return true;
  });
  pss2_close(startup);
  return durably(debug_pss_running, [&] {
    bool written = true;
    for (auto &[key, value] : records) {
      pss2_datum key_datum{key.data(), static_cast<int32_t>(key.size())};
      pss2_datum value_datum{value.data(), static_cast<int32_t>(value.size())};
      written = pss2_store(debug_pss_running, &key_datum, &value_datum) == 0 && written;
    }
    return written;
  });
}

}  // namespace

bool open_debug_store(bool stateless, bool restore, std::string *error) {
  debug_pss_running = sch_pss_create(sch_debug_pss_running_uri, SCH_PSS_VALUE_SIZE, SCH_PSS_VALUE_SIZE, kDebugKeySize);
  if (!debug_pss_running) {
    *error = std::string("cannot open the debug store ") + sch_debug_pss_running_uri;
    return false;
  }
  if (stateless) {
    if (uint32_t status = copy_debug_startup()) {
      // The level is a diagnostic setting: start without it rather than not at all.
      debug(kDebugStartup, "the debug startup store could not be taken over: %s", syserr2str(status));
    }
  }
  uint32_t level = 0;
  if (restore && kept_level(&level)) syslog_fac_LOG_SCHEDULER.current_level = static_cast<uint8_t>(level);
  return true;
}

void close_debug_store() {
  if (debug_pss_running) pss2_close(debug_pss_running);
  debug_pss_running = 0;
}

uint32_t set_logging_level(uint32_t level) {
  uint32_t status;
  if (level == SCH_LOGGING_LEVEL_DEFAULT) {
    status = pss2_delete(debug_pss_running, sch_get_syslog_pss_key(), 0);
    if (status == PSS2_ERR_NO_KEY) status = 0;
  } else {
    uint8_t value[8];
    sch_wire_put_u32(value, kLevelMarker);
    sch_wire_put_u32(value + 4, level);
    pss2_datum value_datum{value, sizeof value};
    status = pss2_store(debug_pss_running, sch_get_syslog_pss_key(), &value_datum);
  }
  if (status == 0) syslog_fac_LOG_SCHEDULER.current_level = static_cast<uint8_t>(level);
  return status;
}

void reset_logging_level() { syslog_fac_LOG_SCHEDULER.current_level = SCH_LOGGING_LEVEL_DEFAULT; }

}  // namespace schedd
