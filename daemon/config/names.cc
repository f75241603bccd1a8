// The name rule of jobs and schedules.
#include "config/names.h"

#include <cctype>
#include <cstring>

namespace schedd {

bool valid_new_name(std::string_view name) {
  if (name.empty() || name.size() >= SCH_NAME_SIZE || !std::isalnum(static_cast<unsigned char>(name[0]))) {
    return false;
  }
  for (char c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-') return false;
  }
  return true;
}

NameField::NameField(std::string_view name) : fits(name.size() < SCH_NAME_SIZE) {
  std::memcpy(text, name.data(), fits ? name.size() : SCH_NAME_SIZE);
}

}  // namespace schedd
