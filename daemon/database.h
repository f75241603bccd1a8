// The daemon's helpers over the library's live database and its two running stores: durable
// batches, records the library has no deleter for, assigned-job bits and the listing order of
// schedules.
#ifndef SCHEDD_DATABASE_H
#define SCHEDD_DATABASE_H

#include <cstdint>

#include "schedcli/db.h"
#include "schedcli/pss.h"

namespace schedd {

inline sch_config_set *database() { return &sch_running_config; }

// Runs `writes` (record writers on `store`; false when one of them failed) as one batch that is
// durable when this returns 0. Otherwise nothing of it is kept and the store's status is returned.
template <typename Writes>
uint32_t durably(pss2_handle store, Writes &&writes) {
  if (uint32_t status = pss2_batch_begin(store)) return status;
  bool written = writes();
  // A failed store spoils the batch, so the commit drops it and hands back why.
  uint32_t status = pss2_batch_commit(store);
  return status == 0 && !written ? PSS2_ERR_IO : status;
}

// Deletes one fragment record of a job. A record that is not there counts as deleted.
bool delete_job_fragment_record(pss2_handle store, const sch_config_key &job_key, uint32_t sequence);
// Deletes a run result under the key it was stored with (type 255). The library's deleter builds
// a type-4 key, which never names a stored result. A missing record counts as deleted.
bool delete_run_result_record(pss2_handle store, const sch_runtime_job_status &result);

bool job_assigned(const sch_schedule_record &record, int job_id);
// Sets or clears the job's bit and recounts the assigned jobs.
void set_job_assigned(sch_schedule_record *record, int job_id, bool assigned);
void clear_assigned_jobs(sch_schedule_record *record);

// Schedules are listed in creation order by a serial number kept in a daemon word of their record,
// so that a listing in progress neither repeats nor skips a schedule when others are deleted.
uint32_t listing_serial(const sch_schedule_entry &entry);
// Gives a new schedule the next serial; its record is then to be saved.
void give_listing_serial(sch_schedule_entry *entry);
// Puts the schedules restored at start-up back in creation order and numbers them.
void number_restored_schedules();

// The list element that holds the entry, or NULL.
GList *schedule_element(sch_schedule_entry *entry);

// Releases the whole live database: jobs, schedules, email entries and credentials.
void free_database();

// Deletes every record of the store; for a batch (see durably). False when one could not be
// deleted or the store could not be walked to the end.
bool delete_every_record(pss2_handle store);

// The email transport with nothing configured: no addresses or server, server kind IPv4, port 25,
// VRF "management".
sch_email_transport_conf default_transport();

}  // namespace schedd

#endif
