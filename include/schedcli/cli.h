/* The scheduler's command handlers: what the shell calls when the operator types a scheduler
 * command. A handler checks its input, sends one request to the daemon and prints the answer or
 * an error line; it never touches the configuration database.
 *
 * Output: show output to standard output, error lines to standard error (the command's error text
 * followed by ": " and syserr2str of the code). Results are as each handler states: 0 success,
 * 2 allocation failure, 255 rejected input, -1 refused time string, or a platform code. */
#ifndef SCHEDCLI_CLI_H
#define SCHEDCLI_CLI_H

#include <stdint.h>

#include "schedcli/export.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/tminfo.h"

SCHED_BEGIN_DECLS

/* Parameter kinds and value types of the parsed command. */
#define SCH_PARAM_USER_NAME 105u
#define SCH_PARAM_CLEAR_PASSWORD 106u
#define SCH_PARAM_ENCRYPTED_PASSWORD 107u
#define SCH_VALUE_STRING 1u
#define SCH_VALUE_INTEGER 0x40100001u
#define SCH_ADDRESS_IPV4 0x40000002u
#define SCH_ADDRESS_IPV6 0x40000004u
#define SCH_ADDRESS_HOST_NAME 8u

/* One parsed parameter. */
typedef struct sch_cli_param {
  uint32_t kind;          /* what the parameter is, where a command needs to tell */
  uint32_t value_type;    /* SCH_VALUE_STRING or SCH_VALUE_INTEGER */
  void *value;            /* the NUL-terminated string, or the int32_t */
  uint32_t address_kind;  /* for a host address: SCH_ADDRESS_* */
} sch_cli_param;

#define SCH_CLI_MAX_PARAMS 3
#define SCH_CLI_USER_SIZE 32

/* What the shell hands every handler; handlers only read it. */
typedef struct sch_cli_context {
  uint8_t param_count;       /* parameters the parser filled */
  uint8_t no_flag;           /* the command was typed in its no form */
  uint8_t debug;             /* copied into cli_debug: traces to standard error */
  uint8_t replay;            /* create/delete of jobs and schedules do nothing */
  uint8_t feature;           /* enabling the feature does nothing */
  uint8_t reserved[3];
  cmi_session *session;      /* the shell's session with the daemon */
  uint32_t command_code;     /* which command of a family (modify-schedule sub-command, ...) */
  char user[SCH_CLI_USER_SIZE];      /* the session's user, NUL-terminated */
  uint8_t identity[SCH_CLI_USER_SIZE];  /* handed to cmi_req_resp unchanged */
  sch_cli_param *params[SCH_CLI_MAX_PARAMS];  /* in the order of the command's syntax */
} sch_cli_context;

/* ---- Request frame ---- */

/* 1 when the name matches ^[0-9A-Za-z][0-9A-Za-z_-]*$, else 0. */
SCHED_EXPORT int sch_cli_check_name(const char *name);

/* The rule for a new job or schedule name wherever it is accepted (names become command words in
 * the configuration text): 1 when `name` is 1 to 31 bytes, each an ASCII letter, digit, '_' or
 * '-', the first a letter or digit, followed by a NUL within the first 32 bytes; else 0 (NULL
 * included). Reads at most 32 bytes, so a fixed 32-byte name field without a terminator is refused,
 * never read past. Independent of the locale. */
SCHED_EXPORT int sch_name_is_config_word(const char *name);

/* The rule for a mail server's host name wherever it is accepted (the shell reads it back from the
 * configuration text): 1 when `host` is at most 253 bytes of dot-separated labels of 1 to 63 ASCII
 * letters, digits and inner hyphens, the last label not all digits (a mistyped IPv4 address is no
 * name); else 0 (NULL included). Independent of the locale. */
SCHED_EXPORT int sch_is_host_name(const char *host);

/* ---- Job-execution credentials ---- */

/* The gate of every job and schedule change: 0 when `user` is local, or remote with a stored
 * password that is still accepted; otherwise a scheduler code (SCH_STATUS_NO_CREDENTIAL,
 * _CREDENTIAL_FETCH, _AUTH_FAILED). Prints nothing. */
SCHED_EXPORT uint32_t sch_validate_remote_user(sch_cli_context *context, const char *user);
/* 0 when the platform accepts `user` with the type-7 `encrypted` password, else
 * SCH_STATUS_NO_CREDENTIAL (missing or empty), SCH_STATUS_LOCAL_USER or SCH_STATUS_AUTH_FAILED. */
