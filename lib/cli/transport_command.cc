// scheduler transport email: the sender, reply-to address and SMTP server of job-output mail.
#include <cstdint>
#include <cstdio>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "schedcli/cli_config.h"
#include "schedcli/diag.h"

using namespace sch::cli;

namespace {

const sch_cli_param *param_at(const sch_cli_context *context, int index) {
  const sch_cli_param *param = context->param_count > index ? context->params[index] : nullptr;
  return param && param->value ? param : nullptr;
}

const char *text_of(const sch_cli_param *param) { return static_cast<const char *>(param->value); }

// The server's address kind as the request carries it; false for a kind the parser should not
// have produced.
bool server_kind(uint32_t address_kind, uint32_t *kind) {
  switch (address_kind) {
    case SCH_ADDRESS_IPV4:
      *kind = SCH_SMTP_SERVER_IPV4;
      return true;
    case SCH_ADDRESS_IPV6:
      *kind = SCH_SMTP_SERVER_IPV6;
      return true;
    case SCH_ADDRESS_HOST_NAME:
      *kind = SCH_SMTP_SERVER_HOST_NAME;
      return true;
    default:
      return false;
  }
}

// Fills the smtp-server request from parameters 1 (server), 2 (port or VRF) and 3 (VRF).
// Returns 0, or the handler's result when the input is refused.
uint32_t fill_smtp_server(const sch_cli_context *context, sch_transport_request *request) {
  sch_email_transport_conf &conf = request->conf;
  conf.smtp_port = SCH_SMTP_PORT_DEFAULT;
  if (context->no_flag) {
    request->header.type = SCH_REQ_NO_EMAIL_SMTP;
    return 0;
  }
  request->header.type = SCH_REQ_EMAIL_SMTP;
  const sch_cli_param *server = param_at(context, 0);
  if (!server) return 255;
  put_padded(conf.smtp_server, text_of(server));
  if (!server_kind(server->address_kind, &conf.smtp_reserved)) {
    // No newline after this text: intended.
    std::fputs("Invalid host address", stderr);
    return 1;
  }
  if (const sch_cli_param *second = param_at(context, 1)) {
    if (second->value_type == SCH_VALUE_INTEGER) {
      conf.smtp_port = static_cast<uint32_t>(*static_cast<const int32_t *>(second->value));
    } else if (second->value_type == SCH_VALUE_STRING) {
      put_padded(conf.vrf, text_of(second));
    }
  }
  const sch_cli_param *third = param_at(context, 2);
  if (third && third->value_type == SCH_VALUE_STRING) put_padded(conf.vrf, text_of(third));
  return 0;
}

}  // namespace

extern "C" uint32_t sch_cli_config_email_transport(sch_cli_context *context) {
  cli_debug = context->debug;
  // Taken before the input is looked at, and released on every return: earlier versions of this
  // handler leaked it when the server's address kind was refused.
  RequestImage image(sizeof(sch_transport_request));
  if (!image.ok()) {
    std::fputs("Could not allocate memory\n", stderr);
    return 2;
  }
  sch_transport_request request{};
  request.header.length = sizeof request - sizeof request.header;
  sch_email_transport_conf &conf = request.conf;
  const sch_cli_param *address = param_at(context, 0);

  switch (context->command_code) {
    case SCH_TRANSPORT_FROM:
      request.header.type = context->no_flag ? SCH_REQ_NO_EMAIL_FROM : SCH_REQ_EMAIL_FROM;
      if (!context->no_flag) {
        if (!address) return 255;
        put_padded(conf.from, text_of(address));
      }
      break;
    case SCH_TRANSPORT_REPLY_TO:
      request.header.type = context->no_flag ? SCH_REQ_NO_EMAIL_REPLY_TO : SCH_REQ_EMAIL_REPLY_TO;
      if (!context->no_flag) {
        if (!address) return 255;
        put_padded(conf.reply_to, text_of(address));
        put_padded(conf.reply_to_copy, text_of(address));
      }
      break;
    case SCH_TRANSPORT_SMTP_SERVER:
      if (uint32_t refused = fill_smtp_server(context, &request)) return refused;
      break;
    default:
      // An unknown option goes out as an empty request of type 0 for the daemon to refuse.
      break;
  }

  image.encode(SCH_WIRE_TRANSPORT_REQUEST, &request);
  uint32_t result = send_config(caller_of(context), image);
  // "Error: " before the ": " of the line: the doubled colon is the intended text.
  if (result != 0) print_error("Error: ", result);
  return result;
}
