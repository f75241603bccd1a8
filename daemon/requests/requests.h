// The request handlers, one family per file: each decodes its record with bounds checks, asks the
// model for the change (or reads the live configuration for a display), and builds the reply.
#ifndef SCHEDD_REQUESTS_REQUESTS_H
#define SCHEDD_REQUESTS_REQUESTS_H

#include <cstdint>
#include <span>

#include "cli/request.h"
#include "config/model.h"
#include "ipc/reply.h"
#include "schedcli/status.h"

namespace schedd {

class Runner;

// What every handler is given besides the request.
struct RequestContext {
  const Caller &caller;
  Model &model;
  bool standby;  // a standby's stores belong to the active daemon: it changes nothing
  const Runner *runner = nullptr;  // none on a standby, or when a test leaves it out
};

// Jobs (types 0, 1, 2).
Reply create_job(RequestBytes request, const RequestContext &context);
Reply define_job(RequestBytes request, const RequestContext &context);
Reply delete_job(RequestBytes request, const RequestContext &context);
// Schedules (types 3, 4, 5).
Reply create_schedule(RequestBytes request, const RequestContext &context);
Reply modify_schedule(RequestBytes request, const RequestContext &context);
Reply delete_schedule(RequestBytes request, const RequestContext &context);
// Email addresses of a schedule (type 20).
Reply schedule_email(RequestBytes request, const RequestContext &context);
// Credentials (types 22 and 23).
Reply user_credential(RequestBytes request, const RequestContext &context);
Reply user_credential_list(RequestBytes request, const RequestContext &context);
// The run log as a stream of its entries (type 8).
Reply show_log(RequestBytes request, const RequestContext &context);
// The timers of every schedule as text (type 30).
Reply timers_display(RequestBytes request, const RequestContext &context);
// Display cursors (types 6 and 7).
Reply schedule_display(RequestBytes request, const RequestContext &context);
Reply job_display(RequestBytes request, const RequestContext &context);
// The log file: size, name, clear (types 9, 10, 11) and its size for display (type 12).
Reply log_file_size(RequestBytes request, const RequestContext &context);
Reply log_file_name(RequestBytes request, const RequestContext &context);
Reply log_file_clear(RequestBytes request, const RequestContext &context);
Reply log_file_config(RequestBytes request, const RequestContext &context);
// The email transport (types 13 to 18) and its display (type 19).
Reply email_transport(RequestBytes request, const RequestContext &context);
Reply email_transport_config(RequestBytes request, const RequestContext &context);

// Requests that are not request records, each with its own payload.
// The feature manager's request (FM_SERVICE): the opcode is the action.
Reply feature_request(uint32_t opcode, std::span<const uint8_t> payload, const RequestContext &context);
// The configuration framework's requests (ACFG_SERVICE).
Reply configuration_request(uint32_t opcode, std::span<const uint8_t> payload, const RequestContext &context);
// Configuration records applied all or nothing (ACFG_OP_APPLY, see schedcli/platform/acfg.h).
Reply apply_configuration(std::span<const uint8_t> payload, const RequestContext &context);
// Type-7 encryption and decryption for processes without the device key (SECRETS_SERVICE).
Reply secret_request(uint32_t opcode, std::span<const uint8_t> payload, const RequestContext &context);

}  // namespace schedd

#endif
