// The model's run-log settings: its size limit, its name (the file moves with it), clearing it.
#include "config/database.h"
#include "config/model.h"
#include "runner/log_file.h"
#include "schedcli/status.h"

namespace schedd {

namespace {

// A log smaller than one kilobyte would show as size 0, and one beyond this would take the state
// directory's room for little use.
constexpr uint32_t kSmallestSize = 1024;
constexpr uint32_t kLargestSize = 64u * 1024 * 1024;

// The record takes `record`'s values only once they are durable.
uint32_t save_log_record(const sch_log_file_record &record) {
  sch_log_file_record staged = record;
  uint32_t status = durably(
      pss_running, [&] { return sch_save_log_file_entry_to_pss(pss_running, &sch_log_file_key, &staged) == 0; });
  if (status == 0) sch_log_file = record;
  return status;
}

}  // namespace

uint32_t Model::set_log_file_size(uint32_t size) {
  // The configuration's text, and so the shell, give the size in whole kilobytes: a size between
  // two would come back as the smaller one when the text is pasted.
  if (size < kSmallestSize || size > kLargestSize || size % 1024 != 0) return SCH_STATUS_OUT_OF_RANGE;
  sch_log_file_record record = sch_log_file;
  record.size_limit = size;
  if (uint32_t status = save_log_record(record)) return status;
  announce(ChangeKind::log_file_changed);
  return 0;
}

uint32_t Model::rename_log_file(std::string_view requested) {
  std::string target, stored_path;
  if (uint32_t status = resolve_log_file_name(requested, &target, &stored_path)) return status;
  std::string current = log_file_location(stored_log_path(sch_log_file));
  // Naming the file where it is changes nothing, so that the no form can be repeated.
  if (target == current) return 0;
  if (uint32_t status = move_log_file(current, target)) return status;
  sch_log_file_record record = sch_log_file;
  store_log_path(&record, stored_path);
  if (uint32_t status = save_log_record(record)) {
    // The record still names the old place: the file goes back there.
    move_log_file(target, current);
    return status;
  }
  announce(ChangeKind::log_file_changed);
  return 0;
}

uint32_t Model::clear_log_file() {
  if (uint32_t status = empty_log_file(log_file_location(stored_log_path(sch_log_file)))) return status;
  sch_log_file_record record = sch_log_file;
  record.read_offset = 0;
  record.count = 0;
  if (uint32_t status = save_log_record(record)) return status;
  announce(ChangeKind::log_file_changed);
  return 0;
}

}  // namespace schedd
