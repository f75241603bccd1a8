// The name rule of jobs and schedules.
#include "config/names.h"

#include <cstring>

#include "schedcli/cli.h"

namespace schedd {

bool valid_new_name(std::string_view name) {
  NameField field(name);
  return field.fits && sch_name_is_config_word(field.text) != 0;
}

NameField::NameField(std::string_view name) : fits(name.size() < SCH_NAME_SIZE) {
  std::memcpy(text, name.data(), fits ? name.size() : SCH_NAME_SIZE);
}

}  // namespace schedd
