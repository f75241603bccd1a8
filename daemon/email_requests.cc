// The request that adds or removes an email address of a schedule (type 20).
#include <cstring>

#include "database.h"
#include "requests.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

bool slot_holds(const sch_email_slot &slot, const char *address) {
  return slot.in_use && std::strncmp(slot.address, address, SCH_EMAIL_SIZE) == 0;
}

bool entry_holds(const sch_schedule_email_entry &entry, const char *address) {
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

// Adding an address the schedule has already changes nothing, so that a configuration can be
// pasted back over itself.
Reply add_address(const char *schedule, const char *address, sch_schedule_email_entry *entry) {
  if (entry && entry_holds(*entry, address)) return {};
  if (entry && addresses_in_use(*entry) >= SCH_MAX_EMAILS) return status_reply(SCH_STATUS_TOO_MANY_EMAILS);
  sch_schedule_email_entry before{};
  if (entry) before = *entry;
  if (sch_add_schedule_email_entry(&sch_schedule_email_list, schedule, address) != 0) {
    return status_reply(SCH_STATUS_TOO_MANY_EMAILS);
  }
  bool created = entry == nullptr;
  sch_find_schedule_email_entry(&sch_schedule_email_list, schedule, &entry);
  if (!entry) return status_reply(SCH_STATUS_NO_MEMORY);  // the new entry could not be allocated

  uint32_t status = save_entry(entry);
  if (status == 0) return {};
  if (created) {
    sch_schedule_email_list = g_list_remove(sch_schedule_email_list, entry);
    mtrack_free(entry);
  } else {
    *entry = before;
  }
  return status_reply(status);
}

// Removal matches the schedule and the address exactly. The library's removal matches both by
// prefix (removing a@b.c would take a@b.com with it, and the entry of s10 could go for s1), so
// the slots are cleared here; an entry left without addresses goes, with its record.
Reply remove_address(const char *address, sch_schedule_email_entry *entry) {
  if (!entry || !entry_holds(*entry, address)) return {};
  sch_schedule_email_entry before = *entry;
  for (sch_email_slot &slot : entry->slots) {
    if (slot_holds(slot, address)) slot = sch_email_slot{};
  }
  entry->count = addresses_in_use(*entry);
  bool emptied = entry->count == 0;
  uint32_t status = emptied ? durably(pss_running,
                                      [&] {
                                        sch_delete_schedule_email_entry_from_pss(pss_running, entry);
                                        return true;
                                      })
                            : save_entry(entry);
  if (status != 0) {
    *entry = before;
    return status_reply(status);
  }
  if (emptied) {
    sch_schedule_email_list = g_list_remove(sch_schedule_email_list, entry);
    mtrack_free(entry);
  }
  return {};
}

}  // namespace

Reply schedule_email(RequestBytes bytes, const Caller &) {
  sch_schedule_email_request request;
  sch_wire_decode(SCH_WIRE_SCHEDULE_EMAIL_REQUEST, bytes.data(), bytes.size(), &request);
  if (!holds_text(request.schedule) || !holds_text(request.address) ||
      (request.operation != SCH_EMAIL_ADD && request.operation != SCH_EMAIL_DELETE)) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  sch_schedule_entry *schedule = nullptr;
  sch_find_schedule(database(), request.schedule, &schedule);
  if (!schedule) return status_reply(SCH_STATUS_NO_SUCH_SCHEDULE);
  sch_schedule_email_entry *entry = nullptr;
  sch_find_schedule_email_entry(&sch_schedule_email_list, request.schedule, &entry);
  return request.operation == SCH_EMAIL_ADD ? add_address(request.schedule, request.address, entry)
                                            : remove_address(request.address, entry);
}

}  // namespace schedd
