// The system-log emitter: renders a catalogue format and delivers it.
#include "schedcli/platform/syslog.h"

#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {
std::atomic<bool> copy_to_stderr{false};
std::atomic<nost_syslog_sink> sink{nullptr};
std::atomic<void *> sink_context{nullptr};
}  // namespace

extern "C" {

void nost_syslog(int severity, const char *format, ...) {
  if (!format) return;
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);

  // The catalogue's "<<%%" marker has become "<<%" after formatting; the log shows a single '%'.
  const char *shown = text;
  if (std::strncmp(shown, "<<%", 3) == 0) shown += 2;

  if (severity < LOG_EMERG || severity > LOG_DEBUG) severity = LOG_ERR;
  if (nost_syslog_sink deliver = sink.load()) {
    deliver(severity, shown, sink_context.load());
  } else {
    syslog(severity, "%s", shown);
  }
  if (copy_to_stderr.load()) std::fprintf(stderr, "%s\n", shown);
}

void nost_syslog_copy_to_stderr(int enabled) { copy_to_stderr.store(enabled != 0); }

void nost_syslog_set_sink(nost_syslog_sink deliver, void *context) {
  sink_context.store(context);
  sink.store(deliver);
}

}  // extern "C"
