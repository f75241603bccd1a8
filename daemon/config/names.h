// The one rule for the names of new jobs and schedules, and the conversion of a name to the
// library's fixed field.
#ifndef SCHEDD_CONFIG_NAMES_H
#define SCHEDD_CONFIG_NAMES_H

#include <string_view>

#include "schedcli/db.h"

namespace schedd {

// The library's rule for names of new jobs and schedules (sch_name_is_config_word): names become
// command words in the configuration text, so nothing else may get in.
bool valid_new_name(std::string_view name);

// A name as the library's lookups take it: NUL-terminated in a field of SCH_NAME_SIZE bytes. A
// longer name is cut, and then names nothing that exists.
struct NameField {
  explicit NameField(std::string_view name);
  char text[SCH_NAME_SIZE + 1] = {};
  bool fits = true;
};

}  // namespace schedd

#endif
