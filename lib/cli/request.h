/* Request records the shell sends to the daemon, and the replies of the display service.
 *
 * These are wire formats: every integer is 32-bit big-endian on the wire (encode and decode with
 * sch_wire_encode / sch_wire_decode, never by copying a structure). The structures below are the
 * native images; the static_asserts pin every size and offset. Type codes, services, opcodes and
 * sub-codes have their home in schedcli/protocol.h. */
#ifndef SCHEDCLI_LIB_CLI_REQUEST_H
#define SCHEDCLI_LIB_CLI_REQUEST_H

#include <stdint.h>

#include "db/records.h"
#include "schedcli/protocol.h"
#include "schedcli/tminfo.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Header of every request: the length is the record's size minus these 8 bytes. */
typedef struct sch_request_header {
  uint32_t type;
  uint32_t length;
} sch_request_header;

/* Types 0, 1, 2 (56 bytes; type 1 is followed by text_length bytes of command text). */
typedef struct sch_job_request {
  sch_request_header header;
  uint32_t no_flag;            /*  8 */
  uint32_t reserved12;         /* 12 */
  char name[SCH_NAME_SIZE];    /* 16 */
  uint32_t reserved48;         /* 48 */
  uint32_t text_length;        /* 52 */
} sch_job_request;

/* Types 3 and 5 (48 bytes). */
typedef struct sch_schedule_request {
  sch_request_header header;
  uint32_t no_flag;            /*  8 */
  uint32_t reserved12;         /* 12 */
  char name[SCH_NAME_SIZE];    /* 16 */
} sch_schedule_request;

/* Type 4 (128 bytes). */
typedef struct sch_modify_schedule_request {
  sch_request_header header;
  uint32_t no_flag;                /*  8 */
  uint32_t reserved12;             /* 12 */
  uint32_t code;                   /* 16 sub-command */
  char schedule[SCH_NAME_SIZE];    /* 20 */
  char job[SCH_NAME_SIZE];         /* 52 */
  uint32_t reserved84;             /* 84 */
  tminfo time;                     /* 88 */
} sch_modify_schedule_request;

/* Types 6, 7 and 8 (48 bytes). */
typedef struct sch_display_request {
  sch_request_header header;
  uint32_t reserved8;          /*  8 */
  char name[SCH_NAME_SIZE];    /* 12 one entry by name; empty for all */
  int32_t cursor;              /* 44 -1 first, then the last reply's cursor */
} sch_display_request;

/* Types 9, 10 and 11 (532 bytes). */
typedef struct sch_log_file_request {
  sch_request_header header;
  uint32_t no_flag;            /*   8 */
  uint32_t reserved12;         /*  12 */
  char path[256];              /*  16 */
  char uri[256];               /* 272 */
  uint32_t size;               /* 528 bytes */
} sch_log_file_request;

/* Types 13 to 18 (720 bytes): the transport configuration follows the header. */
typedef struct sch_transport_request {
  sch_request_header header;
  sch_email_transport_conf conf;  /* 8 */
} sch_transport_request;

/* Type 20 (105 bytes) and type 22 (265 bytes) are byte-packed: an operation byte takes the place
 * of the no flag and the strings follow it directly. */
typedef struct __attribute__((packed)) sch_schedule_email_request {
  sch_request_header header;
  uint8_t operation;                /*  8 SCH_EMAIL_ADD or SCH_EMAIL_DELETE */
  char schedule[SCH_NAME_SIZE];     /*  9 */
  char address[SCH_EMAIL_SIZE];     /* 41 */
} sch_schedule_email_request;

typedef struct __attribute__((packed)) sch_credential_request {
  sch_request_header header;
  uint8_t operation;                   /*   8 fetch, store or delete */
  char user[SCH_USER_NAME_SIZE];       /*   9 */
  char password[SCH_PASSWORD_SIZE];    /* 137 encrypted form */
} sch_credential_request;

/* ---- Display replies ---- */

/* Type 7: one job; text_length bytes of command text follow. */
typedef struct sch_job_reply {
  char name[SCH_NAME_SIZE];    /*  0 */
  uint32_t cursor;             /* 32 for the next request */
  uint32_t reserved36;         /* 36 */
  int32_t text_length;         /* 40 */
} sch_job_reply;

