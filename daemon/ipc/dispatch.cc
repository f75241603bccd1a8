// Checks of the request frame, and the table of request types the daemon serves.
#include "ipc/dispatch.h"

#include <array>

#include "core/debug.h"
#include "schedcli/db.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

struct RequestKind {
  uint32_t type;
  uint32_t service;
  uint32_t opcode;
  size_t size;          // of the whole record; the least size for a type that carries text
  bool carries_text;
  bool changes;         // a configuration change
  Reply (*handle)(RequestBytes, const RequestContext &);
};

constexpr std::array kKinds = {
    RequestKind{SCH_REQ_CREATE_JOB, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_job_request), false, true,
                create_job},
    RequestKind{SCH_REQ_DEFINE_JOB, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_job_request), true, true,
                define_job},
    RequestKind{SCH_REQ_DELETE_JOB, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_job_request), false, true,
                delete_job},
    RequestKind{SCH_REQ_CREATE_SCHEDULE, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_schedule_request), false,
                true, create_schedule},
    RequestKind{SCH_REQ_MODIFY_SCHEDULE, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_modify_schedule_request),
                false, true, modify_schedule},
    RequestKind{SCH_REQ_DELETE_SCHEDULE, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_schedule_request), false,
                true, delete_schedule},
    RequestKind{SCH_REQ_GET_SCHEDULES, SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, sizeof(sch_display_request), false,
                false, schedule_display},
    RequestKind{SCH_REQ_GET_JOBS, SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, sizeof(sch_display_request), false, false,
                job_display},
    RequestKind{SCH_REQ_SHOW_LOG, SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, sizeof(sch_display_request), false, false,
                show_log},
    RequestKind{SCH_REQ_GET_TIMERS, SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, sizeof(sch_request_header), false,
                false, timers_display},
    RequestKind{SCH_REQ_LOG_SIZE, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_log_file_request), false, true,
                log_file_size},
    RequestKind{SCH_REQ_LOG_NAME, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_log_file_request), false, true,
                log_file_name},
    RequestKind{SCH_REQ_LOG_CLEAR, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_log_file_request), false, true,
                log_file_clear},
    RequestKind{SCH_REQ_GET_LOG_CONFIG, SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, sizeof(sch_request_header), false,
                false, log_file_config},
    RequestKind{SCH_REQ_EMAIL_FROM, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_transport_request), false,
                true, email_transport},
    RequestKind{SCH_REQ_NO_EMAIL_FROM, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_transport_request), false,
                true, email_transport},
    RequestKind{SCH_REQ_EMAIL_REPLY_TO, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_transport_request), false,
                true, email_transport},
    RequestKind{SCH_REQ_NO_EMAIL_REPLY_TO, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_transport_request),
                false, true, email_transport},
    RequestKind{SCH_REQ_EMAIL_SMTP, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_transport_request), false,
                true, email_transport},
    RequestKind{SCH_REQ_NO_EMAIL_SMTP, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_transport_request), false,
                true, email_transport},
    RequestKind{SCH_REQ_GET_EMAIL_TRANSPORT, SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE,
                sizeof(sch_request_header), false, false, email_transport_config},
    RequestKind{SCH_REQ_SCHEDULE_EMAIL, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_schedule_email_request),
                false, true, schedule_email},
    // A credential fetch changes nothing, but it shares its type with store and delete.
    RequestKind{SCH_REQ_USER_CREDENTIAL, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, sizeof(sch_credential_request),
                false, true, user_credential},
    RequestKind{SCH_REQ_GET_USER_CONFIG, SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, sizeof(sch_request_header),
                false, false, user_credential_list},
};

const RequestKind *kind_of(uint32_t type) {
  for (const RequestKind &kind : kKinds) {
    if (kind.type == type) return &kind;
  }
  return nullptr;
}

bool credential_fetch(RequestBytes request) {
  return request.size() > offsetof(sch_credential_request, operation) &&
         request[offsetof(sch_credential_request, operation)] == SCH_CREDENTIAL_FETCH;
}

}  // namespace

Reply dispatch(uint32_t service, uint32_t opcode, RequestBytes request, const RequestContext &context) {
  if (service == FM_SERVICE) return feature_request(opcode, request, context);
  if (service == ACFG_SERVICE) return configuration_request(opcode, request, context);
  if (service == SECRETS_SERVICE) return secret_request(opcode, request, context);
  bool standby = context.standby;
  sch_request_header header;
  if (sch_wire_decode(SCH_WIRE_REQUEST_HEADER, request.data(), request.size(), &header) != 0) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  const RequestKind *kind = kind_of(header.type);
  if (!kind) return status_reply(SCH_STATUS_UNKNOWN_REQUEST);
  bool size_fits = kind->carries_text ? request.size() >= kind->size : request.size() == kind->size;
  if (service != kind->service || opcode != kind->opcode || header.length != request.size() - sizeof header ||
      !size_fits) {
    debug(kDebugRequest, "request type %u refused: service %u opcode %u, %zu bytes, length word %u",
          header.type, service, opcode, request.size(), header.length);
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  if (standby && kind->changes && !(kind->type == SCH_REQ_USER_CREDENTIAL && credential_fetch(request))) {
    return status_reply(SCH_STATUS_STANDBY);
  }
  // A standby restores nothing, its feature flag included; it serves what it has.
  if (!standby && !scheduler_enabled) return status_reply(SCH_STATUS_FEATURE_DISABLED);
  return kind->handle(request, context);
}

}  // namespace schedd
