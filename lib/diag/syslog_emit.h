// Emitting a catalogue message: filtered by the facility's current level, then handed to the
// platform emitter with the upper-cased facility name and the severity ahead of its arguments.
#ifndef SCHEDCLI_LIB_DIAG_SYSLOG_EMIT_H
#define SCHEDCLI_LIB_DIAG_SYSLOG_EMIT_H

#include "schedcli/diag.h"
#include "schedcli/platform/syslog.h"

namespace sch {

// The facility's name upper-cased into one static buffer, reused by every message.
const char *upper_facility_name(const syslog_facility &facility);

template <typename... Arguments>
void syslog_emit(const syslog_message &message, Arguments... arguments) {
  if (message.facility->current_level < message.severity) return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  nost_syslog(message.severity, message.format, upper_facility_name(*message.facility),
              static_cast<int>(message.severity), arguments...);
#pragma GCC diagnostic pop
}

}  // namespace sch

#endif
