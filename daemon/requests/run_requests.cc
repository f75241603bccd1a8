// Requests on runs: the run log as a stream of its entries (type 8) and the schedules' timers as
// text (type 30).
#include <algorithm>
#include <memory>

#include "config/database.h"
#include "requests/requests.h"
#include "runner/log_file.h"
#include "runner/run_log.h"
#include "runner/runner.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/wire.h"

namespace schedd {

namespace {

// Each entry's part of a message: well below a message's limit, so that a client's socket takes a
// message as soon as the client has read some.
constexpr size_t kLogMessageSize = 64 * 1024;

}  // namespace

Reply show_log(RequestBytes bytes, const RequestContext &) {
  sch_display_request request;
  sch_wire_decode(SCH_WIRE_DISPLAY_REQUEST, bytes.data(), bytes.size(), &request);
  if (!terminated(request.name)) return status_reply(SCH_STATUS_BAD_REQUEST);
  std::shared_ptr<runner::RunLogMessages> messages = runner::RunLogMessages::open(
      log_file_location(stored_log_path(sch_log_file)), field_text(request.name), kLogMessageSize);
  if (!messages) return status_reply(SCH_STATUS_LOG_FILE_IO);
  Reply reply;
  reply.streamed = true;
  // A log that stops holding what was counted ends the stream early: the shell says so.
  reply.parts = [messages]() -> std::optional<std::vector<uint8_t>> {
    std::vector<uint8_t> payload;
    if (messages->next(&payload) != runner::RunLogMessages::Next::message) return std::nullopt;
    return payload;
  };
  return reply;
}

Reply timers_display(RequestBytes, const RequestContext &context) {
  if (!context.runner) return {};
  std::string text = context.runner->timers_text();
  // A thousand schedules take some 150 KB: one message holds them.
  Reply reply;
  reply.payload.assign(text.begin(), text.begin() + static_cast<ptrdiff_t>(std::min<size_t>(text.size(), CMI_MAX_PAYLOAD)));
  return reply;
}

}  // namespace schedd
