/* Encoding of requests and replies between the shell and the daemon: native records (lib/cli/
 * request.h) to their big-endian wire images and back. Both ends use these calls and nothing
 * else touches byte order. */
#ifndef SCHEDCLI_WIRE_H
#define SCHEDCLI_WIRE_H

#include <stddef.h>
#include <stdint.h>

#include "schedcli/export.h"

SCHED_BEGIN_DECLS

typedef enum sch_wire_record {
  SCH_WIRE_JOB_REQUEST,             /* sch_job_request, 56 */
  SCH_WIRE_SCHEDULE_REQUEST,        /* sch_schedule_request, 48 */
  SCH_WIRE_MODIFY_SCHEDULE_REQUEST, /* sch_modify_schedule_request, 128 */
  SCH_WIRE_DISPLAY_REQUEST,         /* sch_display_request, 48 */
  SCH_WIRE_LOG_FILE_REQUEST,        /* sch_log_file_request, 532 */
  SCH_WIRE_TRANSPORT_REQUEST,       /* sch_transport_request, 720 */
  SCH_WIRE_SCHEDULE_EMAIL_REQUEST,  /* sch_schedule_email_request, 105 */
  SCH_WIRE_CREDENTIAL_REQUEST,      /* sch_credential_request, 265 */
  SCH_WIRE_REQUEST_HEADER,          /* sch_request_header, 8 */
  SCH_WIRE_JOB_REPLY,               /* sch_job_reply, 44 */
  SCH_WIRE_SCHEDULE_REPLY,          /* sch_schedule_reply, 820 */
  SCH_WIRE_SCHEDULE_REPLY_JOB,      /* sch_schedule_reply_job, 36 */
  SCH_WIRE_USER_CONFIG_REPLY_ENTRY, /* sch_user_config_reply_entry, 264 */
  SCH_WIRE_TRANSPORT_CONF,          /* sch_email_transport_conf, 712 */
  SCH_WIRE_TMINFO,                  /* tminfo, 40 */
  SCH_WIRE_RECORD_COUNT
} sch_wire_record;

/* Size of a record's wire image; 0 for an unknown kind. */
SCHED_EXPORT size_t sch_wire_size(sch_wire_record kind);
/* Writes the wire image of `native` (sch_wire_size bytes) to `out`. Returns 0, -1 for an unknown
 * kind. */
SCHED_EXPORT int sch_wire_encode(sch_wire_record kind, const void *native, void *out);
/* Reads at most sch_wire_size bytes of `in` (`length` bytes are there) into `native`; the part a
 * short input does not cover is zero. Returns 0 when the input was complete, 1 when it was short,
 * -1 for an unknown kind. */
SCHED_EXPORT int sch_wire_decode(sch_wire_record kind, const void *in, size_t length, void *native);

/* Single big-endian numbers of a wire image. */
SCHED_EXPORT void sch_wire_put_u32(void *out, uint32_t value);
SCHED_EXPORT uint32_t sch_wire_get_u32(const void *in);
SCHED_EXPORT void sch_wire_put_u16(void *out, uint16_t value);
SCHED_EXPORT uint16_t sch_wire_get_u16(const void *in);

SCHED_END_DECLS

#endif
