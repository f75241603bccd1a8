// Checked deleters of the model's records.
#include "config/deleters.h"

#include <cstring>
#include <vector>

#include "pss/store_walk.h"

namespace schedd {

namespace {

bool deleted(uint32_t status) { return status == 0 || status == PSS2_ERR_NO_KEY; }

// The key as the writers build it: the name NUL-padded to its field, converted for the store.
bool delete_native_key(pss2_handle store, uint32_t type, uint32_t sequence, const char *name) {
  sch_config_key key{type, sequence, {}};
  std::memcpy(key.name, name, strnlen(name, sizeof key.name));
  sch_hton_config_key(&key);
  pss2_datum key_datum{&key, SCH_KEY_SIZE};
  return deleted(pss2_delete(store, &key_datum, 1));
}

}  // namespace

bool delete_job_fragment_record(pss2_handle store, const sch_config_key &job_key, uint32_t sequence) {
  return delete_native_key(store, job_key.type, sequence, job_key.name);
}

bool delete_job_records(pss2_handle store, const sch_job_slot &job) {
  bool gone = delete_native_key(store, job.key->type, 0, job.key->name);
  // As many fragments as memory holds: the writer keeps the store's fragments to that number.
  uint32_t fragments = g_list_length(job.fragments);
  for (uint32_t sequence = 1; sequence <= fragments; sequence++) {
    gone = delete_job_fragment_record(store, *job.key, sequence) && gone;
  }
  return gone;
}

bool delete_schedule_record(pss2_handle store, const sch_schedule_entry &schedule) {
  return delete_native_key(store, schedule.key->type, 0, schedule.key->name);
}

bool delete_schedule_email_record(pss2_handle store, const sch_schedule_email_entry &entry) {
  return delete_native_key(store, SCH_REC_SCHEDULE_EMAIL, 0, entry.schedule);
}

bool delete_user_record(pss2_handle store, const sch_user_config_record &user) {
  return delete_native_key(store, SCH_REC_USER, user.word, user.user);
}

bool delete_run_result_record(pss2_handle store, const sch_runtime_job_status &result) {
  return delete_native_key(store, SCH_REC_RUNTIME_STATUS, result.job_id, result.schedule);
}

bool delete_every_record(pss2_handle store) {
  // The keys are taken first: a walk over records being deleted would depend on the cursor.
  std::vector<std::vector<uint8_t>> keys;
  sch::pss::walk_store(store, [&](pss2_datum key) {
    const auto *bytes = static_cast<const uint8_t *>(key.data);
    if (bytes) keys.emplace_back(bytes, bytes + key.length);
    return true;
  });
  bool all_deleted = true;
  for (std::vector<uint8_t> &key : keys) {
    pss2_datum key_datum{key.data(), static_cast<int32_t>(key.size())};
    all_deleted = deleted(pss2_delete(store, &key_datum, 1)) && all_deleted;
  }
  // A walk cut short by a failed read leaves records behind.
  pss2_handle walked = store;
  return all_deleted && pss2_move2location(&walked, 1, PSS2_LOCATION_FIRST, nullptr) == PSS2_ERR_END;
}

}  // namespace schedd
