// The log-file commands: size, clear and rename of the daemon's circular run log.
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "diag/trace.h"
#include "schedcli/cli_config.h"
#include "schedcli/platform/uri.h"

using namespace sch::cli;

namespace {

constexpr const char *kDefaultName = "scheduler_circular_log.dat";
constexpr const char *kNoUri = "NONE";

// A log-file request of `type` with the context's no flag; the caller fills the rest.
sch_log_file_request log_file_request(const sch_cli_context *context, uint32_t type) {
  sch_log_file_request request{};
  request.header.type = type;
  request.header.length = sizeof request - sizeof request.header;
  request.no_flag = context->no_flag ? 1 : 0;
  return request;
}

// Encodes and sends `request` in a freshly allocated image. Returns 0, 2 when the image could
// not be had, or the platform's code after its error line.
uint32_t send_log_file_request(const sch_cli_context *context, const sch_log_file_request &request) {
  RequestImage image(sizeof request);
  if (!image.ok()) {
    std::fputs("Could not allocate memory\n", stderr);
    return 2;
  }
  image.encode(SCH_WIRE_LOG_FILE_REQUEST, &request);
  uint32_t result = send_config(caller_of(context), image);
  // "Error: " before the ": " of the line: the doubled colon is the intended text.
  if (result != 0) print_error("Error: ", result);
  return result;
}

const sch_cli_param *first_param(const sch_cli_context *context) {
  const sch_cli_param *param = context->param_count > 0 ? context->params[0] : nullptr;
  return param && param->value ? param : nullptr;
}

}  // namespace

extern "C" {

uint32_t sch_cli_logfile_resize(sch_cli_context *context) {
  cli_debug = context->debug;
  sch_log_file_request request = log_file_request(context, SCH_REQ_LOG_SIZE);
  if (context->no_flag) {
    request.size = SCH_LOG_FILE_SIZE_DEFAULT;
  } else {
    const sch_cli_param *param = first_param(context);
    if (!param) return 255;
    int32_t kilobytes = *static_cast<const int32_t *>(param->value);
    request.size = static_cast<uint32_t>(kilobytes) << 10;
    sch::trace(sch::kTraceRecord, "log file size is %d\n", kilobytes);
  }
  return send_log_file_request(context, request);
}

uint32_t sch_cli_logfile_clear(sch_cli_context *context) {
  cli_debug = context->debug;
  sch_log_file_request request = log_file_request(context, SCH_REQ_LOG_CLEAR);
  // The size field of a clear is always 0; the trace shows it all the same.
  sch::trace(sch::kTraceRecord, "log file size is %d\n", static_cast<int>(request.size));
  return send_log_file_request(context, request);
}

uint32_t sch_cli_logfile_rename(sch_cli_context *context) {
  cli_debug = context->debug;
  sch_log_file_request request = log_file_request(context, SCH_REQ_LOG_NAME);
  if (context->no_flag) {
    put_padded(request.path, kDefaultName);
    put_padded(request.uri, kNoUri);
    return send_log_file_request(context, request);
  }

  const sch_cli_param *param = first_param(context);
  if (!param) return 255;
  const auto *uri = static_cast<const file_uri *>(param->value);
  put_string(request.path, uri_map_targetfs_path_get(uri->device, uri->path));
  // A file already at the target is never taken over: refused here, before anything is sent.
  struct stat existing;
  if (stat(request.path, &existing) == 0) {
    std::fputs("Error: File exists.\n", stderr);
    return 0;  // reported, yet the command's result is success: intended
  }
  snprintf_uri_len(request.uri, uri, sizeof request.uri);
  sch::trace(sch::kTraceRecord, "log file name is %s\n", request.path);
  return send_log_file_request(context, request);
}

}  // extern "C"
