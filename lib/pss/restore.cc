// Restore of a configuration or of the run results from a store, whole-configuration save, and
// deletion of a job's run results.
#include <algorithm>
#include <cstring>

#include "db/alloc_kinds.h"
#include "diag/trace.h"
#include "pss/store_io.h"
#include "pss/store_walk.h"
#include "schedcli/platform/mtrack.h"

using sch::kTraceRecord;
using sch::trace;
namespace codec = sch::codec;
using codec::ShortValue;

namespace {

std::span<const uint8_t> value_bytes(const pss2_datum &value) {
  if (!value.data || value.length <= 0) return {};
  return codec::bytes(value.data, static_cast<size_t>(value.length));
}

// A record is kept under the key its writer makes from its value, so a key that disagrees with the
// value marks a damaged record. Keeping it would hold in memory what no save can give back: the
// save files it under the value's key, where it may replace another record or sort elsewhere.
// Such a record is dropped, as a job header with an impossible id is.
bool key_made_from_value(const sch_config_key &key, const sch_config_key &made, const char *name) {
  if (key.type == made.type && key.sequence == made.sequence &&
      std::memcmp(key.name, made.name, sizeof key.name) == 0) {
    return true;
  }
  trace(kTraceRecord, "dropped record of type %d for %.32s: its key is not its value's", static_cast<int>(key.type),
        name);
  return false;
}

void restore_user(const sch_config_key &key, std::span<const uint8_t> value, int private_copy) {
  sch_user_config_record record{};
  codec::decode(codec::kUserRecord, value, &record, ShortValue::kZeroFill);
  if (!key_made_from_value(key, sch::pss::make_key(SCH_REC_USER, record.word, record.user), record.user)) return;
  trace(kTraceRecord, "restoring uname %.128s password %.128s from pss", record.user, record.password);
  auto *element = static_cast<sch_user_element *>(
      sch_malloc_check(sizeof(sch_user_element), sch::alloc::kUser, 0, sch::alloc::kUserConfig));
  if (!element) {
    trace(kTraceRecord, "Failed to allocate memory for q elem, username %.128s", record.user);
    return;
  }
  element->record = record;
  sch_add_user_info(private_copy ? &sch_uname_acfg_q : &sch_uname_q, element);
}

// Records of the single-instance kinds and of schedule emails go to the live globals whatever
// set is restored: a restore into the private copy refreshes them too. Intended.
void restore_record(sch_config_set *set, const sch_config_key &key, pss2_datum key_datum, pss2_datum value_datum,
                    int private_copy) {
  std::span<const uint8_t> value = value_bytes(value_datum);
  sch_email_transport_conf &conf = email_transport_conf;
  switch (key.type) {
    case SCH_REC_LOG_FILE:
      trace(kTraceRecord, "got log file entry");
      codec::decode(codec::kLogFileValue, value, sch_log_file.writer_data, ShortValue::kKeepCurrent);
      trace(kTraceRecord, "rd offset %d count %d", static_cast<int>(sch_log_file.read_offset),
            static_cast<int>(sch_log_file.count));
      break;
    case SCH_REC_CONDITION:
      codec::decode(codec::kCondition, value, &scheduler_enabled, ShortValue::kZeroFill);
      trace(kTraceRecord, scheduler_enabled ? "service ENABLED" : "service DISABLED");
      break;
    case SCH_REC_EMAIL_FROM:
      trace(kTraceRecord, "got Global Email from conf entry");
      codec::decode(codec::kEmailAddressValue, value, conf.from, ShortValue::kZeroFill);
      trace(kTraceRecord, "Configured Global email conf values :From :%.64s\n", conf.from);
      break;
    case SCH_REC_EMAIL_REPLY_TO:
      trace(kTraceRecord, "Got Global Email replyto conf entry\n");
      std::memset(conf.reply_to_copy, 0, sizeof conf.reply_to_copy);
      codec::decode(codec::kEmailAddressValue, value, conf.reply_to, ShortValue::kZeroFill);
      std::memcpy(conf.reply_to_copy, conf.reply_to, strnlen(conf.reply_to, sizeof conf.reply_to));
      trace(kTraceRecord, "Configured Global email conf values :reply-to :%.64s\n", conf.reply_to);
      break;
    case SCH_REC_EMAIL_SMTP:
      trace(kTraceRecord, "got smtp server conf entry");
      // A value shorter than the record leaves zeros rather than whatever followed it.
      codec::decode(codec::kSmtpServerValue, value, conf.smtp_server, ShortValue::kZeroFill);
      trace(kTraceRecord, "Configured Global email conf values :smtp server: %.256s, port:%d, vrf:%.256s",
            conf.smtp_server, static_cast<int>(conf.smtp_port), conf.vrf);
      break;
    case SCH_REC_SCHEDULE_EMAIL: {
      trace(kTraceRecord, "got schedule email conf entry");
      sch_schedule_email_entry record{};
      codec::decode(codec::kScheduleEmail, value, &record, ShortValue::kZeroFill);
      if (!key_made_from_value(key, sch::pss::make_key(SCH_REC_SCHEDULE_EMAIL, 0, record.schedule), record.schedule)) {
        break;
      }
      trace(kTraceRecord, "Configured schedule email conf for %.32s is %d\n", record.schedule,
            static_cast<int>(record.count));
      sch_add_schedule_email_entry_from_pss(&sch_schedule_email_list, &record);
      break;
    }
    case SCH_REC_USER:
      restore_user(key, value, private_copy);
      break;
    default:
      sch_add_config_entry(set, &key_datum, &value_datum);
      break;
  }
}

}  // namespace