/* One job of a schedule reply. */
typedef struct sch_schedule_reply_job {
  char name[SCH_NAME_SIZE];
  uint32_t status;             /* the last run's wait status; bits 8..15 the exit code */
} sch_schedule_reply_job;

/* Type 6: one schedule; job_count sch_schedule_reply_job entries follow. */
typedef struct sch_schedule_reply {
  uint32_t cursor;                        /*   0 for the next request */
  char name[SCH_NAME_SIZE];               /*   4 */
  tminfo time;                            /*  36 */
  uint32_t reserved76;                    /*  76 */
  int32_t last_completion;                /*  80 0 = none */
  uint32_t job_count;                     /*  84 */
  char user[SCH_NAME_SIZE];               /*  88 */
  uint8_t reserved120[8];                 /* 120 */
  int32_t last_execution;                 /* 128 0 = never run */
  int32_t execution_count;                /* 132 */
  uint32_t any_email;                     /* 136 non-zero when an address is set */
  sch_email_slot emails[SCH_MAX_EMAILS];  /* 140 */
} sch_schedule_reply;

/* Type 23: a 16-bit count, then count entries. */
typedef struct __attribute__((packed)) sch_user_config_reply_entry {
  char user[SCH_USER_NAME_SIZE];   /*   0 */
  char password[136];              /* 128 encrypted form */
} sch_user_config_reply_entry;

#define SCH_MAX_REPLY_JOBS SCH_MAX_JOBS
#define SCH_JOB_TEXT_MAX 8182  /* the longest command text a job takes */

#ifdef __cplusplus
}  /* extern "C" */

#include <cstddef>

static_assert(sizeof(sch_request_header) == 8);
static_assert(sizeof(sch_job_request) == 56 && offsetof(sch_job_request, name) == 16 &&
              offsetof(sch_job_request, reserved48) == 48 && offsetof(sch_job_request, text_length) == 52);
static_assert(sizeof(sch_schedule_request) == 48 && offsetof(sch_schedule_request, name) == 16);
static_assert(sizeof(sch_modify_schedule_request) == 128 && offsetof(sch_modify_schedule_request, code) == 16 &&
              offsetof(sch_modify_schedule_request, schedule) == 20 && offsetof(sch_modify_schedule_request, job) == 52 &&
              offsetof(sch_modify_schedule_request, reserved84) == 84 && offsetof(sch_modify_schedule_request, time) == 88);
static_assert(sizeof(sch_display_request) == 48 && offsetof(sch_display_request, name) == 12 &&
              offsetof(sch_display_request, cursor) == 44);
static_assert(sizeof(sch_log_file_request) == 532 && offsetof(sch_log_file_request, path) == 16 &&
              offsetof(sch_log_file_request, uri) == 272 && offsetof(sch_log_file_request, size) == 528);
static_assert(sizeof(sch_transport_request) == 720 && offsetof(sch_transport_request, conf) == 8);
static_assert(sizeof(sch_schedule_email_request) == 105 && offsetof(sch_schedule_email_request, operation) == 8 &&
              offsetof(sch_schedule_email_request, schedule) == 9 && offsetof(sch_schedule_email_request, address) == 41);
static_assert(sizeof(sch_credential_request) == 265 && offsetof(sch_credential_request, user) == 9 &&
              offsetof(sch_credential_request, password) == 137);
static_assert(sizeof(sch_job_reply) == 44 && offsetof(sch_job_reply, cursor) == 32 &&
              offsetof(sch_job_reply, text_length) == 40);
static_assert(sizeof(sch_schedule_reply_job) == 36 && offsetof(sch_schedule_reply_job, status) == 32);
static_assert(sizeof(sch_schedule_reply) == 820 && offsetof(sch_schedule_reply, name) == 4 &&
              offsetof(sch_schedule_reply, time) == 36 && offsetof(sch_schedule_reply, last_completion) == 80 &&
              offsetof(sch_schedule_reply, job_count) == 84 && offsetof(sch_schedule_reply, user) == 88 &&
              offsetof(sch_schedule_reply, last_execution) == 128 &&
              offsetof(sch_schedule_reply, execution_count) == 132 && offsetof(sch_schedule_reply, any_email) == 136 &&
              offsetof(sch_schedule_reply, emails) == 140);
static_assert(sizeof(sch_user_config_reply_entry) == 264);
#endif

#endif
