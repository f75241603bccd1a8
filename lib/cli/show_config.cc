// show configuration: the daemon's whole configuration, asked for piece by piece and printed as
// the command blocks that recreate it.
#include <cstdint>
#include <cstdio>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "cli/show_listing.h"
#include "schedcli/cli_config.h"
#include "schedcli/diag.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/wire.h"

using namespace sch::cli;

namespace {

// Sends a display request that is only its header, from the stack: nothing to allocate.
uint32_t ask_display(const sch_cli_context *context, uint32_t type, uint32_t opcode, Reply *reply) {
  const sch_request_header header{type, 0};
  uint8_t request[sizeof header];
  sch_wire_encode(SCH_WIRE_REQUEST_HEADER, &header, request);
  return exchange(caller_of(context), SCH_SERVICE_DISPLAY, opcode, request, sizeof request, reply);
}

bool user_list_fits(const uint8_t *reply, uint32_t length) {
  return length >= sizeof(uint16_t) &&
         sch_wire_get_u16(reply) <= (length - sizeof(uint16_t)) / sizeof(sch_user_config_reply_entry);
}

void print_schedule_block(const void *reply) {
  print_config_schedule(reply);
  std::putchar('\n');
}

}  // namespace

extern "C" {

int get_log_file_config(sch_cli_context *context) {
  cli_debug = context->debug;
  Reply reply;
  uint32_t result = ask_display(context, SCH_REQ_GET_LOG_CONFIG, SCH_OPCODE_DISPLAY, &reply);
  if (result == 0 && reply.length < sizeof(int32_t)) result = CMI_ERR_LENGTH;
  if (result != 0) {
    report_display_failure(result);
    return 1;
  }
  auto size = static_cast<int32_t>(sch_wire_get_u32(reply.bytes()));
  std::puts("config terminal");
  std::puts("  feature scheduler");
  std::printf("  scheduler logfile size %d\n", size / 1024);
  return 0;
}

int sch_cli_get_email_transport_config(sch_cli_context *context) {
  cli_debug = context->debug;
  Reply reply;
  uint32_t result = ask_display(context, SCH_REQ_GET_EMAIL_TRANSPORT, SCH_OPCODE_DISPLAY_SIMPLE, &reply);
  sch_email_transport_conf conf;
  if (result == 0 && reply.data && reply.length < sizeof conf) result = CMI_ERR_LENGTH;
  if (result != 0) {
    report_display_failure(result);
    return 1;
  }
  if (!reply.data) return 0;
  sch_wire_decode(SCH_WIRE_TRANSPORT_CONF, reply.data, reply.length, &conf);
  if (conf.from[0]) std::printf("  scheduler transport email from %.*s\n", name_length(conf.from), conf.from);
  // Two blanks before the address: intended.
  if (conf.reply_to[0]) {
    std::printf("  scheduler transport email reply-to  %.*s\n", name_length(conf.reply_to), conf.reply_to);
  }
  if (conf.smtp_server[0]) {
    std::printf("  scheduler transport email smtp-server %.*s", name_length(conf.smtp_server), conf.smtp_server);
    // The default port goes without saying; the VRF is never shown.
    if (conf.smtp_port != SCH_SMTP_PORT_DEFAULT) std::printf(" port %d", static_cast<int>(conf.smtp_port));
    std::putchar('\n');
  }
  return 0;
}

uint32_t get_user_config(sch_cli_context *context) {
  cli_debug = context->debug;
  RequestImage image(sizeof(sch_request_header));
  if (!image.ok()) {
    std::fputs("Could not allocate memory\n", stderr);
    return 2;
  }
  const sch_request_header header{SCH_REQ_GET_USER_CONFIG, 0};
  image.encode(SCH_WIRE_REQUEST_HEADER, &header);
  Reply reply;
  uint32_t result = exchange(caller_of(context), SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, image, &reply);
  if (result == 0 && reply.data && !user_list_fits(reply.bytes(), reply.length)) result = CMI_ERR_LENGTH;
  if (result != 0) {
    // "Error: " before the ": " of the line: the doubled colon is the intended text.
    print_error("Error: ", result);
    return result;
  }
  if (!reply.data) return 0;

  uint16_t count = sch_wire_get_u16(reply.bytes());
  for (uint16_t i = 0; i < count; i++) {
    sch_user_config_reply_entry entry;
    size_t offset = sizeof count + i * sizeof entry;
    sch_wire_decode(SCH_WIRE_USER_CONFIG_REPLY_ENTRY, reply.bytes() + offset, sizeof entry, &entry);
    std::puts("config terminal");
    // The stored encrypted form only: the clear password never reaches the shell.
    std::printf("scheduler aaa-authentication username %.*s password 7 %.*s\n", name_length(entry.user), entry.user,
                name_length(entry.password), entry.password);
    std::puts("end");
  }
  if (count > 0) std::putchar('\n');
  return 0;
}

int get_job_config(sch_cli_context *context) {
  static const Listing kJobs = {.request_type = SCH_REQ_GET_JOBS,
                                .sending_trace = "sending show job request",
                                .check = check_job_reply,
                                .display = print_config_job,
                                .closing_trace = nullptr,
                                .by_name = false,
                                .ruled = false};
  return run_listing(context, kJobs);
}

int get_schedule_config(sch_cli_context *context) {
  static const Listing kSchedules = {.request_type = SCH_REQ_GET_SCHEDULES,
                                     .sending_trace = "send show schedule request",
                                     .check = check_schedule_reply,
                                     .display = print_schedule_block,
                                     .closing_trace = "successful run",
                                     .by_name = false,
                                     .ruled = false};
  return run_listing(context, kSchedules);
}

int sch_cli_show_config(sch_cli_context *context) {
  cli_debug = context->debug;
  get_log_file_config(context);
  sch_cli_get_email_transport_config(context);
  // puts adds a newline to the one in the text: an empty line follows "end", intended.
  std::puts("end\n");
  get_user_config(context);
  get_job_config(context);
  get_schedule_config(context);
  return 0;
}

}  // extern "C"
