// Requests that create a job, replace its command text, and delete it (types 0, 1, 2).
#include <cstring>
#include <string_view>

#include "requests/requests.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

// The job request at the head of the record, or false when its name is not a usable one.
bool decode_job_request(RequestBytes bytes, sch_job_request *request) {
  sch_wire_decode(SCH_WIRE_JOB_REQUEST, bytes.data(), bytes.size(), request);
  return holds_text(request->name);
}

// Text as the shell gathers it: lines each ended by a newline, none ending in a carriage return
// or reading "end-job". Any other text would come back changed, or end the job early, when the
// configuration text that prints it is pasted back.
bool shell_shaped(std::span<const uint8_t> text) {
  std::string_view all(reinterpret_cast<const char *>(text.data()), text.size());
  if (!all.empty() && all.back() != '\n') return false;
  while (!all.empty()) {
    std::string_view line = all.substr(0, all.find('\n'));
    all.remove_prefix(line.size() + 1);
    if (!line.empty() && line.back() == '\r') return false;
    size_t first = line.find_first_not_of(" \t\v\f");
    size_t last = line.find_last_not_of(" \t\v\f");
    if (first != std::string_view::npos && line.substr(first, last - first + 1) == "end-job") return false;
  }
  return true;
}

}  // namespace

Reply create_job(RequestBytes bytes, const RequestContext &context) {
  sch_job_request request;
  if (!decode_job_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  return status_reply(context.model.create_job(field_text(request.name)));
}

Reply define_job(RequestBytes bytes, const RequestContext &context) {
  sch_job_request request;
  if (!decode_job_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  std::span<const uint8_t> text = bytes.subspan(sizeof request);
  if (request.text_length != text.size()) return status_reply(SCH_STATUS_BAD_REQUEST);
  // The text is handled as a C string further on (configuration text, the job's script).
  if (std::memchr(text.data(), '\0', text.size()) || !shell_shaped(text)) return status_reply(SCH_STATUS_BAD_REQUEST);
  return status_reply(context.model.define_job(field_text(request.name), text));
}

Reply delete_job(RequestBytes bytes, const RequestContext &context) {
  sch_job_request request;
  if (!decode_job_request(bytes, &request)) return status_reply(SCH_STATUS_BAD_REQUEST);
  return status_reply(context.model.delete_job(field_text(request.name)));
}

}  // namespace schedd
