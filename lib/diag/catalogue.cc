// The scheduler's syslog message catalogue.
#include "schedcli/diag.h"

// Formats are the system's own texts: each begins with the marker the emitter turns into '%'.
syslog_facility syslog_fac_LOG_SCHEDULER = {"scheduler", 1512, 5, 5, 0};

#define SCH_MESSAGE(symbol, severity, format) \
  const syslog_message syslog_msg_##symbol = {#symbol, &syslog_fac_LOG_SCHEDULER, format, severity, {0, 0, 0}}

SCH_MESSAGE(SCH_MSG, 6, "<<%%%s-%d-SCH_MSG>> %s");
SCH_MESSAGE(SCH_ERR, 3, "<<%%%s-%d-SCH_ERR>> %s");
SCH_MESSAGE(SCH_WARN, 4, "<<%%%s-%d-SCH_WARN>> %s");
SCH_MESSAGE(SCH_SYSLOG_MTS_ERR, 2, "<<%%%s-%d-SCH_SYSLOG_MTS_ERR>> MTS error: %s");
SCH_MESSAGE(SCH_SYSLOG_FILE_ERR, 3, "<<%%%s-%d-SCH_SYSLOG_FILE_ERR>> %s Error:%s");
SCH_MESSAGE(SCH_SYSLOG_PSS_ERR, 3, "<<%%%s-%d-SCH_SYSLOG_PSS_ERR>> Purpose:%s URI:%s Error:%d");
SCH_MESSAGE(SCH_SYSLOG_MALLOC_ERR, 2, "<<%%%s-%d-SCH_SYSLOG_MALLOC_ERR>> Out of memory: %s");
SCH_MESSAGE(SCH_SYSLOG_SDWRAP_ERR, 2,
            "<<%%%s-%d-SCH_SYSLOG_SDWRAP_ERR>> Debug infrastructure initialization failed: %s");
SCH_MESSAGE(SCH_SYSLOG_PSS_SNAPSHOT_ERR, 2,
            "<<%%%s-%d-SCH_SYSLOG_PSS_SNAPSHOT_ERR>> Source URI:%s Destination URI:%s errcode:%d");
SCH_MESSAGE(SCH_SYSLOG_USER_ERR, 3,
            "<<%%%s-%d-SCH_SYSLOG_USER_ERR>> Description: Failed to execute job for user id %s Error:%d");

#undef SCH_MESSAGE
