// show scheduler logfile: one request, then the daemon's stream of log messages, printed entry by
// entry as they arrive.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "diag/trace.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/wire.h"

using namespace sch::cli;

namespace {

// Offsets of a log message as the daemon sends it (big-endian words).
constexpr size_t kCountAt = 0;
constexpr size_t kNumberAt = 4;
constexpr size_t kJobAt = 8;
constexpr size_t kScheduleAt = 40;
constexpr size_t kUserAt = 72;
constexpr size_t kStatusAt = 112;
constexpr size_t kCompletionAt = 116;
constexpr size_t kTotalAt = 120;
constexpr size_t kPartLengthAt = 124;
constexpr size_t kPartAt = 128;
// No entry's output outgrows the largest log file (65536 kilobytes): a total beyond it comes from
// a broken stream, and is not worth a buffer of up to 2 GB.
constexpr int32_t kLargestOutput = 65536 << 10;
constexpr int kRuleWidth = 78;
constexpr int kOutputRuleWidth = 33;

const cmi_send_options kSendOptions = {{0xFE, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x88}};

int32_t word_at(const void *message, size_t offset) {
  return static_cast<int32_t>(sch_wire_get_u32(static_cast<const uint8_t *>(message) + offset));
}

// A message's part of the output, when the message really carries it: the header whole and a
// part length that the received bytes cover.
bool part_of(const void *payload, uint32_t length, uint32_t *part_length) {
  if (length < kPartAt) return false;
  int32_t part = word_at(payload, kPartLengthAt);
  if (part < 0 || static_cast<uint32_t>(part) > length - kPartAt) return false;
  *part_length = static_cast<uint32_t>(part);
  return true;
}

// Receives and parses the stream's next message. 0 with the payload (the caller frees it), or -1
// after the failure's line.
int receive(cmi_session *session, const mts_stream_context *context, void **payload, uint32_t *length) {
  cmi_message message{};
  if (mts_recv(session, &message, context) != 0) {
    std::puts("Error on recv");
    return -1;
  }
  if (cmi_parse_response(&message, length, payload) != 0) {
    std::puts("Error cmi parsing");
    return -1;
  }
  return 0;
}

void print_name_column(const void *first, size_t offset) {
  const char *name = static_cast<const char *>(first) + offset;
  std::printf("%-32.*s", static_cast<int>(strnlen(name, SCH_NAME_SIZE)), name);
}

}  // namespace

