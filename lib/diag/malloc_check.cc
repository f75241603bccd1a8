// Tracked allocation of the configuration database and platform-error tracing.
#include <cctype>
#include <cstring>

#include "diag/syslog_emit.h"
#include "diag/trace.h"
#include "schedcli/platform/mtrack.h"

namespace sch {

const char *upper_facility_name(const syslog_facility &facility) {
  // One static buffer: the library runs on one thread per process.
  static char upper[32];
  size_t i = 0;
  for (; facility.name && facility.name[i] && i + 1 < sizeof upper; i++) {
    upper[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(facility.name[i])));
  }
  upper[i] = '\0';
  return upper;
}

}  // namespace sch

extern "C" {

void *sch_malloc_check(size_t size, int kind, int /*unused*/, const char *purpose) {
  void *block = mtrack_alloc(SCH_MTRACK_IDENTITY, static_cast<uint32_t>(kind), size, purpose);
  if (block) {
    if (size) std::memset(block, 0, size);
    return block;
  }
  sch::trace(sch::kTraceRecord, "Malloc FAILED: %s", purpose ? purpose : "");
  sch::syslog_emit(syslog_msg_SCH_SYSLOG_MALLOC_ERR, purpose ? purpose : "");
  return nullptr;
}

void sch_syserr_log(int level, uint32_t code) {
  // The facility is reported as the 12-bit field times 8: the shift by 13 is intended.
  sch::trace(level, "Syserr - type:%d facility:%d number:%d", static_cast<int>(code >> 30),
             static_cast<int>((code >> 13) & 0x7FF8), static_cast<int>(code & 0xFFF));
}

}  // extern "C"
