// The scheduler's configuration as command lines for the configuration framework.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "db/alloc_kinds.h"
#include "db/codec.h"
#include "diag/trace.h"
#include "schedcli/acfg.h"
#include "schedcli/platform/bitset.h"
#include "schedcli/platform/mtrack.h"

uint32_t cfg_type = 0;
uint32_t filter_mode = 0;
char cfg_line[SCH_CFG_LINE_SIZE];

namespace {

constexpr uint32_t kMainElement = 1;
constexpr uint32_t kLoggingElement = 2;
constexpr uint32_t kFeatureElement = 3;

// Formats one line into cfg_line and adds it to an element.
void add_line(acfg_handle *handle, uint32_t element, int indent, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
void add_line(acfg_handle *handle, uint32_t element, int indent, const char *format, ...) {
  std::memset(cfg_line, 0, sizeof cfg_line);
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(cfg_line, sizeof cfg_line, format, arguments);
  va_end(arguments);
  acfg_elem_str_add_indent(handle, element, cfg_line, indent);
}

// The stored logging level, when there is one worth a line: a record of at least two words whose
// marker is 1, and a level of 0..7 other than the default.
bool stored_logging_level(pss2_handle store, uint32_t *level) {
  uint32_t status = 2;
  pss2_datum value = pss2_fetch(store, sch_get_syslog_pss_key(), &status);
  if (status == PSS2_ERR_NO_KEY || !value.data || status != 0 || value.length <= 7) return false;
  const auto *bytes = static_cast<const uint8_t *>(value.data);
  if (sch::codec::get_u32(bytes) != 1) return false;
  *level = sch::codec::get_u32(bytes + 4);
  return *level <= 7 && *level != SCH_LOGGING_LEVEL_DEFAULT;
}

}  // namespace

extern "C" {

pss2_datum *sch_get_syslog_pss_key(void) {
  static uint8_t key[4];
  static pss2_datum descriptor;
  sch::codec::put_u32(key, SCH_SYSLOG_PSS_KEY);
  descriptor = {key, sizeof key};
  return &descriptor;
}

void sch_acfg_gen(sch_config_set *set, acfg_handle *handle, pss2_handle store) {
  acfg_elem_add(handle, SCH_ACFG_COMPONENT, kMainElement, 12);
  acfg_elem_add(handle, SCH_ACFG_COMPONENT, kFeatureElement, 2);
  acfg_elem_add(handle, SCH_ACFG_COMPONENT, kLoggingElement, 3);

  uint32_t level = 0;
  if (store && stored_logging_level(store, &level)) {
    char line[128];
    std::snprintf(line, sizeof line, "logging level %s %d\n", "scheduler", static_cast<int>(level));
    acfg_elem_dependency_add(handle, kLoggingElement, 118, 1);
    acfg_elem_group_config_str_add(handle, 115, 0, 3, line);
  }
  // The feature line does not depend on the enable flag: the text recreates an enabled feature.
  add_line(handle, kFeatureElement, 0, "feature scheduler\n");
  if (sch_log_file.size_limit != SCH_LOG_FILE_SIZE_DEFAULT) {
    add_line(handle, kMainElement, 0, "scheduler logfile size %d\n\n", static_cast<int>(sch_log_file.size_limit) / 1024);
  }
  sch_acfg_user_info_cfg_gen(handle);
  const sch_email_transport_conf &conf = email_transport_conf;
  if (conf.from[0]) add_line(handle, kMainElement, 0, "scheduler transport email from %.64s\n", conf.from);
  if (conf.reply_to[0]) add_line(handle, kMainElement, 0, "scheduler transport email reply-to %.64s\n", conf.reply_to);
  if (conf.smtp_server[0]) {
    if (conf.smtp_port == SCH_SMTP_PORT_DEFAULT) {
      // Two blanks before the server when the port is the default: the system's own text.
      add_line(handle, kMainElement, 0, "scheduler transport email smtp-server  %.256s\n", conf.smtp_server);
    } else {
      add_line(handle, kMainElement, 0, "scheduler transport email smtp-server %.256s port %d\n", conf.smtp_server,
               static_cast<int>(conf.smtp_port));
    }
  }
  sch_acfg_job_cfg_gen(set, handle);
  sch_acfg_schedule_cfg_gen(set, handle);
}

void sch_acfg_user_info_cfg_gen(acfg_handle *handle) {
  queue_header *queue = cfg_type == 2 ? &sch_uname_acfg_q : cfg_type == 1 ? &sch_uname_q : nullptr;
  for (auto *user = queue ? static_cast<sch_user_element *>(peek_head(queue)) : nullptr; user;
       user = static_cast<sch_user_element *>(user->link)) {
    sch_acfg_user_info_print(handle, &user->record);
  }
  add_line(handle, kMainElement, 0, "\n");
}

void sch_acfg_user_info_print(acfg_handle *handle, const sch_user_config_record *user) {
  // The stored password is already the encrypted form, hence type 7; it is never decrypted here.
  const char *password = (filter_mode & ACFG_FILTER_HIDE_PASSWORDS) ? "<removed>" : user->password;
  add_line(handle, kMainElement, 0, "scheduler aaa-authentication username %.128s password 7 %.128s\n", user->user,
           password);
}

void sch_acfg_job_cfg_gen(sch_config_set *set, acfg_handle *handle) {
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    if (set->jobs[id].key) sch_add_job_cfg(set, handle, &set->jobs[id]);
  }
}

void sch_add_job_cfg(sch_config_set * /*set*/, acfg_handle *handle, sch_job_slot *job) {
  add_line(handle, kMainElement, 0, "scheduler job name %.32s\n", job->key->name);
  // A header from a damaged store can claim more text than the fragments hold (or a length that
  // is negative as a count): the text is what the fragments can give, as the runner takes it.
  size_t held = g_list_length(job->fragments) * size_t{SCH_FRAGMENT_SIZE};
  int length = job->header ? static_cast<int>(std::min<size_t>(job->header->length, held)) : 0;
  auto *text = static_cast<char *>(
      sch_malloc_check(static_cast<size_t>(length) + 2, sch::alloc::kJobText, 0, sch::alloc::kCreateScriptFile));
  if (text) {
    sch_concat_fragments(job->fragments, text, length);
    acfg_elem_str_add_indent(handle, kMainElement, text, 0);
    mtrack_free(text);
  }
  add_line(handle, kMainElement, 0, "end-job\n\n");
}

void sch_acfg_schedule_cfg_gen(sch_config_set *set, acfg_handle *handle) {
  for (GList *element = g_list_first(*set->schedules); element; element = element->next) {
    sch_add_schedule_cfg(set, handle, element);
  }
}

void sch_add_schedule_cfg(sch_config_set *set, acfg_handle *handle, GList *element) {
  auto *schedule = static_cast<sch_schedule_entry *>(element->data);
  add_line(handle, kMainElement, 0, "scheduler schedule name %.32s\n", schedule->key->name);
  for (int id = bitset_next_bit(schedule->value->jobs, SCH_MAX_JOBS, -1); id >= 0;
       id = bitset_next_bit(schedule->value->jobs, SCH_MAX_JOBS, id)) {
    if (id <= 255 && set->jobs[id].key) add_line(handle, kMainElement, 1, "job name %.32s\n", set->jobs[id].key->name);
  }
  char time_line[128] = "  ";
  sch_acfg_print_schedule_type(&schedule->value->time, time_line, sizeof time_line);
  acfg_elem_str_add_indent(handle, kMainElement, time_line, 0);

  char name[SCH_NAME_SIZE + 1] = {};
  std::memcpy(name, schedule->key->name, SCH_NAME_SIZE);
  sch_schedule_email_entry *emails = nullptr;
  sch_find_schedule_email_entry(&sch_schedule_email_list, name, &emails);
  if (emails && emails->count) {
    for (const sch_email_slot &slot : emails->slots) {
      if (slot.in_use) add_line(handle, kMainElement, 0, "email-addr %.64s\n", slot.address);
    }
  }
  add_line(handle, kMainElement, 0, "\n");
}

void sch_acfg_print_schedule_type(const tminfo *time, char *buffer, size_t size) {
  if (!buffer || !time || static_cast<uint32_t>(time->type) > 7) return;
  auto positive = [](int32_t value) { return value < 0 ? 0 : value; };
  switch (time->type) {
    case 1:
      std::snprintf(buffer, size, "  time start %d:%02d:%02d:%02d:%02d\n", time->year + 1900, time->month + 1,
                    time->day_of_month, time->hour, time->minute);
      break;
    case 3:
      if (time->hour < 0) {
        std::snprintf(buffer, size, "  time daily %02d\n", time->minute);
      } else {
        std::snprintf(buffer, size, "  time daily %02d:%02d\n", time->hour, time->minute);
      }
      break;
    case 4:
      std::snprintf(buffer, size, "  time weekly %02d:%02d:%02d\n", positive(time->day_of_week), positive(time->hour),
                    time->minute);
      break;
    case 5:
      std::snprintf(buffer, size, "  time monthly %02d:%02d:%02d\n", positive(time->day_of_month),
                    positive(time->hour), positive(time->minute));
      break;
    case 7: {
      time_t start = time->start_time;
      struct tm local {};
      localtime_r(&start, &local);
      std::snprintf(buffer, size, "  time start %d:%02d:%02d:%02d:%02d repeat %d:%d:%d\n", local.tm_year + 1900,
                    local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, time->day_of_week,
                    positive(time->hour), time->minute);
      break;
    }
    default:
      break;  // no kind of schedule: the line stays as the caller set it
  }
}

}  // extern "C"
