/* The scheduler's protocol facts, shared by the shell, the library, the platform and the daemon:
 * the services and opcodes of its requests, the request types and their sub-codes, the SMTP server
 * kinds, the flags handed to every call, and the names of its stores. Each fact has its home here
 * and nowhere else.
 *
 * Every value below travels between programs or is stored: never renumber or rename. Plain C;
 * the request and reply records themselves are in the library (cli/request.h). */
#ifndef SCHEDCLI_PROTOCOL_H
#define SCHEDCLI_PROTOCOL_H

/* ---- Services and opcodes of the request/response transport ---- */
#define SCH_SERVICE_CONFIG 5950u
#define SCH_SERVICE_DISPLAY 5951u
#define SCH_OPCODE_CONFIG 3u
#define SCH_OPCODE_DISPLAY 2u
#define SCH_OPCODE_DISPLAY_SIMPLE 1u /* types 19 and 23 */

/* ---- Flags ---- */
#define SCH_CMI_FLAGS 136u           /* handed to every cmi_req_resp call unchanged */
#define SCH_PSS_PERMISSIONS 0xE0u    /* handed to every pss2_open call unchanged */

/* ---- Request types: the first word of every request ---- */
enum sch_request_type {
  SCH_REQ_CREATE_JOB = 0,
  SCH_REQ_DEFINE_JOB = 1,
  SCH_REQ_DELETE_JOB = 2,
  SCH_REQ_CREATE_SCHEDULE = 3,
  SCH_REQ_MODIFY_SCHEDULE = 4,
  SCH_REQ_DELETE_SCHEDULE = 5,
  SCH_REQ_GET_SCHEDULES = 6,
  SCH_REQ_GET_JOBS = 7,
  SCH_REQ_SHOW_LOG = 8,
  SCH_REQ_LOG_SIZE = 9,
  SCH_REQ_LOG_NAME = 10,
  SCH_REQ_LOG_CLEAR = 11,
  SCH_REQ_GET_LOG_CONFIG = 12,
  SCH_REQ_EMAIL_FROM = 13,
  SCH_REQ_NO_EMAIL_FROM = 14,
  SCH_REQ_EMAIL_REPLY_TO = 15,
  SCH_REQ_NO_EMAIL_REPLY_TO = 16,
  SCH_REQ_EMAIL_SMTP = 17,
  SCH_REQ_NO_EMAIL_SMTP = 18,
  SCH_REQ_GET_EMAIL_TRANSPORT = 19,
  SCH_REQ_SCHEDULE_EMAIL = 20,
  SCH_REQ_USER_CREDENTIAL = 22,
  SCH_REQ_GET_USER_CONFIG = 23,
  SCH_REQ_GET_TIMERS = 30 /* the timers of every schedule, as text: the daemon's own addition */
};

/* 1 for the types a configuration apply may carry (the objects of a configuration, nothing of the
 * whole scheduler), else 0. */
static inline int sch_request_type_applies(unsigned int type) {
  switch (type) {
    case SCH_REQ_CREATE_JOB:
    case SCH_REQ_DEFINE_JOB:
    case SCH_REQ_DELETE_JOB:
    case SCH_REQ_CREATE_SCHEDULE:
    case SCH_REQ_MODIFY_SCHEDULE:
    case SCH_REQ_DELETE_SCHEDULE:
    case SCH_REQ_SCHEDULE_EMAIL:
      return 1;
    default:
      return 0;
  }
}

/* Sub-commands of the modify-schedule request (type 4). */
#define SCH_MODIFY_ONESHOT 1u
#define SCH_MODIFY_DAILY 3u
#define SCH_MODIFY_WEEKLY 4u
#define SCH_MODIFY_MONTHLY 5u
#define SCH_MODIFY_START_REPEAT 7u
#define SCH_MODIFY_JOB 999u          /* assign (positive form) or deassign (no form) */
#define SCH_MODIFY_JOB_NO_NAME 1000u

/* Operations of the schedule email (type 20) and credential (type 22) requests. */
#define SCH_EMAIL_ADD 20u
#define SCH_EMAIL_DELETE 21u
#define SCH_CREDENTIAL_FETCH 1u
#define SCH_CREDENTIAL_STORE 3u
#define SCH_CREDENTIAL_DELETE 4u

/* ---- SMTP server kinds: the word after the server name in the transport configuration, on the
 * wire (types 17 and 19) and in the stored type 7 record ---- */
#define SCH_SMTP_SERVER_IPV4 1u
#define SCH_SMTP_SERVER_IPV6 2u
#define SCH_SMTP_SERVER_HOST_NAME 16u

/* ---- Store names: each store's file name under its directory's prefix (sysmgr.h) ---- */
#define SCH_STORE_RUNNING "scheduler_runtime"                   /* running prefix */
#define SCH_STORE_RUNNING_DATABASE "scheduler_runtime_database" /* running prefix */
#define SCH_STORE_DEBUG_RUNNING "scheduler_debug_runtime"       /* running prefix */
#define SCH_STORE_STARTUP "scheduler_startup"                   /* startup prefix */
#define SCH_STORE_DEBUG_STARTUP "scheduler_debug_startup"       /* debug prefix */

#endif
