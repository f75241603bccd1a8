// The apply request: configuration request records that hold together or not at all. The parts of
// an apply are gathered here; the last one runs every record inside one model apply.
#include <algorithm>
#include <cstdint>

#include "ipc/dispatch.h"
#include "requests/permissions.h"
#include "requests/requests.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/protocol.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

// Far above a full configuration (256 jobs of 8 KiB, 1,000 schedules); an apply larger than this
// is no configuration and is refused rather than held in memory.
constexpr size_t kMostApplyBytes = 16u << 20;
constexpr size_t kLengthSize = 4;

// The records of the apply under way. Applies are the administrator's: one at a time is enough,
// and a first part starts over.
struct GatheredApply {
  bool open = false;
  uint8_t mode = ACFG_APPLY_COMMIT;
  std::vector<uint8_t> entries;
};
GatheredApply gathered;

// The entries of a part hold together: each length word is followed by that many bytes, at least
// a request header.
bool entries_frame(std::span<const uint8_t> entries) {
  while (!entries.empty()) {
    if (entries.size() < kLengthSize) return false;
    uint32_t length = sch_wire_get_u32(entries.data());
    entries = entries.subspan(kLengthSize);
    if (length < sizeof(sch_request_header) || length > entries.size()) return false;
    entries = entries.subspan(length);
  }
  return true;
}

uint32_t type_of(RequestBytes record) {
  sch_request_header header;
  if (sch_wire_decode(SCH_WIRE_REQUEST_HEADER, record.data(), record.size(), &header) != 0) return UINT32_MAX;
  return header.type;
}

void put_u32(std::vector<uint8_t> *out, uint32_t value) {
  uint8_t word[4];
  sch_wire_put_u32(word, value);
  out->insert(out->end(), word, word + 4);
}

// Runs every gathered record in one model apply and answers the outcome.
Reply run_gathered(const RequestContext &context) {
  Reply reply;
  if (uint32_t status = context.model.begin_apply()) return status_reply(status);
  uint32_t first_failure = 0;
  std::span<const uint8_t> entries = gathered.entries;
  for (uint32_t index = 0; !entries.empty(); index++) {
    uint32_t length = sch_wire_get_u32(entries.data());
    RequestBytes record = entries.subspan(kLengthSize, length);
    entries = entries.subspan(kLengthSize + length);
    uint32_t type = type_of(record);
    uint32_t status = sch_request_type_applies(type) ? dispatch(SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, record, context).status
                                    : SCH_STATUS_BAD_REQUEST;
    // Naming an existing schedule is how the shell enters it to change it: nothing to create.
    if (status == 0 || (type == SCH_REQ_CREATE_SCHEDULE && status == SCH_STATUS_EXISTS)) continue;
    if (first_failure == 0) first_failure = status;
    // The failures beyond what one reply holds go unlisted; the first ones say enough.
    if (reply.payload.size() + 8 > CMI_MAX_PAYLOAD) continue;
    put_u32(&reply.payload, index);
    put_u32(&reply.payload, status);
  }
  bool keep = first_failure == 0 && gathered.mode == ACFG_APPLY_COMMIT;
  uint32_t status = context.model.end_apply(keep);
  reply.status = first_failure != 0 ? first_failure : status;
  return reply;
}

}  // namespace

Reply apply_configuration(std::span<const uint8_t> payload, const RequestContext &context) {
  if (payload.size() < 2 || (payload[0] != ACFG_APPLY_COMMIT && payload[0] != ACFG_APPLY_CHECK) ||
      (payload[1] & ~(ACFG_APPLY_FIRST | ACFG_APPLY_LAST)) != 0) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  if (context.standby) return status_reply(SCH_STATUS_STANDBY);
  if (uint32_t refused = may_administer(context)) return status_reply(refused);
  uint8_t flags = payload[1];
  std::span<const uint8_t> entries = payload.subspan(2);
  if (flags & ACFG_APPLY_FIRST) gathered = GatheredApply{true, payload[0], {}};
  bool fits = gathered.open && gathered.mode == payload[0] && entries_frame(entries) &&
              gathered.entries.size() + entries.size() <= kMostApplyBytes;
  if (!fits) {
    gathered = GatheredApply{};
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  gathered.entries.insert(gathered.entries.end(), entries.begin(), entries.end());
  if (!(flags & ACFG_APPLY_LAST)) return status_reply(0);
  Reply reply = scheduler_enabled ? run_gathered(context) : status_reply(SCH_STATUS_FEATURE_DISABLED);
  gathered = GatheredApply{};
  return reply;
}

}  // namespace schedd
