// The template of syslog_lines.h.
#ifndef SCHEDD_CORE_SYSLOG_LINES_IMPL_H
#define SCHEDD_CORE_SYSLOG_LINES_IMPL_H

#include "schedcli/platform/syslog.h"

namespace schedd {

template <typename... Arguments>
void emit(const syslog_message &message, Arguments... arguments) {
  if (message.facility->current_level < message.severity) return;
  std::string facility = facility_tag();
  // The catalogue's formats are data: each takes the facility and severity first.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  nost_syslog(message.severity, message.format, facility.c_str(), static_cast<int>(message.severity), arguments...);
#pragma GCC diagnostic pop
}

}  // namespace schedd

#endif
