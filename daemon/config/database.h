// The daemon's helpers over the library's live database and its two running stores: durable
// batches, records the library has no deleter for, assigned-job bits and the listing order of
// schedules.
#ifndef SCHEDD_CONFIG_DATABASE_H
#define SCHEDD_CONFIG_DATABASE_H

#include <cstdint>
#include <string_view>

#include "schedcli/db.h"
#include "schedcli/pss.h"

namespace schedd {

inline sch_config_set *database() { return &sch_running_config; }

// Whether the store's batch is held open by a whole-configuration apply (Model::begin_apply):
// its changes then gather there and are made durable together when the apply ends.
bool batch_held(pss2_handle store);
void hold_batch(pss2_handle store, bool held);

// Runs `writes` (record writers on `store`; false when one of them failed) as one batch that is
// durable when this returns 0. Otherwise nothing of it is kept and the store's status is returned.
// Inside an apply the writes go into the held batch: durable, or dropped, with the whole apply.
template <typename Writes>
uint32_t durably(pss2_handle store, Writes &&writes) {
  if (batch_held(store)) return writes() ? 0 : PSS2_ERR_IO;
  if (uint32_t status = pss2_batch_begin(store)) return status;
  if (!writes()) {
    // A writer that failed may not have spoiled the batch (a record it refused before the store
    // saw it): the batch is dropped here, so nothing of it is kept either way.
    pss2_batch_abort(store);
    return PSS2_ERR_IO;
  }
  return pss2_batch_commit(store);
}

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

// Orders the live schedule list by name, or back in creation order.
void sort_schedules_by_name();
void sort_schedules_by_listing_serial();

// The schedule of that name, or NULL.
sch_schedule_entry *find_schedule(std::string_view name);
// Writes the schedule with `record` in place of its own; the entry takes the record only once it
// is durable. 0 or the store's status.
uint32_t save_schedule(sch_schedule_entry *schedule, const sch_schedule_record &record);

// The list element that holds the entry, or NULL.
GList *schedule_element(sch_schedule_entry *entry);

// Releases the whole live database: jobs, schedules, email entries and credentials.
void free_database();
// Releases the database and puts every global of the live configuration back to what a daemon
// that has restored nothing holds, so that a daemon can start again in the same process.
void reset_live_configuration();

// The email transport with nothing configured: no addresses or server, server kind IPv4, port 25,
// VRF "management".
sch_email_transport_conf default_transport();

}  // namespace schedd

#endif
