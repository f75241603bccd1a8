// Writers of the single-instance records: log file, feature flag and email transport.
#include "diag/trace.h"
#include "pss/store_io.h"

namespace codec = sch::codec;

namespace {

// One outcome trace per writer; these writers do not decode the code.
int outcome(uint32_t status, const char *success, const char *failure) {
  sch::trace(sch::kTraceRecord, "%s", status == 0 ? success : failure);
  return status == 0 ? 0 : -1;
}

// Transport records carry no name: all 40 bytes zero but the type, so one record of each exists.
sch_config_key transport_key(uint32_t type) { return sch::pss::make_key(type, 0, nullptr); }

}  // namespace

extern "C" {

int sch_save_log_file_entry_to_pss(pss2_handle store, sch_config_key *key, sch_log_file_record *log_file) {
  uint32_t status = sch::pss::store_record(store, *key, codec::kLogFileValue, log_file->writer_data);
  return outcome(status, "saving log file info success", "saving log file info FAILED");
}

int sch_save_condition_entry_to_pss(pss2_handle store, sch_config_key *key, uint32_t flag) {
  uint32_t status = sch::pss::store_record(store, *key, codec::kCondition, &flag);
  return outcome(status, "saving ENABLE flag success", "saving ENABLE flag FAILED");
}

int sch_save_email_from_conf_to_pss(pss2_handle store, sch_email_transport_conf *conf) {
  uint32_t status = sch::pss::store_record(store, transport_key(SCH_REC_EMAIL_FROM), codec::kEmailAddressValue, conf->from);
  return outcome(status, "saving Email FROM conf success", "saving Email FROM conf FAILED");
}

int sch_save_email_replyto_conf_to_pss(pss2_handle store, sch_email_transport_conf *conf) {
  uint32_t status =
      sch::pss::store_record(store, transport_key(SCH_REC_EMAIL_REPLY_TO), codec::kEmailAddressValue, conf->reply_to);
  // The two texts differ in capitalisation; both are the system's own.
  return outcome(status, "saving Email reply-to conf success", "saving Email Reply-to conf FAILED");
}

int sch_save_email_smtpserver_conf_to_pss(pss2_handle store, sch_email_transport_conf *conf) {
  uint32_t status =
      sch::pss::store_record(store, transport_key(SCH_REC_EMAIL_SMTP), codec::kSmtpServerValue, conf->smtp_server);
  return outcome(status, "saving Email smtpserver conf success", "saving Email smtpserver conf FAILED");
}

}  // extern "C"
