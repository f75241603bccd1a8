// Comparing names held in fixed 32-byte fields, which are not terminated when full.
#ifndef SCHEDCLI_LIB_DB_NAMES_H
#define SCHEDCLI_LIB_DB_NAMES_H

#include <cstring>

#include "db/records.h"

namespace sch {

// The field holds exactly `name`.
inline bool name_equals(const char (&field)[SCH_NAME_SIZE], const char *name) {
  if (!name) return false;
  size_t length = strnlen(field, SCH_NAME_SIZE);
  return std::strlen(name) == length && std::memcmp(field, name, length) == 0;
}

// Two fields hold the same name.
inline bool names_equal(const char (&a)[SCH_NAME_SIZE], const char (&b)[SCH_NAME_SIZE]) {
  return std::strncmp(a, b, SCH_NAME_SIZE) == 0;
}

// The field begins with `prefix` (an empty prefix matches every field).
template <size_t N>
inline bool field_begins_with(const char (&field)[N], const char *prefix) {
  if (!prefix) return false;
  size_t length = std::strlen(prefix);
  return length <= N && std::strncmp(field, prefix, length) == 0;
}

// Copies `text` into a fixed field, cut to leave room for a terminator, rest zero.
template <size_t N>
inline void copy_to_field(char (&field)[N], const char *text) {
  std::memset(field, 0, N);
  if (text) std::memcpy(field, text, strnlen(text, N - 1));
}

}  // namespace sch

#endif