extern "C" {

void display_log_entry(const void *first, const void *output) {
  std::fputs("Job Name       : ", stdout);
  print_name_column(first, kJobAt);
  std::fputs("  Job Status: ", stdout);
  uint32_t status = static_cast<uint32_t>(word_at(first, kStatusAt));
  // Any nonzero status is a failure here, unlike the schedule display; one blank after "Failed"
  // is the intended text.
  if (status == 0) {
    std::printf("Success (%d)\n", 0);
  } else {
    std::printf("Failed (%d)\n", static_cast<int>((status >> 8) & 0xFF));
  }
  std::fputs("Schedule Name  : ", stdout);
  print_name_column(first, kScheduleAt);
  const char *user = static_cast<const char *>(first) + kUserAt;
  std::printf("  User Name : %.*s\n", static_cast<int>(strnlen(user, SCH_NAME_SIZE)), user);
  time_t completion = word_at(first, kCompletionAt);
  char when[64] = {};
  if (!ctime_r(&completion, when)) std::snprintf(when, sizeof when, "%s", "\n");
  std::printf("Completion time: %s", when);
  print_line(kOutputRuleWidth, '-');
  std::fputs(" Job Output ", stdout);
  print_line(kOutputRuleWidth, '-');
  std::putchar('\n');
  int32_t total = word_at(first, kTotalAt);
  const auto *bytes = static_cast<const uint8_t *>(output);
  for (int32_t i = 0; i < total; i++) std::putc(bytes[i], stdout);
  print_line(kRuleWidth, '=');
  std::putchar('\n');
}

int collate_and_display_log(cmi_session *session, const void *first, const mts_stream_context *context) {
  int32_t total = word_at(first, kTotalAt);
  uint32_t received = static_cast<uint32_t>(word_at(first, kPartLengthAt));
  if (total > kLargestOutput) {
    std::puts("Error cmi parsing");
    return -1;
  }
  // An empty output still gets a buffer: malloc(0) may answer NULL.
  auto *buffer = static_cast<uint8_t *>(std::malloc(total > 0 ? static_cast<size_t>(total) : 1));
  if (!buffer) {
    std::puts("Out of memory");
    return -1;
  }
  std::memcpy(buffer, static_cast<const uint8_t *>(first) + kPartAt, received);
  int messages = 1;
  sch::trace(sch::kTraceRecord, "entry %d recvd %d total %d", messages, static_cast<int>(received), total);
  while (static_cast<int64_t>(total) > static_cast<int64_t>(received)) {
    void *payload = nullptr;
    uint32_t length = 0;
    if (receive(session, context, &payload, &length) != 0) {
      std::free(buffer);
      return -1;
    }
    uint32_t part = 0;
    // A part that the message does not carry, or that runs past the total, is refused rather
    // than copied past the buffer.
    if (!part_of(payload, length, &part) || part > static_cast<uint32_t>(total) - received) {
      std::puts("Error cmi parsing");
      std::free(payload);
      std::free(buffer);
      return -1;
    }
    std::memcpy(buffer + received, static_cast<const uint8_t *>(payload) + kPartAt, part);
    std::free(payload);
    received += part;
    messages++;
    sch::trace(sch::kTraceRecord, "entry %d recvd %d total %d", messages, static_cast<int>(received), total);
    // A message that brings nothing would never end the entry.
    if (part == 0) {
      std::puts("Error cmi parsing");
      std::free(buffer);
      return -1;
    }
  }
  display_log_entry(first, buffer);
  std::free(buffer);
  return 0;
}

void display_log_entries(cmi_session *session, const cmi_token_source *token_source) {
  mts_stream_context context{};
  context.mode = 1;
  context.token = mts_rr_token_get(token_source);
  void *payload = nullptr;
  uint32_t length = 0;
  for (;;) {
    cmi_message message{};
    if (mts_recv(session, &message, &context) != 0) {
      std::puts("Error on recv");
      return;
    }
    if (cmi_parse_response(&message, &length, &payload) != 0 || length < kNumberAt + 4) {
      std::free(payload);
      std::puts("Error cmi parsing");
      return;
    }
    int32_t count = word_at(payload, kCountAt);
    int32_t number = word_at(payload, kNumberAt);
    if (count == 0) {
      std::free(payload);
      return;
    }
    sch::trace(sch::kTraceRecord, "***LOG ENTRY count %d entry %d", count, number);
    uint32_t part = 0;
    if (!part_of(payload, length, &part) || word_at(payload, kTotalAt) < static_cast<int32_t>(part)) {
      // A first message without its whole header or part cannot be shown; the listing ends as
      // for any other message that does not parse.
      std::free(payload);
      std::puts("Error cmi parsing");
      return;
    }
    collate_and_display_log(session, payload, &context);
    std::free(payload);
    payload = nullptr;
    if (number == count) return;
  }
}

int sch_cli_show_logfile(sch_cli_context *context) {
  RequestImage image(sizeof(sch_display_request));
  if (!image.ok()) return 2;
  sch_display_request request{};
  request.header.type = SCH_REQ_SHOW_LOG;
  request.header.length = sizeof request - sizeof request.header;
  request.cursor = -1;
  cli_debug = context->debug;
  if (context->param_count == 1) {
    sch::trace(sch::kTraceRecord, "parameter found");
    put_padded(request.name, param_string(context, 0));
  }
  image.encode(SCH_WIRE_DISPLAY_REQUEST, &request);
  cmi_token_source token_source{};
  uint32_t result = cmi_send_request(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, image.data(), image.size(),
                                     context->user, context->identity, &kSendOptions, context->session,
                                     &token_source);
  if (result != 0) {
    print_error("Error", result);
  } else {
    display_log_entries(context->session, &token_source);
  }
  return static_cast<int>(result);
}

}  // extern "C"
