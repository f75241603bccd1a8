/* Keys and values of every stored scheduler record.
 *
 * In memory every integer is native; in a store every integer is 32-bit big-endian, byte for byte
 * what a 32-bit big-endian target writes. Only the codec (db/codec.h) converts between the two.
 * The sizes and offsets below are a file format: the static_asserts pin them, never change them.
 * The type codes are stored: never renumber. */
#ifndef SCHEDCLI_LIB_DB_RECORDS_H
#define SCHEDCLI_LIB_DB_RECORDS_H

#include <stdint.h>

#include "schedcli/tminfo.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SCH_NAME_SIZE 32          /* job, schedule and key names, NUL-padded */
#define SCH_KEY_SIZE 40
#define SCH_MAX_JOBS 256
#define SCH_FRAGMENT_SIZE 1024
#define SCH_MAX_EMAILS 10
#define SCH_EMAIL_SIZE 64
#define SCH_USER_NAME_SIZE 128
#define SCH_PASSWORD_SIZE 128
#define SCH_LOG_FILE_SIZE_DEFAULT 16384u
#define SCH_SMTP_PORT_DEFAULT 25u

/* Record type codes: the first word of every key. */
enum sch_record_type {
  SCH_REC_SCHEDULE = 0,
  SCH_REC_JOB = 1,             /* sequence 0 the header, 1.. the fragments */
  SCH_REC_CONDITION = 2,
  SCH_REC_LOG_FILE = 3,
  SCH_REC_RUNTIME_DELETE = 4,  /* run-result key as built for deletion */
  SCH_REC_EMAIL_FROM = 5,
  SCH_REC_EMAIL_REPLY_TO = 6,
  SCH_REC_EMAIL_SMTP = 7,
  SCH_REC_SCHEDULE_EMAIL = 8,
  SCH_REC_USER = 9,
  SCH_REC_RUNTIME_STATUS = 255 /* run-result key as stored */
};

/* Config key and runtime key (40 bytes).
 *   0  type      record type code
 *   4  sequence  fragment number, user-record word, or job id (runtime key); else 0
 *   8  name      NUL-padded; not terminated when all 32 bytes are used */
typedef struct sch_config_key {
  uint32_t type;
  uint32_t sequence;
  char name[SCH_NAME_SIZE];
} sch_config_key;
typedef sch_config_key sch_runtime_key;

/* Schedule record (type 0, 144 bytes). */
typedef struct sch_schedule_record {
  uint32_t reserved0[2];             /*   0 daemon's, stored unchanged */
  uint32_t jobs[SCH_MAX_JOBS / 32];  /*   8 assigned jobs: bit n is 1u << (n % 32) of word n / 32 */
  uint32_t reserved40;               /*  40 daemon's */
  tminfo time;                       /*  44 time specification */
  uint32_t reserved84;               /*  84 daemon's */
  uint32_t last_completion;          /*  88 seconds since the epoch, 0 = never */
  uint32_t job_count;                /*  92 jobs assigned */
  char user[40];                     /*  96 user the jobs run as, NUL-terminated */
  uint32_t last_execution;           /* 136 seconds since the epoch, 0 = yet to run */
  uint32_t execution_count;          /* 140 */
} sch_schedule_record;

/* Job header (type 1, sequence 0, 12 bytes). */
typedef struct sch_job_header {
  uint32_t job_id;    /* 0 slot in the job table, 0..255 */
  uint32_t reserved;  /* 4 stored unchanged */
  uint32_t length;    /* 8 total command text length, the sum of the fragments */
} sch_job_header;

/* Condition record (type 2, 4 bytes): the feature enable flag. */
typedef uint32_t sch_condition_record;

/* Log-file record: 540 bytes in memory, of which bytes 8..539 (532) are stored as type 3. */
#define SCH_LOG_FILE_STORED_OFFSET 8
#define SCH_LOG_FILE_STORED_SIZE 532
typedef struct sch_log_file_record {
  uint8_t unstored[8];        /*   0 not stored */
  uint8_t writer_data[256];   /*   8 the log writer's, stored unchanged */
  uint32_t size_limit;        /* 264 bytes; shown in kilobytes */
  uint32_t read_offset;       /* 268 oldest entry ("rd offset") */
  uint32_t reserved;          /* 272 */
  uint32_t count;             /* 276 entries */
  uint8_t writer_state[260];  /* 280 the log writer's, stored unchanged */
} sch_log_file_record;

/* Email transport configuration (712 bytes in memory; stored as types 5, 6 and 7). */
#define SCH_SMTP_STORED_SIZE 520
typedef struct sch_email_transport_conf {
  char from[64];           /*   0 type 5 value */
  char reply_to[64];       /*  64 type 6 value */
  char reply_to_copy[64];  /* 128 filled on restore, not stored */
  char smtp_server[256];   /* 192 type 7 value, bytes 0..255 */
  uint32_t smtp_reserved;  /* 448 type 7 value, bytes 256..259 */
  uint32_t smtp_port;      /* 452 type 7 value, bytes 260..263 */
  char vrf[256];           /* 456 type 7 value, bytes 264..519 */
} sch_email_transport_conf;

