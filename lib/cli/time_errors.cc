// The operator's explanation of a refused time string, by the form the command expects.
#include <cstdio>

#include "cli/request.h"
#include "schedcli/cli.h"
#include "schedcli/status.h"

namespace {

void say(const char *line) { std::fputs(line, stderr); }

void explain_format(uint32_t code, int kind) {
  say("Incorrect time format. ");
  switch (kind) {
    case SCH_MODIFY_ONESHOT:
      say("Should be yyyy:mmm:dd:HH:MM or +dd:HH:MM\n");
      break;
    case SCH_MODIFY_DAILY:
      say("Should be HH:MM\n");
      break;
    case SCH_MODIFY_WEEKLY:
      say("Should be dow:HH:MM\n");
      break;
    case SCH_MODIFY_MONTHLY:
      say("Should be dm:HH:MM\n");
      break;
    case SCH_MODIFY_START_REPEAT:
      say("Should be dd:HH:MM\n");
      break;
    default:
      std::fprintf(stderr, "Error %d. Format unknown\n", static_cast<int>(code));
      break;
  }
}

// The monthly lines lack the period after the format, unlike daily, weekly and repeat: intended.
void explain_range(int kind) {
  say("Value out of range\n");
  switch (kind) {
    case SCH_MODIFY_ONESHOT:
      say("Should be yyyy:mmm:dd:HH:MM or +dd:HH:MM\n");
      say("    mmm = {1..12} or Jan, Feb...Dec\n");
      break;
    case SCH_MODIFY_DAILY:
      say("Should be HH:MM.\n");
      say("    HH = {0..23}\n");
      say("    MM = {0..59}\n");
      break;
    case SCH_MODIFY_WEEKLY:
      say("Should be dow:HH:MM.\n");
      say("    dow = {1..7} or Sun,Mon ... Sat\n");
      say("    HH = {0..23}\n");
      say("    MM = {0..59}\n");
      break;
    case SCH_MODIFY_MONTHLY:
      say("Should be dm:HH:MM\n");
      say("    dm = {1..31}\n");
      say("    HH = {0..23}\n");
      say("    MM = {0..59}\n");
      break;
    case SCH_MODIFY_START_REPEAT:
      say("Should be dd:HH:MM.\n");
      say("    dd,HH,MM = {1..99}\n");
      break;
    default:
      std::fprintf(stderr, "Error %d. Format unknown.\n", static_cast<int>(SCH_STATUS_OUT_OF_RANGE));
      break;
  }
}

}  // namespace

extern "C" void sch_cli_disp_error(uint32_t code, int kind) {
  if (code == SCH_STATUS_TIME_IN_PAST) {
    say("Specified time is in the past\n");
  } else if (code == SCH_STATUS_TIME_FORMAT || code == SCH_STATUS_TIME_FORMAT_ALT) {
    explain_format(code, kind);
  } else if (code == SCH_STATUS_OUT_OF_RANGE) {
    explain_range(kind);
  } else {
    std::fprintf(stderr, "Error %d.\n", static_cast<int>(code));
  }
}
