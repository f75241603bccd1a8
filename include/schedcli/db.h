/* The scheduler's in-memory configuration database: the job table, the schedule list, schedule
 * email entries, run results and the user credential queues, with the restore dispatcher.
 *
 * Ownership: every buffer hung from the database (keys, headers, fragments, schedule records and
 * entries, email entries, run results, user elements) is a tracked block from sch_malloc_check,
 * owned by the table, list or queue that holds it and released with mtrack_free.
 * Results: 0 success, -1 failure, unless a function says otherwise. Lookups hand their result
 * through an out pointer. Nothing here locks: one thread owns a database. */
#ifndef SCHEDCLI_DB_H
#define SCHEDCLI_DB_H

#include <glib.h>
#include <stdint.h>

#include "db/records.h"
#include "schedcli/export.h"
#include "schedcli/keys.h"
#include "schedcli/platform/pss.h"
#include "schedcli/platform/queue.h"

SCHED_BEGIN_DECLS

/* One slot of the job table; free when key is NULL. */
typedef struct sch_job_slot {
  uint32_t reserved;        /* the daemon's; cleared when the slot is freed */
  sch_config_key *key;      /* type 1; the job name is key->name */
  sch_job_header *header;
  GList *fragments;         /* command text in pieces of at most 1024 bytes */
  GList *run_results;       /* sch_runtime_job_status, in arrival order */
} sch_job_slot;

/* A job table and the schedule list that go together. */
typedef struct sch_config_set {
  sch_job_slot *jobs;  /* SCH_MAX_JOBS slots */
  GList **schedules;   /* head of a list of sch_schedule_entry */
} sch_config_set;

/* Element data of the schedule list. */
typedef struct sch_schedule_entry {
  sch_config_key *key;          /* type 0; the schedule name is key->name */
  sch_schedule_record *value;
  uint32_t daemon_words[6];     /* the daemon's run-time state; zero when created */
} sch_schedule_entry;

/* Element of a user credential queue: the queue's link word, then the record. */
typedef struct sch_user_element {
  void *link;
  sch_user_config_record record;
} sch_user_element;

/* The live database and the private copy used for startup configuration text. */
SCHED_EXPORT extern sch_job_slot sch_job_list[SCH_MAX_JOBS];
SCHED_EXPORT extern sch_job_slot startup_job_list[SCH_MAX_JOBS];
SCHED_EXPORT extern GList *sch_schedule_list;
SCHED_EXPORT extern GList *startup_schedule_list;
SCHED_EXPORT extern sch_config_set sch_running_config;
SCHED_EXPORT extern sch_config_set sch_startup_config;
SCHED_EXPORT extern GList *sch_schedule_email_list;   /* of sch_schedule_email_entry */
SCHED_EXPORT extern queue_header sch_uname_q;
SCHED_EXPORT extern queue_header sch_uname_acfg_q;

/* Single-instance records and the keys the daemon keeps ready for them. */
SCHED_EXPORT extern uint32_t scheduler_enabled;
SCHED_EXPORT extern sch_log_file_record sch_log_file;
SCHED_EXPORT extern sch_email_transport_conf email_transport_conf;
SCHED_EXPORT extern sch_config_key sch_log_file_key;
SCHED_EXPORT extern sch_config_key sch_condition_key;
SCHED_EXPORT extern sch_config_key sch_global_emailconf_key;

/* ---- Jobs ---- */

/* Id of the first occupied slot whose name is exactly `name`, with *out set to it; -1 and NULL
 * when there is none. */
SCHED_EXPORT int sch_find_job(sch_config_set *db, const char *name, sch_job_slot **out);
/* The occupied slot at *index or the first one after it, with *index set to its id; NULL with
 * *index = -1 when none remains. Advance by adding one to the index between calls. */
SCHED_EXPORT sch_job_slot *sch_next_job(sch_config_set *db, int *index);
/* The lowest free id, or -1 when all 256 are in use. */
SCHED_EXPORT int sch_first_empty_job_list_entry_index(sch_config_set *db);
/* Installs a header read back from a store in the slot of its job id; takes both buffers (they
 * are released when the id is above 255, with result -1). A header the slot already holds is
 * released and replaced; the slot keeps the key it has. */
SCHED_EXPORT int sch_add_job_hdr(sch_config_set *db, sch_config_key *key, sch_job_header *header, sch_job_slot **out);
/* Appends a fragment to the job named by the key; takes both buffers (the key is always
 * released; both are when no job has that name, with result -1). */
SCHED_EXPORT int sch_add_job_data(sch_config_set *db, sch_config_key *key, void *fragment, sch_job_slot **out);
/* Restore dispatcher for schedule and job records as a store returns them. Returns -1 when a
 * buffer cannot be allocated, 0 otherwise (records of other types are ignored). A fragment's
 * buffer is at least SCH_FRAGMENT_SIZE bytes, zero past the stored value. */
