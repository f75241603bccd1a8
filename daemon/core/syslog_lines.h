// Syslog lines of the daemon: the library's catalogue messages and the daemon's own, all in the
// catalogue's form ("%SCHEDULER-5-NAME>> text") and held back when the operator's logging level
// is below their severity.
#ifndef SCHEDD_CORE_SYSLOG_LINES_H
#define SCHEDD_CORE_SYSLOG_LINES_H

#include <string>

#include "schedcli/diag.h"

namespace schedd {

// The facility's name as the lines show it.
std::string facility_tag();

// A catalogue message; `arguments` fill its format after the facility name and the severity.
template <typename... Arguments>
void emit(const syslog_message &message, Arguments... arguments);

// One of the daemon's own lines, named `name`, with `text`.
void log_line(int severity, const char *name, const std::string &text);

}  // namespace schedd

#include "core/syslog_lines_impl.h"

#endif
