// The fixed, NUL-padded text fields of records and requests: the checks made on them and the
// conversions to and from text.
#ifndef SCHEDD_CONFIG_FIELDS_H
#define SCHEDD_CONFIG_FIELDS_H

#include <cstring>
#include <string_view>

namespace schedd {

// A text field holds its terminator within its width.
template <size_t N>
bool terminated(const char (&field)[N]) {
  return std::memchr(field, '\0', N) != nullptr;
}

// A terminated field with at least one character.
template <size_t N>
bool holds_text(const char (&field)[N]) {
  return terminated(field) && field[0] != '\0';
}

// The field's text, which need not be terminated when it fills the field.
template <size_t N>
std::string_view field_text(const char (&field)[N]) {
  return std::string_view(field, strnlen(field, N));
}

// Copies at most N - 1 characters of `text` into the field, the rest zero.
template <size_t N>
void copy_text(char (&field)[N], std::string_view text) {
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), text.size() < N ? text.size() : N - 1);
}

}  // namespace schedd

#endif
