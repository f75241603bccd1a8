// Writers and deleters of schedules, schedule email entries and jobs.
#include <algorithm>

#include "diag/trace.h"
#include "pss/store_io.h"

using sch::kTraceRecord;
using sch::trace;
namespace codec = sch::codec;

namespace {

// A failed store: the writer's own trace, then the code decoded.
int report_failure(uint32_t status) {
  sch_syserr_log(kTraceRecord, status);
  return -1;
}

}  // namespace

extern "C" {

int sch_save_schedule_entry_to_pss(pss2_handle store, sch_schedule_entry *schedule) {
  uint32_t status = sch::pss::store_record(store, *schedule->key, codec::kScheduleRecord, schedule->value);
  if (status == 0) return 0;
  trace(kTraceRecord, "PSS error 0x%x while saving the schedule entry %.32s", status, schedule->key->name);
  return report_failure(status);
}

int sch_delete_schedule_entry_from_pss(pss2_handle store, sch_schedule_entry *schedule) {
  sch::pss::delete_key(store, *schedule->key);
  return 0;
}

int sch_save_schedule_email_entry_to_pss(pss2_handle store, sch_schedule_email_entry *entry) {
  if (!entry) return 0;
  sch_config_key key = sch::pss::make_key(SCH_REC_SCHEDULE_EMAIL, 0, entry->schedule);
  uint32_t status = sch::pss::store_record(store, key, codec::kScheduleEmail, entry);
  if (status == 0) return 0;
  trace(kTraceRecord, "PSS error 0x%x while saving the schedule email entry %.32s", status, entry->schedule);
  return report_failure(status);
}

int sch_delete_schedule_email_entry_from_pss(pss2_handle store, sch_schedule_email_entry *entry) {
  if (entry) sch::pss::delete_key(store, sch::pss::make_key(SCH_REC_SCHEDULE_EMAIL, 0, entry->schedule));
  return 0;
}

int sch_save_job_entry_to_pss(pss2_handle store, sch_job_slot *job) {
  sch_config_key *key = job->key;
  key->sequence = 0;
  uint32_t status = sch::pss::store_record(store, *key, codec::kJobHeader, job->header);
  if (status != 0) {
    trace(kTraceRecord, "PSS error 0x%x while saving the job hdr %.32s", status, key->name);
    return report_failure(status);
  }
  if (!job->fragments) return 0;

  uint32_t total = job->header->length;
  if (total <= SCH_FRAGMENT_SIZE) {
    key->sequence++;
    status = sch::pss::store_bytes(store, *key, job->fragments->data, total);
    if (status != 0) {
      trace(kTraceRecord, "PSS error 0x%x while saving the job fragment %.32s", status, key->name);
      return report_failure(status);
    }
    return 0;
  }
  // Every fragment but the last is full; elements beyond what the length accounts for are
  // written empty.
  uint32_t remaining = total;
  for (GList *element = job->fragments; element; element = element->next) {
    key->sequence++;
    uint32_t length = std::min<uint32_t>(remaining, SCH_FRAGMENT_SIZE);
    status = sch::pss::store_bytes(store, *key, element->data, length);
    if (status != 0) {
      trace(kTraceRecord, "PSS error 0x%x saving the job %.32s fragment %d", status, key->name,
            static_cast<int>(key->sequence));
      return report_failure(status);
    }
    remaining -= length;
  }
  return 0;
}

int sch_delete_job_entry_from_pss(pss2_handle store, sch_job_slot *job) {
  sch_config_key key = *job->key;
  key.sequence = 0;
  sch::pss::delete_key(store, key);
  trace(kTraceRecord, "pss delete job (%.32s) key entry", key.name);
  // As many fragments as memory holds, whatever the store holds.
  uint32_t fragments = g_list_length(job->fragments);
  for (uint32_t sequence = 1; sequence <= fragments; sequence++) {
    key.sequence = sequence;
    sch::pss::delete_key(store, key);
    trace(kTraceRecord, "pss delete job (%.32s) fragment (%d)", key.name, static_cast<int>(sequence));
  }
  return 0;
}

}  // extern "C"
