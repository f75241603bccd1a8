// Wire images of the requests and replies, through the one codec.
#include "schedcli/wire.h"

#include <array>

#include "cli/request.h"
#include "db/codec.h"

namespace codec = sch::codec;
using codec::Layout;
using codec::WordRun;

namespace {

// The in-use word of each of `N` email slots that start at byte `slots` of a record.
template <size_t N>
constexpr void add_slot_words(WordRun *runs, size_t slots) {
  for (size_t i = 0; i < N; i++) {
    size_t in_use = slots + i * sizeof(sch_email_slot) + offsetof(sch_email_slot, in_use);
    runs[i] = codec::word_run(in_use, in_use + sizeof(uint32_t));
  }
}

constexpr WordRun kHeader[] = {SCH_WORD_RUN(sch_request_header, type, length)};
constexpr WordRun kJobRequest[] = {SCH_WORD_RUN(sch_job_request, header, reserved12),
                                   SCH_WORD_RUN(sch_job_request, reserved48, text_length)};
constexpr WordRun kScheduleRequest[] = {SCH_WORD_RUN(sch_schedule_request, header, reserved12)};
constexpr WordRun kModifyRequest[] = {SCH_WORD_RUN(sch_modify_schedule_request, header, code),
                                      SCH_WORD_RUN(sch_modify_schedule_request, reserved84, time)};
constexpr WordRun kDisplayRequest[] = {SCH_WORD_RUN(sch_display_request, header, reserved8),
                                       SCH_WORD_RUN(sch_display_request, cursor, cursor)};
constexpr WordRun kLogFileRequest[] = {SCH_WORD_RUN(sch_log_file_request, header, reserved12),
                                       SCH_WORD_RUN(sch_log_file_request, size, size)};
constexpr WordRun kTransportRequest[] = {SCH_WORD_RUN(sch_transport_request, header, header),
                                         SCH_WORD_RUN(sch_transport_request, conf.smtp_reserved, conf.smtp_port)};
constexpr WordRun kJobReply[] = {SCH_WORD_RUN(sch_job_reply, cursor, text_length)};
constexpr WordRun kScheduleReplyJob[] = {SCH_WORD_RUN(sch_schedule_reply_job, status, status)};
// The cursor, the time through the job count, the last execution through the email flag, then
// each email slot's in-use word.
constexpr auto kScheduleReply = [] {
  std::array<WordRun, 3 + SCH_MAX_EMAILS> runs{SCH_WORD_RUN(sch_schedule_reply, cursor, cursor),
                                               SCH_WORD_RUN(sch_schedule_reply, time, job_count),
                                               SCH_WORD_RUN(sch_schedule_reply, last_execution, any_email)};
  add_slot_words<SCH_MAX_EMAILS>(runs.data() + 3, offsetof(sch_schedule_reply, emails));
  return runs;
}();
constexpr WordRun kTransportConf[] = {SCH_WORD_RUN(sch_email_transport_conf, smtp_reserved, smtp_port)};
constexpr WordRun kTminfo[] = {SCH_WORD_RUN(tminfo, type, reserved)};

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

void sch_wire_put_u32(void *out, uint32_t value) { bigendian::put_u32(static_cast<uint8_t *>(out), value); }

uint32_t sch_wire_get_u32(const void *in) { return bigendian::get_u32(static_cast<const uint8_t *>(in)); }

void sch_wire_put_u16(void *out, uint16_t value) { bigendian::put_u16(static_cast<uint8_t *>(out), value); }

uint16_t sch_wire_get_u16(const void *in) { return bigendian::get_u16(static_cast<const uint8_t *>(in)); }

}  // extern "C"
