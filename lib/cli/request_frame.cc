// The call to the daemon, the common error lines and the common openings of the command handlers.
#include "cli/request_frame.h"

#include <cstdio>

#include "cli/request.h"
#include "diag/trace.h"
#include "schedcli/platform/syserr.h"

namespace sch::cli {

uint32_t exchange(const Caller &caller, uint32_t service, uint32_t opcode, const void *request, uint32_t size,
                  Reply *reply) {
  reply->release();
  reply->length = size;
  return cmi_req_resp(service, opcode, request, &reply->data, &reply->length, caller.user, caller.identity,
                      SCH_CMI_FLAGS, caller.session, 0);
}

uint32_t send_config(const Caller &caller, const RequestImage &request) {
  Reply reply;
  return exchange(caller, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, request, &reply);
}

void print_error(const char *text, uint32_t code) { std::fprintf(stderr, "%s: %s\n", text, syserr2str(code)); }

void print_invalid_name() {
  std::fputs("Invalid name. Name should begin with alphanumeric and may have '_' or '-'.\n", stderr);
}

bool pass_gate(sch_cli_context *context) {
  uint32_t refused = sch_validate_remote_user(context, context->user);
  if (refused) print_error("Error", refused);
  return refused == 0;
}

bool admit_named(sch_cli_context *context, const char *kind, const char **name) {
  *name = param_string(context, 0);
  sch::trace(sch::kTraceRecord, "scheduler stub received %s name %s", kind, or_empty(*name));
  if (!sch_cli_check_name(*name)) {
    print_invalid_name();
    return false;
  }
  return pass_gate(context);
}

const char *param_string(const sch_cli_context *context, int index) {
  const sch_cli_param *param = context->params[index];
  return param ? static_cast<const char *>(param->value) : nullptr;
}

}  // namespace sch::cli
