// The daemon's helpers over the library's live database and its running stores.
#include "database.h"

#include <bit>
#include <cstring>
#include <vector>

#include "pss/store_walk.h"
#include "schedcli/platform/mtrack.h"

namespace schedd {

namespace {

// The schedule record's daemon word that holds its listing serial: stored, so that schedules come
// back in creation order rather than the store's name order.
constexpr int kListingSerialWord = 0;
uint32_t next_serial = 0;

gint by_listing_serial(gconstpointer a, gconstpointer b) {
  uint32_t first = listing_serial(*static_cast<const sch_schedule_entry *>(a));
  uint32_t second = listing_serial(*static_cast<const sch_schedule_entry *>(b));
  return first < second ? -1 : first > second ? 1 : 0;
}

bool deleted(uint32_t status) { return status == 0 || status == PSS2_ERR_NO_KEY; }

uint32_t delete_key(pss2_handle store, sch_config_key key) {
  pss2_datum key_datum{&key, SCH_KEY_SIZE};
  return pss2_delete(store, &key_datum, 1);
}

}  // namespace

bool delete_job_fragment_record(pss2_handle store, const sch_config_key &job_key, uint32_t sequence) {
  sch_config_key key = job_key;
  key.sequence = sequence;
  sch_hton_config_key(&key);
  return deleted(delete_key(store, key));
}

bool delete_run_result_record(pss2_handle store, const sch_runtime_job_status &result) {
  sch_runtime_key key{SCH_REC_RUNTIME_STATUS, result.job_id, {}};
  std::memcpy(key.name, result.schedule, sizeof key.name);
  sch_hton_runtime_key(&key);
  return deleted(delete_key(store, key));
}

bool job_assigned(const sch_schedule_record &record, int job_id) {
  return (record.jobs[job_id / 32] & (1u << (job_id % 32))) != 0;
}

void set_job_assigned(sch_schedule_record *record, int job_id, bool assigned) {
  uint32_t bit = 1u << (job_id % 32);
  if (assigned) {
    record->jobs[job_id / 32] |= bit;
  } else {
    record->jobs[job_id / 32] &= ~bit;
  }
  uint32_t count = 0;
  for (uint32_t word : record->jobs) count += static_cast<uint32_t>(std::popcount(word));
  record->job_count = count;
}

void clear_assigned_jobs(sch_schedule_record *record) {
  for (uint32_t &word : record->jobs) word = 0;
  record->job_count = 0;
}

uint32_t listing_serial(const sch_schedule_entry &entry) { return entry.value->reserved0[kListingSerialWord]; }

void give_listing_serial(sch_schedule_entry *entry) { entry->value->reserved0[kListingSerialWord] = next_serial++; }

void number_restored_schedules() {
  // The sort is stable: schedules written without a serial keep the store's order among them.
  // Numbering afresh from 0 keeps that order and leaves no two with one serial.
  *database()->schedules = g_list_sort(*database()->schedules, by_listing_serial);
  next_serial = 0;
  for (GList *element = g_list_first(*database()->schedules); element; element = element->next) {
    give_listing_serial(static_cast<sch_schedule_entry *>(element->data));
  }
}

GList *schedule_element(sch_schedule_entry *entry) { return g_list_find(*database()->schedules, entry); }

void free_database() {
  sch_free_config(database());
  sch_free_schedule_email_list(&sch_schedule_email_list);
  sch_free_user_config(&sch_uname_q);
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

sch_email_transport_conf default_transport() {
  sch_email_transport_conf conf{};
  conf.smtp_reserved = 1;  // an IPv4 address
  conf.smtp_port = SCH_SMTP_PORT_DEFAULT;
  std::memcpy(conf.vrf, "management", sizeof "management");
  return conf;
}

}  // namespace schedd
