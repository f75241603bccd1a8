// The job table: 256 slots indexed by job id, filled from stored headers and fragments.
#include <cstring>

#include "db/names.h"
#include "diag/trace.h"
#include "schedcli/db.h"
#include "schedcli/platform/mtrack.h"

using sch::kTraceRecord;
using sch::trace;

extern "C" {

int sch_find_job(sch_config_set *db, const char *name, sch_job_slot **out) {
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    sch_job_slot *slot = &db->jobs[id];
    if (slot->key && sch::name_equals(slot->key->name, name)) {
      *out = slot;
      return id;
    }
  }
  *out = nullptr;
  return -1;
}

sch_job_slot *sch_next_job(sch_config_set *db, int *index) {
  for (int id = *index < 0 ? 0 : *index; id < SCH_MAX_JOBS; id++) {
    if (db->jobs[id].key) {
      *index = id;
      return &db->jobs[id];
    }
  }
  *index = -1;
  return nullptr;
}

int sch_first_empty_job_list_entry_index(sch_config_set *db) {
  int found = -1;
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    if (!db->jobs[id].key) {
      found = id;
      break;
    }
  }
  trace(kTraceRecord, "available job slot %d", found);
  return found;
}

int sch_add_job_hdr(sch_config_set *db, sch_config_key *key, sch_job_header *header, sch_job_slot **out) {
  uint32_t id = header->job_id;
  if (id >= SCH_MAX_JOBS) {
    trace(kTraceRecord, "invalid job id %d", static_cast<int>(id));
    mtrack_free(key);
    mtrack_free(header);
    return -1;
  }
  sch_job_slot *slot = &db->jobs[id];
  if (!slot->key) {
    slot->key = key;
    trace(kTraceRecord, "job %.32s key added", key->name);
  } else {
    trace(kTraceRecord, "job %.32s key already present, adding!", slot->key->name);
    mtrack_free(key);
  }
  // The table owns its headers, so one already there is released when another replaces it: a
  // store from elsewhere or a damaged one can hold two headers with the same id (a header whose
  // value is cut short reads as id 0), and the one replaced would otherwise be lost for good.
  if (slot->header != header) mtrack_free(slot->header);
  slot->header = header;
  *out = slot;
  return 0;
}

int sch_add_job_data(sch_config_set *db, sch_config_key *key, void *fragment, sch_job_slot **out) {
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    sch_job_slot *slot = &db->jobs[id];
    if (!slot->key || !sch::names_equal(slot->key->name, key->name)) continue;
    trace(kTraceRecord, "found job id %d", id);
    mtrack_free(key);  // the slot keeps its own key
    slot->fragments = g_list_append(slot->fragments, fragment);
    trace(kTraceRecord, "job %.32s (%d) adding fragment %d", slot->key->name, id,
          static_cast<int>(g_list_length(slot->fragments)));
    *out = slot;
    return 0;
  }
  mtrack_free(key);
  mtrack_free(fragment);
  return -1;
}

void free_fragment(gpointer fragment, gpointer /*unused*/) { mtrack_free(fragment); }

static void free_run_result(gpointer result, gpointer /*unused*/) { mtrack_free(result); }

void sch_free_job_entry(sch_job_slot *slot) {
  mtrack_free(slot->key);
  mtrack_free(slot->header);
  g_list_foreach(slot->fragments, free_fragment, nullptr);
  g_list_free(slot->fragments);
  g_list_foreach(slot->run_results, free_run_result, nullptr);
  g_list_free(slot->run_results);
  std::memset(slot, 0, sizeof *slot);
}

void sch_free_config(sch_config_set *db) {
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    if (db->jobs[id].key) sch_free_job_entry(&db->jobs[id]);
  }
  while (*db->schedules) sch_free_schedule_entry(db, g_list_first(*db->schedules));
}

}  // extern "C"
