// Routing of the library's debug traces.
#include "diag/trace.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "schedcli/platform/sdwrap.h"

int cli_debug = 0;

namespace sch {

namespace {
constexpr size_t kTraceBuffer = 512;
}

void trace(int level, const char *format, ...) {
  char text[kTraceBuffer];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);

  if (cli_debug) {
    size_t length = std::strlen(text);
    std::fprintf(stderr, "%s%s", text, (length > 0 && text[length - 1] == '\n') ? "" : "\n");
  }
  if (!sdwrap_hist_event_subtype_check(SCH_TRACE_EVENT, level)) {
    // History record: the level word, then the text with its terminator.
    unsigned char record[sizeof(int32_t) + kTraceBuffer];
    int32_t level_word = level;
    std::memcpy(record, &level_word, sizeof level_word);
    size_t length = std::strlen(text) + 1;
    std::memcpy(record + sizeof level_word, text, length);
    sdwrap_hist_event(SCH_TRACE_EVENT, record, sizeof level_word + length);
  }
  if (sdwrap_chk_int(level, 0, 0, 1)) {
    buginf("%s", text);
  }
}

}  // namespace sch
