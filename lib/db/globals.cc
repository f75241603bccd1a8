// The database's globals: the live set, the private startup copy and the single-instance records.
#include "schedcli/db.h"

sch_job_slot sch_job_list[SCH_MAX_JOBS];
sch_job_slot startup_job_list[SCH_MAX_JOBS];
GList *sch_schedule_list = nullptr;
GList *startup_schedule_list = nullptr;
sch_config_set sch_running_config = {sch_job_list, &sch_schedule_list};
sch_config_set sch_startup_config = {startup_job_list, &startup_schedule_list};
GList *sch_schedule_email_list = nullptr;
queue_header sch_uname_q;
queue_header sch_uname_acfg_q;

uint32_t scheduler_enabled = 0;
sch_log_file_record sch_log_file = {{}, {}, SCH_LOG_FILE_SIZE_DEFAULT, 0, 0, 0, {}};
sch_email_transport_conf email_transport_conf = {{}, {}, {}, {}, 0, SCH_SMTP_PORT_DEFAULT, {}};
sch_config_key sch_log_file_key = {SCH_REC_LOG_FILE, 0, {}};
sch_config_key sch_condition_key = {SCH_REC_CONDITION, 0, {}};
sch_config_key sch_global_emailconf_key = {};
