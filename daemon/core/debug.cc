// Debug output of the daemon.
#include "core/debug.h"

#include <cstdarg>
#include <cstdio>

#include "schedcli/platform/sdwrap.h"

namespace schedd {

void debug(int level, const char *format, ...) {
  if (!sdwrap_chk_int(level, 0, 0, 1)) return;
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  buginf("schedd: %s", text);
}

}  // namespace schedd
