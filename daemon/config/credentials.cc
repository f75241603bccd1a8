// The model's stored job-execution credentials: store one, delete one.
#include "config/database.h"
#include "config/deleters.h"
#include "config/fields.h"
#include "config/model.h"
#include "config/text_rules.h"
#include "db/alloc_kinds.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/status.h"

namespace schedd {

namespace {

sch_user_element *find_user(std::string_view user) {
  char field[SCH_USER_NAME_SIZE];
  copy_text(field, user);
  return sch_find_user_info(&sch_uname_q, field);
}

}  // namespace

uint32_t Model::store_credential(std::string_view user, std::string_view encrypted_password) {
  if (user.empty() || user.size() >= SCH_USER_NAME_SIZE || encrypted_password.size() >= SCH_PASSWORD_SIZE) {
    return SCH_STATUS_BAD_REQUEST;
  }
  if (encrypted_password.empty()) return SCH_STATUS_NO_CREDENTIAL;
  // Both are words of the "username ... password 7 ..." line.
  if (!plain_word(user) || !plain_word(encrypted_password)) return SCH_STATUS_BAD_TEXT;
  if (sch_user_element *element = find_user(user)) {
    sch_user_config_record record = element->record;
    copy_text(record.password, encrypted_password);
    uint32_t status = durably(pss_running, [&] { return sch_save_user_config_entry_to_pss(pss_running, &record) == 0; });
    if (status == 0) element->record = record;
    return status;
  }
  auto *element = static_cast<sch_user_element *>(
      sch_malloc_check(sizeof(sch_user_element), sch::alloc::kUser, 0, sch::alloc::kUserConfig));
  if (!element) return SCH_STATUS_NO_MEMORY;
  copy_text(element->record.user, user);
  copy_text(element->record.password, encrypted_password);
  // The record word spreads users whose names share their first 32 bytes (the key's name field)
  // over different keys.
  element->record.word = sch_uname_to_hash(element->record.user);
  uint32_t status =
      durably(pss_running, [&] { return sch_save_user_config_entry_to_pss(pss_running, &element->record) == 0; });
  if (status != 0) {
    mtrack_free(element);
    return status;
  }
  sch_add_user_info(&sch_uname_q, element);
  return 0;
}

uint32_t Model::delete_credential(std::string_view user) {
  sch_user_element *element = find_user(user);
  if (!element) return 0;
  uint32_t status = durably(pss_running, [&] { return delete_user_record(pss_running, element->record); });
  if (status == 0) sch_delete_user_info(&sch_uname_q, element);
  return status;
}

}  // namespace schedd
