// The rule for job and schedule names.
#include <regex.h>

#include "schedcli/cli.h"

extern "C" int sch_cli_check_name(const char *name) {
  if (!name) return 0;
  // Compiled on every call: names are checked once per command, and nothing is kept between them.
  regex_t expression;
  if (regcomp(&expression, "^[0-9A-Za-z][0-9A-Za-z_-]*$", 0) != 0) return 0;
  int matched = regexec(&expression, name, 0, nullptr, 0) == 0;
  regfree(&expression);
  return matched;
}