SCHED_EXPORT int sch_add_config_entry(sch_config_set *db, const pss2_datum *key, const pss2_datum *value);

/* Reassembly of a job's `length` bytes of text into `buffer` (not terminated). Return 0. */
SCHED_EXPORT int sch_concat_fragments(GList *fragments, char *buffer, int length);
/* The same, each piece with its newlines but the piece's last byte turned into ';'. */
SCHED_EXPORT int sch_show_run_concat_fragments(GList *fragments, char *buffer, int length);
/* Turns every newline among the first length - 1 bytes into ';'; the last byte stays as it is. */
SCHED_EXPORT void sch_replace_newline_with_semicolon(char *buffer, int length);

/* Releases one fragment; a GFunc for list walks. */
SCHED_EXPORT void free_fragment(gpointer fragment, gpointer unused);
/* Releases everything hung from the slot and zeroes it. */
SCHED_EXPORT void sch_free_job_entry(sch_job_slot *slot);
/* Frees every occupied slot and every schedule of the set. */
SCHED_EXPORT void sch_free_config(sch_config_set *db);

/* ---- Schedules and email entries ---- */

/* Appends a schedule entry for an allocated key and record (which the list then owns). -1 when
 * the entry cannot be allocated; the key and record stay the caller's then. */
SCHED_EXPORT int sch_add_schedule_entry(sch_config_set *db, sch_config_key *key, sch_schedule_record *value,
                                        sch_schedule_entry **out);
/* *out = the first schedule named exactly `name`, or NULL. Returns 0. */
SCHED_EXPORT int sch_find_schedule(sch_config_set *db, const char *name, sch_schedule_entry **out);
/* Releases the element's key, record and entry, and unlinks and frees the element. */
SCHED_EXPORT void sch_free_schedule_entry(sch_config_set *db, GList *element);

/* *out = the first email entry of the schedule named exactly `name`, or NULL. Returns 0. */
SCHED_EXPORT int sch_find_schedule_email_entry(GList **list, const char *name, sch_schedule_email_entry **out);
/* Adds one address to a schedule (creating its entry on first use). -1 when the schedule has ten
 * addresses already. */
SCHED_EXPORT int sch_add_schedule_email_entry(GList **list, const char *schedule, const char *address);
/* Appends a new entry holding one address; -1 when it cannot be allocated. */
SCHED_EXPORT int sch_add_new_schedule_email_entry(GList **list, const char *schedule, const char *address);
/* Appends a copy of a 716-byte entry read back from a store; -1 when it cannot be allocated. */
SCHED_EXPORT int sch_add_schedule_email_entry_from_pss(GList **list, const sch_schedule_email_entry *record);
/* Removes from the first entry whose name begins with `schedule` every address that begins with
 * `address`; an entry with one address is unlinked whole. Unlinked entries become the caller's
 * (find them first to release them). Returns 0. */
SCHED_EXPORT int sch_remove_schedule_email_addr(GList **list, const char *schedule, const char *address);
/* Unlinks the first entry whose name begins with `schedule` (it becomes the caller's). Returns 0. */
SCHED_EXPORT int sch_remove_schedule_email_entry(GList **list, const char *schedule);
/* Releases every entry of the list and empties it. */
SCHED_EXPORT void sch_free_schedule_email_list(GList **list);

/* ---- Run results ---- */

/* Appends a run result to its job's list (which then owns it). -1 for an id above 255 or a job
 * that does not exist; the entry is released then. */
SCHED_EXPORT int sch_add_runtime_job_status_entry(sch_config_set *db, sch_runtime_job_status *entry);

/* ---- User credentials ---- */

SCHED_EXPORT void sch_uname_q_init(void);
SCHED_EXPORT void sch_add_user_info(queue_header *queue, sch_user_element *element);
/* The first element whose user name is exactly `name`, or NULL. */
SCHED_EXPORT sch_user_element *sch_find_user_info(queue_header *queue, const char *name);
/* Unlinks that very element and releases it. */
SCHED_EXPORT void sch_delete_user_info(queue_header *queue, sch_user_element *element);
/* 0 when a and b are the same element, 1 otherwise. */
SCHED_EXPORT int sch_cmp_user_info(const void *a, const void *b);
/* Releases every element and empties the queue. */
SCHED_EXPORT void sch_free_user_config(queue_header *queue);
/* Hash of a user name into 33 buckets. */
SCHED_EXPORT unsigned int sch_uname_to_hash(const char *name);
/* Bounded copy that always terminates: at most length - 1 characters, NUL-padded. */
SCHED_EXPORT void sch_strcpy(char *destination, const char *source, int length);

SCHED_END_DECLS

#endif
