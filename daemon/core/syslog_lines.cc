// Syslog lines of the daemon.
#include "core/syslog_lines.h"

#include <cctype>

namespace schedd {

std::string facility_tag() {
  std::string facility = syslog_fac_LOG_SCHEDULER.name;
  for (char &c : facility) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return facility;
}

void log_line(int severity, const char *name, const std::string &text) {
  if (syslog_fac_LOG_SCHEDULER.current_level < severity) return;
  nost_syslog(severity, "<<%%%s-%d-%s>> %s", facility_tag().c_str(), severity, name, text.c_str());
}

}  // namespace schedd
