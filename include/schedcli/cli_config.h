/* The scheduler's feature, log-file and transport commands, and show configuration.
 *
 * The handlers take the shell's parsed-command context (schedcli/cli.h) and only read it. Each
 * configuration handler sends one request to the daemon's configuration service, releases request
 * and reply before it returns, and prints nothing on success. Error lines go to standard error,
 * show output to standard output. Every text is part of the product's output: blanks, colons and
 * spellings are as required.
 *
 * Results: 0 success; 1 a refused option or a failed show piece; 2 the request could not be
 * allocated (after "Could not allocate memory\n" where the handler says so); 255 a positive form
 * without its parameter (the shell always supplies one; nothing is sent); otherwise the code the
 * platform or the daemon answered with (syserr2str renders it). */
#ifndef SCHEDCLI_CLI_CONFIG_H
#define SCHEDCLI_CLI_CONFIG_H

#include <stdint.h>

#include "schedcli/cli.h"
#include "schedcli/export.h"
#include "schedcli/tminfo.h"

SCHED_BEGIN_DECLS

/* Transport options of sch_cli_config_email_transport, in the context's command code. */
#define SCH_TRANSPORT_FROM 109u
#define SCH_TRANSPORT_REPLY_TO 110u
#define SCH_TRANSPORT_SMTP_SERVER 111u

/* ---- Feature, log file and transport ---- */

/* feature scheduler (no form: disable). Does nothing and returns 0 when the context's feature
 * flag is set. A successful disable takes the scheduler's commands out of the shell
 * (vsh_deregister_parse_tree). On failure prints "Error: <text>" and returns 1, except for the
 * "already" answer of each direction (enabling an enabled, disabling a disabled feature), which
 * returns 0 after the same line. */
SCHED_EXPORT int sch_enable_scheduler(sch_cli_context *context);

/* scheduler logfile size <kilobytes> (parameter 1, an integer); the no form restores 16 KB.
 * Failures print "Error: : <text>" and return the code. */
SCHED_EXPORT uint32_t sch_cli_logfile_resize(sch_cli_context *context);
/* Clears the log file. Failures as for the size. */
SCHED_EXPORT uint32_t sch_cli_logfile_clear(sch_cli_context *context);
/* Renames the log file to parameter 1, whose value is a `file_uri *`; the no form restores the
 * default name. A target that exists already is refused on this side: "Error: File exists.\n",
 * result 0, nothing sent. A URI that maps to no local path is sent with an empty path for the
 * daemon to refuse. Failures as for the size. */
SCHED_EXPORT uint32_t sch_cli_logfile_rename(sch_cli_context *context);
/* scheduler transport email from | reply-to | smtp-server, by the command code (SCH_TRANSPORT_*).
 * smtp-server takes the server (parameter 1, with its address kind), then optionally the port
 * (an integer) and the VRF (a string). A server whose address kind is none of IPv4, IPv6 or host
 * name prints "Invalid host address" (no newline) and returns 1 without sending. Another command
 * code sends an empty request of type 0. Failures print "Error: : <text>" and return the code. */
SCHED_EXPORT uint32_t sch_cli_config_email_transport(sch_cli_context *context);

/* The tracked allocator's statistics to standard output. Returns 0. */
SCHED_EXPORT int sch_cli_show_memstats(sch_cli_context *context);
/* A configuration-generation callback with nothing to generate. Returns 0. */
SCHED_EXPORT int sch_cli_dummy_cfg_gen(void);

/* ---- Show configuration ---- */

/* The whole configuration as pasteable command blocks, piece by piece: log file, transport,
 * credentials, jobs, schedules. Each piece reports its own failure and the next one runs.
 * Returns 0. A parameter count of 1 in the context shows the first job and schedule only. */
SCHED_EXPORT int sch_cli_show_config(sch_cli_context *context);

/* The pieces. A failed request or a reply shorter than what it declares prints an error line
 * ("Error: <text>"; "Error: : <text>" for the credentials) and shows nothing of that reply.
 * get_log_file_config, sch_cli_get_email_transport_config: 0, or 1 on failure.
 * get_user_config: 0, 2 (allocation) or the code (CMI_ERR_LENGTH for a short reply).
 * get_job_config, get_schedule_config: 0 (also for an empty list), 1 on failure, 2 when the
 * request could not be allocated (no message). */
SCHED_EXPORT int get_log_file_config(sch_cli_context *context);
SCHED_EXPORT int sch_cli_get_email_transport_config(sch_cli_context *context);
SCHED_EXPORT uint32_t get_user_config(sch_cli_context *context);
SCHED_EXPORT int get_job_config(sch_cli_context *context);
SCHED_EXPORT int get_schedule_config(sch_cli_context *context);

/* Printers. `reply` is a display reply as received (the big-endian wire image) which the caller
 * has checked to hold the whole head and the command text or job entries the head declares. */

/* One job's block, its command text as stored, and "end" with an empty line. */
SCHED_EXPORT void print_config_job(const void *reply);
/* One schedule's block: name, time line, assigned jobs, email addresses, "end". */
SCHED_EXPORT void print_config_schedule(const void *reply);
/* The time line of `t` (native). With a NULL destination it is printed; otherwise at most four
 * characters of each printed piece are appended to the NUL-terminated `destination`, which must
 * have room for 16 more. Unknown types give nothing. */
SCHED_EXPORT void print_config_schedule_type(const tminfo *t, char *destination);
/* "    job name <job_name>"; `job_name` is NUL-terminated. */
SCHED_EXPORT void print_config_assigned_job(const char *job_name);
/* The addresses of a schedule reply's email block: its wire image from the any-address word
 * (reply offset 136) through the ten slots, 684 bytes. Nothing when no address is set. */
SCHED_EXPORT void print_config_schedule_email_addr(const void *email_block);

SCHED_END_DECLS

#endif
