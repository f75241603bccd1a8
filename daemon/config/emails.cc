// The model's email addresses of schedules: add one, remove one.
#include <cstring>

#include "config/database.h"
#include "config/deleters.h"
#include "config/fields.h"
#include "config/model.h"
#include "config/names.h"
#include "config/text_rules.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/status.h"

namespace schedd {

namespace {

bool slot_holds(const sch_email_slot &slot, std::string_view address) {
  return slot.in_use && field_text(slot.address) == address;
}

bool entry_holds(const sch_schedule_email_entry &entry, std::string_view address) {
  for (const sch_email_slot &slot : entry.slots) {
    if (slot_holds(slot, address)) return true;
  }
  return false;
}

uint32_t addresses_in_use(const sch_schedule_email_entry &entry) {
  uint32_t count = 0;
  for (const sch_email_slot &slot : entry.slots) count += slot.in_use ? 1 : 0;
  return count;
}

uint32_t save_entry(sch_schedule_email_entry *entry) {
  return durably(pss_running, [&] { return sch_save_schedule_email_entry_to_pss(pss_running, entry) == 0; });
}

}  // namespace

// Adding an address the schedule has already changes nothing, so that a configuration can be
// pasted back over itself.
uint32_t Model::add_email(std::string_view schedule_name, std::string_view address) {
  NameField schedule(schedule_name);
  sch_schedule_entry *found = nullptr;
  if (schedule.fits) sch_find_schedule(database(), schedule.text, &found);
  if (!found) return SCH_STATUS_NO_SUCH_SCHEDULE;
  if (address.empty() || address.size() >= SCH_EMAIL_SIZE) return SCH_STATUS_BAD_REQUEST;
  if (!address_travels(address)) return SCH_STATUS_BAD_ADDRESS;
  char address_field[SCH_EMAIL_SIZE];
  copy_text(address_field, address);

  sch_schedule_email_entry *entry = nullptr;
  sch_find_schedule_email_entry(&sch_schedule_email_list, schedule.text, &entry);
  if (entry && entry_holds(*entry, address)) return 0;
  if (entry && addresses_in_use(*entry) >= SCH_MAX_EMAILS) return SCH_STATUS_TOO_MANY_EMAILS;
  sch_schedule_email_entry before{};
  if (entry) before = *entry;
  if (sch_add_schedule_email_entry(&sch_schedule_email_list, schedule.text, address_field) != 0) {
    return SCH_STATUS_TOO_MANY_EMAILS;
  }
  bool created = entry == nullptr;
  sch_find_schedule_email_entry(&sch_schedule_email_list, schedule.text, &entry);
  if (!entry) return SCH_STATUS_NO_MEMORY;  // the new entry could not be allocated

  if (uint32_t status = save_entry(entry)) {
    if (created) {
      sch_schedule_email_list = g_list_remove(sch_schedule_email_list, entry);
      mtrack_free(entry);
    } else {
      *entry = before;
    }
    return status;
  }
  announce(ChangeKind::schedule_changed, schedule_name);
  return 0;
}

// Removal matches the schedule and the address exactly. The library's removal matches both by
// prefix (removing a@b.c would take a@b.com with it, and the entry of s10 could go for s1), so
// the slots are cleared here; an entry left without addresses goes, with its record.
uint32_t Model::remove_email(std::string_view schedule_name, std::string_view address) {
  NameField schedule(schedule_name);
  sch_schedule_entry *found = nullptr;
  if (schedule.fits) sch_find_schedule(database(), schedule.text, &found);
  if (!found) return SCH_STATUS_NO_SUCH_SCHEDULE;
  sch_schedule_email_entry *entry = nullptr;
  sch_find_schedule_email_entry(&sch_schedule_email_list, schedule.text, &entry);
  if (!entry || !entry_holds(*entry, address)) return 0;

  sch_schedule_email_entry before = *entry;
  for (sch_email_slot &slot : entry->slots) {
    if (slot_holds(slot, address)) slot = sch_email_slot{};
  }
  entry->count = addresses_in_use(*entry);
  bool emptied = entry->count == 0;
  uint32_t status = emptied ? durably(pss_running, [&] { return delete_schedule_email_record(pss_running, *entry); })
                            : save_entry(entry);
  if (status != 0) {
    *entry = before;
    return status;
  }
  if (emptied) {
    sch_schedule_email_list = g_list_remove(sch_schedule_email_list, entry);
    mtrack_free(entry);
  }
  announce(ChangeKind::schedule_changed, schedule_name);
  return 0;
}

}  // namespace schedd
