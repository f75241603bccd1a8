// The rules for job and schedule names and for mail servers' host names.
#include <regex.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "db/records.h"
#include "schedcli/cli.h"

namespace {

bool letter_or_digit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

}  // namespace

extern "C" int sch_cli_check_name(const char *name) {
  if (!name) return 0;
  // Compiled on every call: names are checked once per command, and nothing is kept between them.
  regex_t expression;
  if (regcomp(&expression, "^[0-9A-Za-z][0-9A-Za-z_-]*$", 0) != 0) return 0;
  int matched = regexec(&expression, name, 0, nullptr, 0) == 0;
  regfree(&expression);
  return matched;
}

// Explicit ASCII ranges rather than the regular expression or isalnum: in another locale either
// may accept letters that are no command word of the configuration text.
extern "C" int sch_name_is_config_word(const char *name) {
  if (!name || !letter_or_digit(name[0])) return 0;
  for (size_t i = 1; i < SCH_NAME_SIZE; i++) {
    if (name[i] == '\0') return 1;
    if (!letter_or_digit(name[i]) && name[i] != '_' && name[i] != '-') return 0;
  }
  return 0;  // no terminator inside the field
}

extern "C" int sch_is_host_name(const char *host) {
  if (!host) return 0;
  std::string_view name(host, strnlen(host, 254));
  if (name.empty() || name.size() > 253) return 0;
  std::string_view last;
  for (size_t begin = 0; begin <= name.size();) {
    size_t end = std::min(name.find('.', begin), name.size());
    std::string_view label = name.substr(begin, end - begin);
    bool valid = !label.empty() && label.size() <= 63 && label.front() != '-' && label.back() != '-' &&
                 std::all_of(label.begin(), label.end(), [](char c) { return letter_or_digit(c) || c == '-'; });
    if (!valid) return 0;
    last = label;
    begin = end + 1;
  }
  return !std::all_of(last.begin(), last.end(), [](char c) { return c >= '0' && c <= '9'; });
}