SCHED_EXPORT uint32_t sch_validate_authentication_passwd(cmi_session *session, const char *user, const char *encrypted);
/* Sends a credential request (type 22) with `operation` SCH_CREDENTIAL_FETCH, _STORE or _DELETE;
 * `user` and `password` are 128-byte fields sent whole. A fetch answered by the daemon copies the
 * stored encrypted password into `password` (128 bytes, not terminated when it fills them).
 * Returns 0, also when the daemon refused (the password is then left as it was), 2 when the
 * request could not be allocated, or CMI_ERR_LENGTH for a fetch answer shorter than 256 bytes. */
SCHED_EXPORT int sch_config_remote_user(sch_cli_context *context, char *user, char *password, int operation);
/* The aaa-authentication command: 8 done, 9 failed (after an error line where there is a code),
 * 1 when the clear password could not be encrypted. */
SCHED_EXPORT int sch_cli_aaa_auth_passwd(sch_cli_context *context);

/* ---- Job commands ---- */

SCHED_EXPORT uint32_t sch_cli_create_delete_job(sch_cli_context *context);
SCHED_EXPORT uint32_t sch_cli_define_job(cmi_session *session, const char *text, int length, const char *job,
                                         const char *user, const void *identity);
SCHED_EXPORT uint32_t sch_cli_semicolon_delimiter_define_job(sch_cli_context *context);
SCHED_EXPORT int sch_add_cmd_to_data_buf(char **buffer, int *used, int *capacity, int length, const char *source);

/* ---- Schedule commands ---- */

SCHED_EXPORT uint32_t sch_cli_create_delete_schedule(sch_cli_context *context);
SCHED_EXPORT uint32_t sch_cli_modify_schedule(sch_cli_context *context);
SCHED_EXPORT uint32_t sch_cli_modify_schedule_emailaddr(sch_cli_context *context);
SCHED_EXPORT void sch_cli_disp_error(uint32_t code, int kind);

/* ---- Show jobs and schedules ---- */

SCHED_EXPORT int sch_cli_show_jobs(sch_cli_context *context);
SCHED_EXPORT int sch_cli_show_schedules(sch_cli_context *context);
/* Print one entry. `reply` is the reply payload as received (the big-endian wire image), which
 * the caller has checked to hold the whole head and the command text or job entries that the
 * head declares: the show handlers do, and refuse a shorter reply. */
SCHED_EXPORT void display_job(const void *reply);
SCHED_EXPORT void display_schedule(const void *reply);
SCHED_EXPORT void print_schedule_type(const tminfo *t);
SCHED_EXPORT void print_weekly_schedule(const tminfo *t);
SCHED_EXPORT void print_monthly_schedule(const tminfo *t);
SCHED_EXPORT void print_status_heading(void);
/* `entry` is one decoded job entry of a schedule reply (native sch_schedule_reply_job). */
SCHED_EXPORT void print_status(const void *entry, int not_run);
/* `character` `count` times to standard output; nothing when count <= 0. */
SCHED_EXPORT void print_line(int count, int character);

/* ---- Show log file ---- */

/* Asks the daemon for its run log (parameter 1, when given, names the entries wanted) and prints
 * every entry as its messages arrive. 0, 2 when the request could not be allocated (nothing is
 * printed), or the platform's code of the send after an "Error" line on standard error. Receive
 * and parse failures end the listing with a line on standard output and still return 0. */
SCHED_EXPORT int sch_cli_show_logfile(sch_cli_context *context);
/* Receives and prints the entries of the stream that `token_source` names, up to the last one,
 * an empty log, or the first failure. */
SCHED_EXPORT void display_log_entries(cmi_session *session, const cmi_token_source *token_source);
/* Gathers the output of the entry whose first message is `first` (the payload as received, whose
 * header and first part the caller has checked), receiving its further messages, and prints it.
 * 0, or -1 after an allocation, receive or parse failure (the entry is then not printed). */
SCHED_EXPORT int collate_and_display_log(cmi_session *session, const void *first, const mts_stream_context *context);
/* Prints one entry: the header fields of `first` (a log message as received) and the total
 * number of bytes at `output` that its header declares. */
SCHED_EXPORT void display_log_entry(const void *first, const void *output);

SCHED_END_DECLS

#endif