extern "C" {

int sch_restore_config_from_pss(sch_config_set *set, pss2_handle store, int private_copy) {
  sch::pss::walk_store(store, [&](pss2_datum stored_key) {
    // The key's bytes are kept apart: the store's descriptor need not outlive the value read.
    uint8_t key_bytes[SCH_KEY_SIZE] = {};
    std::span<const uint8_t> key_image = value_bytes(stored_key);
    size_t key_length = std::min(key_image.size(), sizeof key_bytes);
    if (key_length) std::memcpy(key_bytes, key_image.data(), key_length);
    pss2_datum key_datum{key_bytes, static_cast<int32_t>(key_length)};
    sch_config_key key;
    codec::decode(codec::kConfigKey, codec::bytes(key_bytes, key_length), &key, ShortValue::kZeroFill);
    uint32_t value_status = 0;
    pss2_datum value = pss2_getvalue(store, &value_status);
    if (value_status != 0) {
      trace(kTraceRecord, "could not retrieve value for %.32s", key.name);
      return true;
    }
    trace(kTraceRecord, "got key type %d", static_cast<int>(key.type));
    restore_record(set, key, key_datum, value, private_copy);
    return true;
  });
  return 0;
}

int sch_restore_db_from_pss(sch_config_set *set, pss2_handle store) {
  sch::pss::walk_store(store, [&](pss2_datum key_datum) {
    sch_runtime_key key;
    codec::decode(codec::kConfigKey, value_bytes(key_datum), &key, ShortValue::kZeroFill);
    uint32_t value_status = 0;
    pss2_datum value = pss2_getvalue(store, &value_status);
    auto *result = static_cast<sch_runtime_job_status *>(
        sch_malloc_check(sizeof(sch_runtime_job_status), sch::alloc::kRunResult, 0, sch::alloc::kRestoreDb));
    if (!result) return false;  // out of memory ends the whole restore of run results
    std::memcpy(result->schedule, key.name, sizeof result->schedule);
    result->job_id = key.sequence;
    codec::decode(codec::kRunResultValue, value_status == 0 ? value_bytes(value) : std::span<const uint8_t>{},
                  result->result, ShortValue::kZeroFill);
    sch_add_runtime_job_status_entry(set, result);
    return true;
  });
  return 0;
}

int sch_save_config_to_pss(sch_config_set *set, pss2_handle store) {
  // One batch: nothing is acknowledged before all of it is durable, and a large configuration
  // is not paid for with one sync per record.
  bool batched = pss2_batch_begin(store) == 0;
  for (GList *element = g_list_first(*set->schedules); element; element = element->next) {
    auto *schedule = static_cast<sch_schedule_entry *>(element->data);
    trace(kTraceRecord, "pss save schedule %.32s", schedule->key->name);
    sch_save_schedule_entry_to_pss(store, schedule);
  }
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    sch_job_slot *job = &set->jobs[id];
    if (!job->key || !job->header || !job->fragments) continue;
    trace(kTraceRecord, "pss save job %.32s (%d)", job->key->name, id);
    sch_save_job_entry_to_pss(store, job);
  }
  sch_save_log_file_entry_to_pss(store, &sch_log_file_key, &sch_log_file);
  // Users always come from the live queue, whichever set is saved: intended. The condition,
  // transport and schedule email records are not part of this save either.
  for (auto *user = static_cast<sch_user_element *>(peek_head(&sch_uname_q)); user;
       user = static_cast<sch_user_element *>(user->link)) {
    sch_save_user_config_entry_to_pss(store, &user->record);
  }
  if (batched) pss2_batch_commit(store);
  return 0;
}

int sch_delete_all_status_for_job_from_pss(pss2_handle store, sch_job_slot *job) {
  while (GList *first = job->run_results) {
    auto *result = static_cast<sch_runtime_job_status *>(first->data);
    trace(kTraceRecord, "pss delete job (%.32s) status (%d)", job->key ? job->key->name : "",
          static_cast<int>(result->job_id));
    job->run_results = g_list_remove_link(job->run_results, first);
    sch_delete_job_status_entry_from_pss(store, result);
    mtrack_free(result);
    g_list_free_1(first);
  }
  return 0;
}

}  // extern "C"
