// Deleters of records that report what the store said. The library's deleters answer 0 whatever
// happened (callers of the library rely on that), so a durable batch could not tell a failed
// delete from a done one; the model deletes through these instead.
#ifndef SCHEDD_CONFIG_DELETERS_H
#define SCHEDD_CONFIG_DELETERS_H

#include "schedcli/db.h"
#include "schedcli/pss.h"

namespace schedd {

// Each returns true when the record is gone (a record that was not there counts as gone).
bool delete_job_records(pss2_handle store, const sch_job_slot &job);
// One fragment record of a job (sequence 1 and up).
bool delete_job_fragment_record(pss2_handle store, const sch_config_key &job_key, uint32_t sequence);
bool delete_schedule_record(pss2_handle store, const sch_schedule_entry &schedule);
bool delete_schedule_email_record(pss2_handle store, const sch_schedule_email_entry &entry);
bool delete_user_record(pss2_handle store, const sch_user_config_record &user);
// A run result under the key it was stored with (type 255). The library's deleter builds a type-4
// key, which never names a stored result.
bool delete_run_result_record(pss2_handle store, const sch_runtime_job_status &result);

// Deletes every record of the store; for a batch. False when one could not be deleted or the
// store could not be walked to the end.
bool delete_every_record(pss2_handle store);

}  // namespace schedd

#endif
