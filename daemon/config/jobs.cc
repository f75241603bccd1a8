// The model's job changes: create a job, replace its command text, delete it.
#include <cstring>
#include <utility>
#include <vector>

#include "config/database.h"
#include "config/deleters.h"
#include "config/fields.h"
#include "config/model.h"
#include "config/names.h"
#include "config/text_rules.h"
#include "cli/request.h"
#include "db/alloc_kinds.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/status.h"

namespace schedd {

namespace {

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

uint32_t Model::create_job(std::string_view name) {
  if (!valid_new_name(name)) return SCH_STATUS_BAD_REQUEST;
  NameField field(name);
  sch_job_slot *slot = nullptr;
  if (sch_find_job(database(), field.text, &slot) >= 0) return SCH_STATUS_EXISTS;
  int id = sch_first_empty_job_list_entry_index(database());
  if (id < 0) return SCH_STATUS_JOB_TABLE_FULL;

  auto *key = static_cast<sch_config_key *>(
      sch_malloc_check(sizeof(sch_config_key), sch::alloc::kKeyCopy, 0, sch::alloc::kAddJobEntry));
  auto *header = static_cast<sch_job_header *>(
      sch_malloc_check(sizeof(sch_job_header), sch::alloc::kJobHeader, 0, sch::alloc::kAddJobEntry));
  if (!key || !header) {
    mtrack_free(key);
    mtrack_free(header);
    return SCH_STATUS_NO_MEMORY;
  }
  key->type = SCH_REC_JOB;
  std::memcpy(key->name, field.text, SCH_NAME_SIZE);
  header->job_id = static_cast<uint32_t>(id);
  slot = &database()->jobs[id];
  slot->key = key;
  slot->header = header;
  uint32_t status = durably(pss_running, [&] { return sch_save_job_entry_to_pss(pss_running, slot) == 0; });
  if (status != 0) {
    sch_free_job_entry(slot);
    return status;
  }
  announce(ChangeKind::job_added, name);
  return 0;
}

uint32_t Model::define_job(std::string_view name, std::span<const uint8_t> text) {
  if (text.size() > SCH_JOB_TEXT_MAX) return SCH_STATUS_TEXT_TOO_LONG;
  if (!job_text_travels(text)) return SCH_STATUS_BAD_TEXT;
  NameField field(name);
  sch_job_slot *slot = nullptr;
  if (!field.fits || sch_find_job(database(), field.text, &slot) < 0) return SCH_STATUS_NO_SUCH_JOB;

  GList *fragments = nullptr;
  if (!make_fragments(text, &fragments)) return SCH_STATUS_NO_MEMORY;
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
      written = written && delete_job_fragment_record(pss_running, *slot->key, sequence);
    }
    return written && sch_save_job_entry_to_pss(pss_running, &staged) == 0;
  });
  if (status != 0) {
    free_fragments(fragments);
    return status;
  }
  free_fragments(slot->fragments);
  slot->fragments = fragments;
  slot->header->length = header.length;
  announce(ChangeKind::job_changed, name);
  return 0;
}

uint32_t Model::delete_job(std::string_view name) {
  NameField field(name);
  sch_job_slot *slot = nullptr;
  int id = field.fits ? sch_find_job(database(), field.text, &slot) : -1;
  if (id < 0) return SCH_STATUS_NO_SUCH_JOB;

  // Run results go first: left behind, they would attach to the next job given this id.
  uint32_t status = durably(pss_running_db, [&] {
    for (GList *element = slot->run_results; element; element = element->next) {
      if (!delete_run_result_record(pss_running_db, *static_cast<sch_runtime_job_status *>(element->data))) {
        return false;
      }
    }
    return true;
  });
  if (status != 0) return status;
  for (GList *element = slot->run_results; element; element = element->next) mtrack_free(element->data);
  g_list_free(slot->run_results);
  slot->run_results = nullptr;

  std::vector<std::pair<sch_schedule_entry *, sch_schedule_record>> unassigned;
  for (GList *element = g_list_first(*database()->schedules); element; element = element->next) {
    auto *schedule = static_cast<sch_schedule_entry *>(element->data);
    if (!job_assigned(*schedule->value, id)) continue;
    sch_schedule_record record = *schedule->value;
    set_job_assigned(&record, id, false);
    unassigned.emplace_back(schedule, record);
  }
  status = durably(pss_running, [&] {
    for (auto &[schedule, record] : unassigned) {
      sch_schedule_entry staged = *schedule;
      staged.value = &record;
      if (sch_save_schedule_entry_to_pss(pss_running, &staged) != 0) return false;
    }
    return delete_job_records(pss_running, *slot);
  });
  if (status != 0) return status;
  for (auto &[schedule, record] : unassigned) *schedule->value = record;
  sch_free_job_entry(slot);
  announce(ChangeKind::job_deleted, name);
  for (auto &[schedule, record] : unassigned) {
    announce(ChangeKind::schedule_changed, field_text(schedule->key->name));
  }
  return 0;
}

}  // namespace schedd
