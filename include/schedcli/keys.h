/* Conversion of the 40-byte record keys, in place, between host order and stored order. Only the
 * two integer words change; the name is bytes. On a big-endian host both directions are no-ops. */
#ifndef SCHEDCLI_KEYS_H
#define SCHEDCLI_KEYS_H

#include "db/records.h"
#include "schedcli/export.h"

SCHED_BEGIN_DECLS

SCHED_EXPORT void sch_hton_config_key(sch_config_key *key);
SCHED_EXPORT void sch_ntoh_config_key(sch_config_key *key);
SCHED_EXPORT void sch_hton_runtime_key(sch_runtime_key *key);
SCHED_EXPORT void sch_ntoh_runtime_key(sch_runtime_key *key);

SCHED_END_DECLS

#endif
