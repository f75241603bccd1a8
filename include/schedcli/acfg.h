/* Configuration text: the scheduler's configuration rendered as the command lines that recreate
 * it, for the configuration framework (running configuration from the live database, startup
 * configuration from a private copy restored from the startup store). */
#ifndef SCHEDCLI_ACFG_H
#define SCHEDCLI_ACFG_H

#include <stddef.h>
#include <stdint.h>

#include "schedcli/db.h"
#include "schedcli/export.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/pss.h"

SCHED_BEGIN_DECLS

#define SCH_CFG_LINE_SIZE 2048
#define SCH_ACFG_COMPONENT 224u

/* The request being served: configuration kind (1 running, 2 startup) and the shell's filter
 * bits (2 hides passwords); the one line buffer every line is formatted into. */
SCHED_EXPORT extern uint32_t cfg_type;
SCHED_EXPORT extern uint32_t filter_mode;
SCHED_EXPORT extern char cfg_line[SCH_CFG_LINE_SIZE];

/* The framework's callback: renders the requested configuration and answers with acfg_respond,
 * whose result it returns. A startup request restores the startup store into the private copy
 * (refreshing the live single-instance records as restore does) and frees the copy after. */
SCHED_EXPORT uint32_t sch_acfgcb_cfg_gen(void *context, acfg_message *message);
/* Renders one configuration set; `store` (0 for none) holds the logging-level record. */
SCHED_EXPORT void sch_acfg_gen(sch_config_set *set, acfg_handle *handle, pss2_handle store);
SCHED_EXPORT void sch_acfg_user_info_cfg_gen(acfg_handle *handle);
SCHED_EXPORT void sch_acfg_user_info_print(acfg_handle *handle, const sch_user_config_record *user);
SCHED_EXPORT void sch_acfg_job_cfg_gen(sch_config_set *set, acfg_handle *handle);
SCHED_EXPORT void sch_add_job_cfg(sch_config_set *set, acfg_handle *handle, sch_job_slot *job);
SCHED_EXPORT void sch_acfg_schedule_cfg_gen(sch_config_set *set, acfg_handle *handle);
SCHED_EXPORT void sch_add_schedule_cfg(sch_config_set *set, acfg_handle *handle, GList *schedule);
/* The schedule's time line into `buffer`; nothing for a NULL buffer or a type above 7. */
SCHED_EXPORT void sch_acfg_print_schedule_type(const tminfo *time, char *buffer, size_t size);
/* Descriptor of the logging-level key (4 bytes: the number 22, stored big-endian). */
SCHED_EXPORT pss2_datum *sch_get_syslog_pss_key(void);

#define SCH_SYSLOG_PSS_KEY 22u
#define SCH_LOGGING_LEVEL_DEFAULT 5u

SCHED_END_DECLS

#endif
