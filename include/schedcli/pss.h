/* Persistence of the scheduler's configuration and run results in record stores: the stores and
 * their start-up, the writer and deleter of every record, restore and whole-configuration save,
 * snapshot and shrink.
 *
 * Records are written as the big-endian images of db/records.h. Writers return 0 or -1 unless
 * stated otherwise; a store failure is traced with its code and decoded by sch_syserr_log.
 * Everything here runs on the daemon's one thread (or the configuration generator's request). */
#ifndef SCHEDCLI_PSS_H
#define SCHEDCLI_PSS_H

#include <stdint.h>

#include "schedcli/db.h"
#include "schedcli/export.h"
#include "schedcli/platform/pss.h"

SCHED_BEGIN_DECLS

#define SCH_PSS_URI_SIZE 64
#define SCH_PSS_VALUE_SIZE 1024
#define SCH_PSS_START_FAILED 66 /* sch_pss_init: a running store cannot be had */

/* Complete URIs of the five stores, zero-filled at load; not terminated when 64 bytes long. */
SCHED_EXPORT extern char sch_pss_running_uri[SCH_PSS_URI_SIZE];
SCHED_EXPORT extern char sch_pss_running_db_uri[SCH_PSS_URI_SIZE];
SCHED_EXPORT extern char sch_debug_pss_running_uri[SCH_PSS_URI_SIZE];
SCHED_EXPORT extern char sch_pss_startup_uri[SCH_PSS_URI_SIZE];
SCHED_EXPORT extern char sch_debug_pss_startup_uri[SCH_PSS_URI_SIZE];

/* Open store handles; 0 = closed. debug_pss_running is the daemon's to set. */
SCHED_EXPORT extern pss2_handle pss_running;
SCHED_EXPORT extern pss2_handle pss_running_db;
SCHED_EXPORT extern pss2_handle debug_pss_running;

/* ---- Stores and start-up ---- */

/* Fills the URI globals from the system manager's prefixes; a missing prefix leaves its URIs as
 * they were. Returns 0. */
SCHED_EXPORT int sch_pss_uri_init(void);
/* Creates the store (or opens it for update when it exists) with the given key and value sizes.
 * Returns the handle, or 0 after a SCH_SYSLOG_PSS_ERR message. `ignored` is not used. */
SCHED_EXPORT pss2_handle sch_pss_create(const char *uri, int ignored, int value_size, int key_size);
/* Active start: opens the running and runtime-database stores and restores the configuration
 * (from startup after a stateless restart) and the run results. 0, or 66 when a store cannot be
 * had. */
SCHED_EXPORT int sch_pss_init(void);
/* Standby start: opens the two running stores without restoring. 0 or -1. */
SCHED_EXPORT int sch_standby_pss_init(void);
/* After a failed global sync on a standby: destroys and recreates both running stores. 0 or -1
 * (a failure to recreate the runtime database is deliberately not reported). */
SCHED_EXPORT int sch_standby_pss_init_gsync_fail(void);
/* Closes the two running handles (they keep their values) and releases the debug facility;
 * returns sdwrap_sys_clean's result. */
SCHED_EXPORT int sch_pss_close_handles(void *context);

/* ---- Record writers ---- */

SCHED_EXPORT int sch_save_schedule_entry_to_pss(pss2_handle store, sch_schedule_entry *schedule);
SCHED_EXPORT int sch_delete_schedule_entry_from_pss(pss2_handle store, sch_schedule_entry *schedule);
/* A NULL entry stores nothing and returns 0. */
SCHED_EXPORT int sch_save_schedule_email_entry_to_pss(pss2_handle store, sch_schedule_email_entry *entry);
SCHED_EXPORT int sch_delete_schedule_email_entry_from_pss(pss2_handle store, sch_schedule_email_entry *entry);
/* Header (sequence 0), then one record per fragment (1, 2, ...). The slot's key is left with the
 * sequence of the last record written. A failure leaves what was written in the store. */
SCHED_EXPORT int sch_save_job_entry_to_pss(pss2_handle store, sch_job_slot *job);
/* Deletes the header and as many fragments as the slot holds. Returns 0. */
SCHED_EXPORT int sch_delete_job_entry_from_pss(pss2_handle store, sch_job_slot *job);
SCHED_EXPORT int sch_save_log_file_entry_to_pss(pss2_handle store, sch_config_key *key, sch_log_file_record *log_file);
SCHED_EXPORT int sch_save_condition_entry_to_pss(pss2_handle store, sch_config_key *key, uint32_t flag);
SCHED_EXPORT int sch_save_email_from_conf_to_pss(pss2_handle store, sch_email_transport_conf *conf);
SCHED_EXPORT int sch_save_email_replyto_conf_to_pss(pss2_handle store, sch_email_transport_conf *conf);
SCHED_EXPORT int sch_save_email_smtpserver_conf_to_pss(pss2_handle store, sch_email_transport_conf *conf);
/* Returns the store's status word itself (0 on success). */
SCHED_EXPORT uint32_t sch_save_user_config_entry_to_pss(pss2_handle store, sch_user_config_record *user);
SCHED_EXPORT int sch_delete_user_config_entry_from_pss(pss2_handle store, sch_user_config_record *user);
SCHED_EXPORT int sch_save_runtime_job_status_entry_to_pss(pss2_handle store, sch_runtime_job_status *result);
/* Deletes under a type-4 key; returns the store's status word. */
SCHED_EXPORT uint32_t sch_delete_job_status_entry_from_pss(pss2_handle store, sch_runtime_job_status *result);
/* Saves every run result of the slot. Returns 0. */
SCHED_EXPORT int sch_save_runtime_job_status_to_pss(pss2_handle store, sch_job_slot *job);
/* Saves the run results of every job that has command text. Returns 0. */
SCHED_EXPORT int sch_save_db_to_pss(sch_config_set *db, pss2_handle store);

/* ---- Restore and whole-configuration save (all return 0) ---- */

/* Adds every record of a configuration store to the set and the global records; user
 * credentials go to sch_uname_acfg_q when private_copy is non-zero, else to sch_uname_q. */
SCHED_EXPORT int sch_restore_config_from_pss(sch_config_set *set, pss2_handle store, int private_copy);
/* Adds every run result of a runtime-database store to its job. */
SCHED_EXPORT int sch_restore_db_from_pss(sch_config_set *set, pss2_handle store);
/* Writes the set's schedules and jobs, the log-file record and the users of sch_uname_q, made
 * durable together before it returns. */
SCHED_EXPORT int sch_save_config_to_pss(sch_config_set *set, pss2_handle store);
/* Deletes and releases every run result of the job. */
SCHED_EXPORT int sch_delete_all_status_for_job_from_pss(pss2_handle store, sch_job_slot *job);

/* ---- Snapshot and shrink ---- */

/* Copies the store at source_uri to its startup counterpart; destination_uri names it in the
 * messages only. 0, or -1. */
SCHED_EXPORT int sch_pss_snapshot(const char *source_uri, const char *destination_uri);
/* Shrinks the store when its free space exceeds max_free. Returns the handle to use from then
 * on: the same, a new one, or 0 when the shrink failed. *out gets the last status. */
SCHED_EXPORT pss2_handle sch_verify_pss_shrink(pss2_handle store, const char *uri, unsigned int max_free, uint32_t *out);
/* Runs sch_verify_pss_shrink over the three running stores, replacing their handles; stops at the
 * first non-zero status and returns it. */
SCHED_EXPORT uint32_t sch_pss_shrink(unsigned int max_free);

SCHED_END_DECLS

#endif
