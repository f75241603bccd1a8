// The daemon's helpers over the library's live database and its running stores.
#include "config/database.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include "config/names.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/protocol.h"

namespace schedd {

namespace {

// The schedule record's daemon word that holds its listing serial: stored, so that schedules come
// back in creation order rather than the store's name order.
constexpr int kListingSerialWord = 0;
uint32_t next_serial = 0;

// The stores whose batches an apply holds open: at most the two running stores.
std::vector<pss2_handle> held_batches;

gint by_listing_serial(gconstpointer a, gconstpointer b) {
  uint32_t first = listing_serial(*static_cast<const sch_schedule_entry *>(a));
  uint32_t second = listing_serial(*static_cast<const sch_schedule_entry *>(b));
  return first < second ? -1 : first > second ? 1 : 0;
}

gint by_name(gconstpointer a, gconstpointer b) {
  return std::strncmp(static_cast<const sch_schedule_entry *>(a)->key->name,
                      static_cast<const sch_schedule_entry *>(b)->key->name, SCH_NAME_SIZE);
}

}  // namespace

bool batch_held(pss2_handle store) {
  return store != 0 && std::find(held_batches.begin(), held_batches.end(), store) != held_batches.end();
}

void hold_batch(pss2_handle store, bool held) {
  std::erase(held_batches, store);
  if (held) held_batches.push_back(store);
}

void sort_schedules_by_name() { *database()->schedules = g_list_sort(*database()->schedules, by_name); }

void sort_schedules_by_listing_serial() {
  *database()->schedules = g_list_sort(*database()->schedules, by_listing_serial);
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

sch_schedule_entry *find_schedule(std::string_view name) {
  NameField field(name);
  sch_schedule_entry *schedule = nullptr;
  if (field.fits) sch_find_schedule(database(), field.text, &schedule);
  return schedule;
}

uint32_t save_schedule(sch_schedule_entry *schedule, const sch_schedule_record &record) {
  sch_schedule_record copy = record;
  sch_schedule_entry staged = *schedule;
  staged.value = &copy;
  uint32_t status = durably(pss_running, [&] { return sch_save_schedule_entry_to_pss(pss_running, &staged) == 0; });
  if (status == 0) *schedule->value = record;
  return status;
}

GList *schedule_element(sch_schedule_entry *entry) { return g_list_find(*database()->schedules, entry); }

void free_database() {
  sch_free_config(database());
  sch_free_schedule_email_list(&sch_schedule_email_list);
  sch_free_user_config(&sch_uname_q);
}

void reset_live_configuration() {
  free_database();
  scheduler_enabled = 0;
  // As the library starts: the default size, no path yet (start-up fills in the default name).
  sch_log_file = sch_log_file_record{};
  sch_log_file.size_limit = SCH_LOG_FILE_SIZE_DEFAULT;
  email_transport_conf = default_transport();
  next_serial = 0;
}

sch_email_transport_conf default_transport() {
  sch_email_transport_conf conf{};
  conf.smtp_reserved = SCH_SMTP_SERVER_IPV4;
  conf.smtp_port = SCH_SMTP_PORT_DEFAULT;
  std::memcpy(conf.vrf, "management", sizeof "management");
  return conf;
}

}  // namespace schedd
