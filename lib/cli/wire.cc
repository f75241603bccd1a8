// Wire images of the requests and replies, through the one codec.
#include "schedcli/wire.h"

#include <array>

#include "cli/request.h"
#include "db/codec.h"

namespace codec = sch::codec;
using codec::Layout;
using codec::WordRun;

namespace {

constexpr WordRun kHeader[] = {{0, 2}};
constexpr WordRun kJobRequest[] = {{0, 4}, {48, 2}};
constexpr WordRun kScheduleRequest[] = {{0, 4}};
constexpr WordRun kModifyRequest[] = {{0, 5}, {84, 11}};
constexpr WordRun kDisplayRequest[] = {{0, 3}, {44, 1}};
constexpr WordRun kLogFileRequest[] = {{0, 4}, {528, 1}};
constexpr WordRun kTransportRequest[] = {{0, 2}, {8 + 448, 2}};
constexpr WordRun kJobReply[] = {{32, 3}};
constexpr WordRun kScheduleReplyJob[] = {{32, 1}};
constexpr WordRun kScheduleReply[] = {{0, 1},   {36, 13}, {128, 3}, {204, 1}, {272, 1}, {340, 1}, {408, 1},
                                      {476, 1}, {544, 1}, {612, 1}, {680, 1}, {748, 1}, {816, 1}};
constexpr WordRun kTransportConf[] = {{448, 2}};
constexpr WordRun kTminfo[] = {{0, 10}};

static_assert(offsetof(sch_schedule_reply, emails[0].in_use) == 204 && offsetof(sch_schedule_reply, emails[9].in_use) == 816);
static_assert(offsetof(sch_transport_request, conf.smtp_reserved) == 8 + 448);

const std::array<Layout, SCH_WIRE_RECORD_COUNT> kLayouts = {{
    {sizeof(sch_job_request), kJobRequest},
    {sizeof(sch_schedule_request), kScheduleRequest},
    {sizeof(sch_modify_schedule_request), kModifyRequest},
    {sizeof(sch_display_request), kDisplayRequest},
    {sizeof(sch_log_file_request), kLogFileRequest},
    {sizeof(sch_transport_request), kTransportRequest},
    {sizeof(sch_schedule_email_request), kHeader},
    {sizeof(sch_credential_request), kHeader},
    {sizeof(sch_request_header), kHeader},
    {sizeof(sch_job_reply), kJobReply},
    {sizeof(sch_schedule_reply), kScheduleReply},
    {sizeof(sch_schedule_reply_job), kScheduleReplyJob},
    {sizeof(sch_user_config_reply_entry), {}},
    {sizeof(sch_email_transport_conf), kTransportConf},
    {sizeof(tminfo), kTminfo},
}};

static_assert(sizeof(sch_schedule_reply) <= codec::kMaxImage && sizeof(sch_transport_request) <= codec::kMaxImage);

const Layout *layout_of(sch_wire_record kind) {
  return kind >= 0 && kind < SCH_WIRE_RECORD_COUNT ? &kLayouts[kind] : nullptr;
}

}  // namespace

extern "C" {

size_t sch_wire_size(sch_wire_record kind) {
  const Layout *layout = layout_of(kind);
  return layout ? layout->size : 0;
}

int sch_wire_encode(sch_wire_record kind, const void *native, void *out) {
  const Layout *layout = layout_of(kind);
  if (!layout || !native || !out) return -1;
  codec::encode(*layout, native, static_cast<uint8_t *>(out));
  return 0;
}

int sch_wire_decode(sch_wire_record kind, const void *in, size_t length, void *native) {
  const Layout *layout = layout_of(kind);
  if (!layout || !native || (!in && length)) return -1;
  codec::decode(*layout, codec::bytes(in, in ? length : 0), native, codec::ShortValue::kZeroFill);
  return length < layout->size ? 1 : 0;
}

void sch_wire_put_u32(void *out, uint32_t value) { codec::put_u32(static_cast<uint8_t *>(out), value); }

uint32_t sch_wire_get_u32(const void *in) { return codec::get_u32(static_cast<const uint8_t *>(in)); }

void sch_wire_put_u16(void *out, uint16_t value) {
  auto *bytes = static_cast<uint8_t *>(out);
  bytes[0] = static_cast<uint8_t>(value >> 8);
  bytes[1] = static_cast<uint8_t>(value);
}

uint16_t sch_wire_get_u16(const void *in) {
  const auto *bytes = static_cast<const uint8_t *>(in);
  return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

}  // extern "C"
