// The model's answers to "who answers for this": a schedule's user, and the users of the schedules
// that run a job. The requests layer decides with them who may change what.
#include "config/database.h"
#include "config/fields.h"
#include "config/model.h"
#include "config/names.h"

namespace schedd {

std::optional<std::string> Model::schedule_user(std::string_view name) const {
  NameField field(name);
  sch_schedule_entry *schedule = nullptr;
  if (!field.fits || sch_find_schedule(database(), field.text, &schedule) != 0 || !schedule) return std::nullopt;
  return std::string(field_text(schedule->value->user));
}

std::optional<std::vector<std::string>> Model::job_schedule_users(std::string_view name) const {
  NameField field(name);
  sch_job_slot *slot = nullptr;
  int id = field.fits ? sch_find_job(database(), field.text, &slot) : -1;
  if (id < 0) return std::nullopt;
  std::vector<std::string> users;
  for (GList *element = g_list_first(*database()->schedules); element; element = element->next) {
    auto *schedule = static_cast<sch_schedule_entry *>(element->data);
    if (job_assigned(*schedule->value, id)) users.emplace_back(field_text(schedule->value->user));
  }
  return users;
}

}  // namespace schedd
