// The configuration framework's requests: the running or startup configuration as text, copy of
// the running configuration to startup, the memory statistics, and the logging level.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/database.h"
#include "requests/permissions.h"
#include "requests/requests.h"
#include "schedcli/acfg.h"
#include "schedcli/diag.h"
#include "schedcli/keys.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/platform/sysmgr.h"
#include "schedcli/protocol.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

constexpr uint8_t kHighestLevel = 7;

// The startup store says the feature is on: its condition record holds 1.
bool startup_feature_enabled() {
  uint32_t status = 0;
  pss2_handle startup = pss2_open(sch_pss_startup_uri, PSS2_MODE_READ, SCH_PSS_PERMISSIONS, 0, nullptr, &status);
  if (status != 0) return false;
  sch_config_key key = sch_condition_key;
  sch_hton_config_key(&key);
  pss2_datum key_datum{&key, SCH_KEY_SIZE};
  pss2_datum value = pss2_fetch(startup, &key_datum, &status);
  bool enabled = status == 0 && value.data && value.length >= 4 && sch_wire_get_u32(value.data) == 1;
  pss2_close(startup);
  return enabled;
}

// The configuration's text goes back in parts of a stream: with 256 full jobs it is larger than
// one message. A configuration whose feature is off contributes no text.
Reply configuration_text(std::span<const uint8_t> payload, const RequestContext &context) {
  Reply reply;
  reply.streamed = true;
  if (payload.size() != 2 || (payload[0] != ACFG_CFG_RUNNING && payload[0] != ACFG_CFG_STARTUP)) {
    reply.status = SCH_STATUS_BAD_REQUEST;
    return reply;
  }
  // Passwords are shown to root alone: a user gets the text with every password removed.
  uint8_t filter = payload[1];
  if (!context.caller.privileged()) filter |= ACFG_FILTER_HIDE_PASSWORDS;
  acfg_message message{payload[0], filter, nullptr, nullptr, nullptr, 0};
  uint32_t status = 0;
  if (message.cfg_type == ACFG_CFG_RUNNING) {
    if (!scheduler_enabled) return reply;
    // The text lists schedules by name, as the startup store keeps them, so that the running and
    // the startup text of one configuration are the same; listings keep creation order.
    sort_schedules_by_name();
    status = sch_acfgcb_cfg_gen(nullptr, &message);
    sort_schedules_by_listing_serial();
  } else {
    if (!startup_feature_enabled()) return reply;
    message.startup_prefix = sysmgr_startup_cfg_uri_get();
    message.startup_debug_prefix = sysmgr_debug_cfg_uri_get();
    // Rendering the startup configuration refreshes the live log-file, feature, transport and
    // schedule email records from the startup store, and they stay so: intended. Jobs, schedules
    // and credentials of the running configuration are not touched.
    status = sch_acfgcb_cfg_gen(nullptr, &message);
  }
  if (status == 0 && message.response) {
    const auto *text = reinterpret_cast<const uint8_t *>(message.response);
    reply.payload.assign(text, text + message.response_length);
  }
  std::free(message.response);
  reply.status = status;
  return reply;
}

Reply copy_to_startup(std::span<const uint8_t> payload, const RequestContext &context) {
  if (payload.size() != 1) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (context.standby) return status_reply(SCH_STATUS_STANDBY);
  if (uint32_t refused = may_administer(context)) return status_reply(refused);
  return status_reply(context.model.copy_to_startup());
}

Reply memory_statistics(std::span<const uint8_t> payload) {
  if (payload.size() != 1) return status_reply(SCH_STATUS_BAD_REQUEST);
  char *text = nullptr;
  size_t length = 0;
  std::FILE *out = open_memstream(&text, &length);
  if (!out) return status_reply(SCH_STATUS_NO_MEMORY);
  mtrack_dump_memstats(out);
  if (std::fclose(out) != 0) {
    std::free(text);
    return status_reply(SCH_STATUS_NO_MEMORY);
  }
  Reply reply;
  reply.payload.assign(text, text + std::min<size_t>(length, CMI_MAX_PAYLOAD));
  std::free(text);
  return reply;
}

// [level, facility name, NUL]; the level ACFG_LEVEL_DEFAULT restores the default.
Reply logging_level(std::span<const uint8_t> payload, const RequestContext &context) {
  if (payload.size() < 3 || payload.back() != '\0') return status_reply(SCH_STATUS_BAD_REQUEST);
  const char *facility = reinterpret_cast<const char *>(payload.data() + 1);
  uint8_t level = payload[0];
  if (std::strlen(facility) != payload.size() - 2 || (level > kHighestLevel && level != ACFG_LEVEL_DEFAULT)) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  if (std::strcmp(facility, syslog_fac_LOG_SCHEDULER.name) != 0) return status_reply(SCH_STATUS_NO_SUCH_FACILITY);
  if (context.standby) return status_reply(SCH_STATUS_STANDBY);
  if (uint32_t refused = may_administer(context)) return status_reply(refused);
  if (!scheduler_enabled) return status_reply(SCH_STATUS_FEATURE_DISABLED);
  return status_reply(context.model.set_logging_level(level == ACFG_LEVEL_DEFAULT ? SCH_LOGGING_LEVEL_DEFAULT : level));
}

}  // namespace

Reply configuration_request(uint32_t opcode, std::span<const uint8_t> payload, const RequestContext &context) {
  switch (opcode) {
    case ACFG_OP_CONFIG_TEXT:
      return configuration_text(payload, context);
    case ACFG_OP_COPY_STARTUP:
      return copy_to_startup(payload, context);
    case ACFG_OP_MEMORY_STATS:
      return memory_statistics(payload);
    case ACFG_OP_LOGGING_LEVEL:
      return logging_level(payload, context);
    case ACFG_OP_APPLY:
      return apply_configuration(payload, context);
    default:
      return status_reply(SCH_STATUS_UNKNOWN_REQUEST);
  }
}

}  // namespace schedd