/* Schedule email entry (type 8, 716 bytes). */
typedef struct sch_email_slot {
  char address[SCH_EMAIL_SIZE];  /* NUL-terminated */
  uint32_t in_use;               /* non-zero when the slot holds an address */
} sch_email_slot;
typedef struct sch_schedule_email_entry {
  char schedule[SCH_NAME_SIZE];          /*  0 */
  uint32_t count;                        /* 32 addresses configured */
  sch_email_slot slots[SCH_MAX_EMAILS];  /* 36 */
} sch_schedule_email_entry;

/* User config record (type 9, 264 bytes). */
typedef struct sch_user_config_record {
  char user[SCH_USER_NAME_SIZE];          /*   0 NUL-terminated; the key carries its first 32 bytes */
  char password[SCH_PASSWORD_SIZE];       /* 128 the platform's encrypted form, never clear text */
  uint32_t word;                          /* 256 also the key's sequence */
  uint32_t reserved;                      /* 260 stored unchanged */
} sch_user_config_record;

/* Run result (44 bytes in memory); stored as key (type 255, job id, schedule) + 8-byte value. */
#define SCH_RUN_RESULT_STORED_SIZE 8
typedef struct sch_runtime_job_status {
  char schedule[SCH_NAME_SIZE];  /*  0 schedule whose run produced it */
  uint32_t job_id;               /* 32 */
  uint32_t result[2];            /* 36 the job runner's two words */
} sch_runtime_job_status;

/* Stored value sizes by record type. */
#define SCH_SCHEDULE_RECORD_SIZE 144
#define SCH_JOB_HEADER_SIZE 12
#define SCH_CONDITION_SIZE 4
#define SCH_EMAIL_ADDRESS_RECORD_SIZE 64
#define SCH_SCHEDULE_EMAIL_SIZE 716
#define SCH_USER_RECORD_SIZE 264

#ifdef __cplusplus
}  /* extern "C" */

#include <cstddef>

static_assert(sizeof(sch_config_key) == SCH_KEY_SIZE);
static_assert(offsetof(sch_config_key, type) == 0 && offsetof(sch_config_key, sequence) == 4 &&
              offsetof(sch_config_key, name) == 8);

static_assert(sizeof(sch_schedule_record) == SCH_SCHEDULE_RECORD_SIZE);
static_assert(offsetof(sch_schedule_record, jobs) == 8 && offsetof(sch_schedule_record, reserved40) == 40 &&
              offsetof(sch_schedule_record, time) == 44 && offsetof(sch_schedule_record, reserved84) == 84 &&
              offsetof(sch_schedule_record, last_completion) == 88 &&
              offsetof(sch_schedule_record, job_count) == 92 && offsetof(sch_schedule_record, user) == 96 &&
              offsetof(sch_schedule_record, last_execution) == 136 &&
              offsetof(sch_schedule_record, execution_count) == 140);

static_assert(sizeof(sch_job_header) == SCH_JOB_HEADER_SIZE);
static_assert(offsetof(sch_job_header, reserved) == 4 && offsetof(sch_job_header, length) == 8);

static_assert(sizeof(sch_condition_record) == SCH_CONDITION_SIZE);

static_assert(sizeof(sch_log_file_record) == SCH_LOG_FILE_STORED_OFFSET + SCH_LOG_FILE_STORED_SIZE);
static_assert(offsetof(sch_log_file_record, writer_data) == SCH_LOG_FILE_STORED_OFFSET &&
              offsetof(sch_log_file_record, size_limit) == 8 + 256 &&
              offsetof(sch_log_file_record, read_offset) == 8 + 260 &&
              offsetof(sch_log_file_record, reserved) == 8 + 264 &&
              offsetof(sch_log_file_record, count) == 8 + 268 &&
              offsetof(sch_log_file_record, writer_state) == 8 + 272);

static_assert(sizeof(sch_email_transport_conf) == 712);
static_assert(offsetof(sch_email_transport_conf, reply_to) == 64 &&
              offsetof(sch_email_transport_conf, reply_to_copy) == 128 &&
              offsetof(sch_email_transport_conf, smtp_server) == 192 &&
              offsetof(sch_email_transport_conf, smtp_reserved) == 448 &&
              offsetof(sch_email_transport_conf, smtp_port) == 452 &&
              offsetof(sch_email_transport_conf, vrf) == 456);
static_assert(sizeof(sch_email_transport_conf) - offsetof(sch_email_transport_conf, smtp_server) ==
              SCH_SMTP_STORED_SIZE);

static_assert(sizeof(sch_email_slot) == 68 && offsetof(sch_email_slot, in_use) == 64);
static_assert(sizeof(sch_schedule_email_entry) == SCH_SCHEDULE_EMAIL_SIZE);
static_assert(offsetof(sch_schedule_email_entry, count) == 32 && offsetof(sch_schedule_email_entry, slots) == 36);

static_assert(sizeof(sch_user_config_record) == SCH_USER_RECORD_SIZE);
static_assert(offsetof(sch_user_config_record, password) == 128 &&
              offsetof(sch_user_config_record, word) == 256 && offsetof(sch_user_config_record, reserved) == 260);

static_assert(sizeof(sch_runtime_job_status) == 44);
static_assert(offsetof(sch_runtime_job_status, job_id) == 32 && offsetof(sch_runtime_job_status, result) == 36);
#endif

#endif
