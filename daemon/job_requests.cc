// Requests that create a job, replace its command text, and delete it (types 0, 1, 2).
#include <cstring>
#include <utility>
#include <vector>

#include "database.h"
#include "db/alloc_kinds.h"
#include "requests.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

// The job request at the head of the record, or false when its name is not a usable one.
bool decode_job_request(RequestBytes bytes, sch_job_request *request) {
  sch_wire_decode(SCH_WIRE_JOB_REQUEST, bytes.data(), bytes.size(), request);
  return holds_text(request->name);
}

void free_fragments(GList *fragments) {
  g_list_foreach(fragments, free_fragment, nullptr);
  g_list_free(fragments);
}

// The text cut into tracked fragments of at most 1024 bytes, in order; false when memory ran out
// (nothing is kept then).
bool make_fragments(std::span<const uint8_t> text, GList **out) {
  GList *fragments = nullptr;
  for (size_t offset = 0; offset < text.size(); offset += SCH_FRAGMENT_SIZE) {
    size_t length = std::min<size_t>(SCH_FRAGMENT_SIZE, text.size() - offset);
    void *fragment = sch_malloc_check(length, sch::alloc::kJobFragment, 0, sch::alloc::kAddJobEntry);
    if (!fragment) {
      free_fragments(fragments);
      return false;
    }
    std::memcpy(fragment, text.data() + offset, length);
    fragments = g_list_append(fragments, fragment);
  }
  *out = fragments;
  return true;
}

}  // namespace

Reply create_job(RequestBytes bytes, const Caller &) {
  sch_job_request request;
  if (!decode_job_request(bytes, &request) || !valid_new_name(request.name)) {
    return status_reply(SCH_STATUS_BAD_REQUEST);
  }
  sch_job_slot *slot = nullptr;
  if (sch_find_job(database(), request.name, &slot) >= 0) return status_reply(SCH_STATUS_EXISTS);
  int id = sch_first_empty_job_list_entry_index(database());
  if (id < 0) return status_reply(SCH_STATUS_JOB_TABLE_FULL);

  auto *key = static_cast<sch_config_key *>(
      sch_malloc_check(sizeof(sch_config_key), sch::alloc::kKeyCopy, 0, sch::alloc::kAddJobEntry));
  auto *header = static_cast<sch_job_header *>(
      sch_malloc_check(sizeof(sch_job_header), sch::alloc::kJobHeader, 0, sch::alloc::kAddJobEntry));
  if (!key || !header) {
    mtrack_free(key);
    mtrack_free(header);
    return status_reply(SCH_STATUS_NO_MEMORY);
  }
  key->type = SCH_REC_JOB;
  copy_text(key->name, field_text(request.name));
  header->job_id = static_cast<uint32_t>(id);
  slot = &database()->jobs[id];
  slot->key = key;
  slot->header = header;
  uint32_t status = durably(pss_running, [&] { return sch_save_job_entry_to_pss(pss_running, slot) == 0; });
  if (status != 0) sch_free_job_entry(slot);
  return status_reply(status);
}

Reply define_job(RequestBytes bytes, const Caller &) {
  sch_job_request request;
  if (!decode_job_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  std::span<const uint8_t> text = bytes.subspan(sizeof request);
  if (request.text_length != text.size()) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (text.size() > SCH_JOB_TEXT_MAX) return status_reply(SCH_STATUS_TEXT_TOO_LONG);
  // The text is handled as a C string further on (configuration text, the job's script).
  if (std::memchr(text.data(), '\0', text.size())) return status_reply(SCH_STATUS_BAD_REQUEST);
  sch_job_slot *slot = nullptr;
  if (sch_find_job(database(), request.name, &slot) < 0) return status_reply(SCH_STATUS_NO_SUCH_JOB);

  GList *fragments = nullptr;
  if (!make_fragments(text, &fragments)) return status_reply(SCH_STATUS_NO_MEMORY);
  // The new text is written through a copy of the slot, so that a failed write leaves the job as
  // it was in memory too.
  sch_job_header header = *slot->header;
  header.length = static_cast<uint32_t>(text.size());
  sch_job_slot staged = *slot;
  staged.header = &header;
  staged.fragments = fragments;
  uint32_t old_count = g_list_length(slot->fragments);
  uint32_t new_count = g_list_length(fragments);
  uint32_t status = durably(pss_running, [&] {
    bool written = true;
    for (uint32_t sequence = new_count + 1; sequence <= old_count; sequence++) {
      written = delete_job_fragment_record(pss_running, *slot->key, sequence) && written;
    }
    return sch_save_job_entry_to_pss(pss_running, &staged) == 0 && written;
  });
  if (status != 0) {
    free_fragments(fragments);
    return status_reply(status);
  }
  free_fragments(slot->fragments);
  slot->fragments = fragments;
  slot->header->length = header.length;
  return {};
}

Reply delete_job(RequestBytes bytes, const Caller &) {
  sch_job_request request;
  if (!decode_job_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  sch_job_slot *slot = nullptr;
  int id = sch_find_job(database(), request.name, &slot);
  if (id < 0) return status_reply(SCH_STATUS_NO_SUCH_JOB);

  // Run results go first: left behind, they would attach to the next job given this id.
  uint32_t status = durably(pss_running_db, [&] {
    bool written = true;
    for (GList *element = slot->run_results; element; element = element->next) {
      written = delete_run_result_record(pss_running_db, *static_cast<sch_runtime_job_status *>(element->data)) &&
                written;
    }
    return written;
  });
  if (status != 0) return status_reply(status);

  std::vector<std::pair<sch_schedule_entry *, sch_schedule_record>> unassigned;
  for (GList *element = g_list_first(*database()->schedules); element; element = element->next) {
    auto *schedule = static_cast<sch_schedule_entry *>(element->data);
    if (!job_assigned(*schedule->value, id)) continue;
    sch_schedule_record record = *schedule->value;
    set_job_assigned(&record, id, false);
    unassigned.emplace_back(schedule, record);
  }
  status = durably(pss_running, [&] {
    bool written = true;
    for (auto &[schedule, record] : unassigned) {
      sch_schedule_entry staged = *schedule;
      staged.value = &record;
      written = sch_save_schedule_entry_to_pss(pss_running, &staged) == 0 && written;
    }
    sch_delete_job_entry_from_pss(pss_running, slot);
    return written;
  });
  if (status != 0) return status_reply(status);
  for (auto &[schedule, record] : unassigned) *schedule->value = record;
  sch_free_job_entry(slot);
  return {};
}

}  // namespace schedd
