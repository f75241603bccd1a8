// Email addresses of schedules: one 716-byte entry per schedule with up to ten address slots.
#include <cstring>

#include "db/alloc_kinds.h"
#include "db/names.h"
#include "diag/trace.h"
#include "schedcli/db.h"
#include "schedcli/platform/mtrack.h"

using sch::kTraceRecord;
using sch::trace;

namespace {

sch_schedule_email_entry *allocate_entry() {
  return static_cast<sch_schedule_email_entry *>(sch_malloc_check(
      sizeof(sch_schedule_email_entry), sch::alloc::kSchedule, 0, sch::alloc::kAddScheduleEmailEntry));
}

// Removals match by prefix: the first entry whose name begins with the given one. Intended.
GList *first_with_prefix(GList *list, const char *schedule) {
  for (GList *element = g_list_first(list); element; element = element->next) {
    auto *entry = static_cast<sch_schedule_email_entry *>(element->data);
    if (sch::field_begins_with(entry->schedule, schedule)) return element;
  }
  return nullptr;
}

}  // namespace

extern "C" {

int sch_find_schedule_email_entry(GList **list, const char *name, sch_schedule_email_entry **out) {
  *out = nullptr;
  for (GList *element = g_list_first(*list); element; element = element->next) {
    auto *entry = static_cast<sch_schedule_email_entry *>(element->data);
    if (sch::name_equals(entry->schedule, name)) {
      *out = entry;
      break;
    }
  }
  return 0;
}

int sch_add_new_schedule_email_entry(GList **list, const char *schedule, const char *address) {
  sch_schedule_email_entry *entry = allocate_entry();
  if (!entry) return -1;
  sch::copy_to_field(entry->schedule, schedule);
  entry->count = 1;
  sch::copy_to_field(entry->slots[0].address, address);
  entry->slots[0].in_use = 1;
  *list = g_list_append(*list, entry);
  return 0;
}

int sch_add_schedule_email_entry(GList **list, const char *schedule, const char *address) {
  sch_schedule_email_entry *entry = nullptr;
  sch_find_schedule_email_entry(list, schedule, &entry);
  if (!entry) {
    // A failed creation is reported by the allocator; the result stays 0 as for a success.
    sch_add_new_schedule_email_entry(list, schedule, address);
    trace(kTraceRecord, "email-id %s configured for %s", address, schedule);
    return 0;
  }
  if (entry->count >= SCH_MAX_EMAILS) {
    trace(kTraceRecord, "Max email-ids configured for %s", schedule);
    return -1;
  }
  for (sch_email_slot &slot : entry->slots) {
    if (slot.in_use) continue;
    // No duplicate check: the same address may take two slots.
    sch::copy_to_field(slot.address, address);
    slot.in_use = 1;
    entry->count++;
    break;
  }
  trace(kTraceRecord, "email-id %s configured for %s", address, schedule);
  return 0;
}

int sch_add_schedule_email_entry_from_pss(GList **list, const sch_schedule_email_entry *record) {
  sch_schedule_email_entry *entry = allocate_entry();
  if (!entry) return -1;
  std::memcpy(entry, record, sizeof *entry);
  *list = g_list_append(*list, entry);
  return 0;
}

int sch_remove_schedule_email_addr(GList **list, const char *schedule, const char *address) {
  GList *element = first_with_prefix(*list, schedule);
  if (!element) return 0;
  auto *entry = static_cast<sch_schedule_email_entry *>(element->data);
  if (entry->count == 1) {
    // The last address goes with its entry, whichever address was named. Intended.
    *list = g_list_delete_link(*list, element);
  } else {
    for (sch_email_slot &slot : entry->slots) {
      // Free slots are passed over so that an empty address cannot drive the count below zero.
      if (!slot.in_use || !sch::field_begins_with(slot.address, address)) continue;
      std::memset(slot.address, 0, sizeof slot.address);
      slot.in_use = 0;
      entry->count--;
    }
  }
  trace(kTraceRecord, "email-id %s removed from %s", address, schedule);
  return 0;
}

int sch_remove_schedule_email_entry(GList **list, const char *schedule) {
  GList *element = first_with_prefix(*list, schedule);
  if (!element) return 0;
  *list = g_list_delete_link(*list, element);
  trace(kTraceRecord, "removed schedule email entry for %s", schedule);
  return 0;
}

void sch_free_schedule_email_list(GList **list) {
  g_list_free_full(*list, mtrack_free);
  *list = nullptr;
}

}  // extern "C"
