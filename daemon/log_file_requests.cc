// Requests on the run log: its size limit (type 9), its name (type 10), clearing it (type 11), and
// the size for display (type 12).
#include "database.h"
#include "log_file.h"
#include "requests.h"
#include "schedcli/wire.h"

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

bool decode_log_file_request(RequestBytes bytes, sch_log_file_request *request) {
  sch_wire_decode(SCH_WIRE_LOG_FILE_REQUEST, bytes.data(), bytes.size(), request);
  return terminated(request->path) && terminated(request->uri);
}

}  // namespace

Reply log_file_size(RequestBytes bytes, const Caller &) {
  sch_log_file_request request;
  if (!decode_log_file_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  uint32_t size = request.no_flag ? SCH_LOG_FILE_SIZE_DEFAULT : request.size;
  if (size < kSmallestSize || size > kLargestSize) return status_reply(SCH_STATUS_OUT_OF_RANGE);
  sch_log_file_record record = sch_log_file;
  record.size_limit = size;
  return status_reply(save_log_record(record));
}

Reply log_file_name(RequestBytes bytes, const Caller &) {
  sch_log_file_request request;
  if (!decode_log_file_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  // The no form names the default file whatever the request carries.
  std::string_view requested = request.no_flag ? kDefaultLogFileName : field_text(request.path);
  std::string target, stored_path;
  if (uint32_t status = resolve_log_file_name(requested, &target, &stored_path)) return status_reply(status);
  std::string current = log_file_location(stored_log_path(sch_log_file));
  // Naming the file where it is changes nothing, so that the no form can be repeated.
  if (target == current) return {};

  if (uint32_t status = move_log_file(current, target)) return status_reply(status);
  sch_log_file_record record = sch_log_file;
  store_log_path(&record, stored_path);
  uint32_t status = save_log_record(record);
  // The record still names the old place: the file goes back there.
  if (status != 0) move_log_file(target, current);
  return status_reply(status);
}

Reply log_file_clear(RequestBytes bytes, const Caller &) {
  sch_log_file_request request;
  if (!decode_log_file_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  if (uint32_t status = empty_log_file(log_file_location(stored_log_path(sch_log_file)))) {
    return status_reply(status);
  }
  sch_log_file_record record = sch_log_file;
  record.read_offset = 0;
  record.count = 0;
  return status_reply(save_log_record(record));
}

Reply log_file_config(RequestBytes, const Caller &) {
  Reply reply;
  reply.payload.resize(sizeof(int32_t));
  sch_wire_put_u32(reply.payload.data(), sch_log_file.size_limit);
  return reply;
}

}  // namespace schedd
