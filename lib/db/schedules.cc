// The schedule list: one entry per schedule, in creation (or restore) order.
#include "db/alloc_kinds.h"
#include "db/names.h"
#include "schedcli/db.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"

extern "C" {

int sch_add_schedule_entry(sch_config_set *db, sch_config_key *key, sch_schedule_record *value,
                           sch_schedule_entry **out) {
  auto *entry = static_cast<sch_schedule_entry *>(
      sch_malloc_check(sizeof(sch_schedule_entry), sch::alloc::kSchedule, 0, sch::alloc::kAddScheduleEntry));
  if (!entry) return -1;
  entry->key = key;
  entry->value = value;
  *db->schedules = g_list_append(*db->schedules, entry);
  *out = entry;
  return 0;
}

int sch_find_schedule(sch_config_set *db, const char *name, sch_schedule_entry **out) {
  *out = nullptr;
  for (GList *element = g_list_first(*db->schedules); element; element = element->next) {
    auto *entry = static_cast<sch_schedule_entry *>(element->data);
    if (sch::name_equals(entry->key->name, name)) {
      *out = entry;
      break;
    }
  }
  return 0;
}

void sch_free_schedule_entry(sch_config_set *db, GList *element) {
  if (!element) return;
  auto *entry = static_cast<sch_schedule_entry *>(element->data);
  if (entry) {
    mtrack_free(entry->key);
    mtrack_free(entry->value);
  }
  *db->schedules = g_list_remove_link(*db->schedules, element);
  mtrack_free(entry);
  g_list_free_1(element);
}

}  // extern "C"
