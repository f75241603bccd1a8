// The operator's time strings: fields taken from the right, numbers or three-letter names.
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "diag/trace.h"
#include "schedcli/tminfo.h"
#include "time/time_names.h"

namespace {

// Input beyond 17 characters is cut without notice: no accepted shape needs more.
constexpr size_t kParseBuffer = 18;
constexpr int kNameMatched = 99;

bool read_number(const char *text, int32_t *out) {
  int value = 0;
  if (std::sscanf(text, "%d", &value) != 1) return false;
  *out = value;
  return true;
}

bool read_name_or_number(const char *text, const char *const *names, int count, int *out) {
  int result = get_val(text, names, count, out);
  return result == 1 || result == kNameMatched;
}

// Cuts the buffer at its last colon and returns the text behind it, or nullptr when no colon is
// left (the whole buffer is then the last field).
char *cut_last_field(char *buffer) {
  char *colon = std::strrchr(buffer, ':');
  if (colon == nullptr) return nullptr;
  *colon = '\0';
  return colon + 1;
}

}  // namespace

extern "C" {

int get_val(const char *text, const char *const *names, int count, int *out) {
  for (int i = 0; i < count; i++) {
    // Three letters decide: "sunday", "SUN" and "Sunxyz" are all Sunday.
    if (strncasecmp(text, names[i], 3) == 0) {
      *out = i + 1;
      return kNameMatched;
    }
  }
  return std::sscanf(text, "%d", out);
}

int sch_parse_str_to_tminfo(const char *text, tminfo *t) {
  char buffer[kParseBuffer];
  std::snprintf(buffer, sizeof buffer, "%s", text);
  if (buffer[0] == ':') return SCH_TM_BAD_SHAPE;
  sch::trace(sch::kTraceRecord, "parse str %s", buffer);

  char *field = cut_last_field(buffer);
  if (field == nullptr) {
    sch::trace(sch::kTraceRecord, "minute str %s", buffer);
    if (!read_number(buffer, &t->minute)) return SCH_TM_BAD_FIELD;
    sch::trace(sch::kTraceRecord, "- minute retrieved");
    return 0;
  }
  sch::trace(sch::kTraceRecord, "minute str %s", field);
  if (!read_number(field, &t->minute)) return SCH_TM_BAD_FIELD;
  sch::trace(sch::kTraceRecord, "minute retrieved");

  field = cut_last_field(buffer);
  if (field == nullptr) {
    sch::trace(sch::kTraceRecord, "hour str %s", buffer);
    if (!read_number(buffer, &t->hour)) return SCH_TM_BAD_FIELD;
    sch::trace(sch::kTraceRecord, "- hour retrieved");
    return 0;
  }
  sch::trace(sch::kTraceRecord, "hour str %s", field);
  if (!read_number(field, &t->hour)) return SCH_TM_BAD_FIELD;
  sch::trace(sch::kTraceRecord, "hour retrieved");

  // The day is looked up among day names in every shape, so "Mon" as a day of month is 2: kept
  // as the operators know it. A three-field day goes to day_of_week; the monthly command moves
  // it to day_of_month itself.
  int day = 0;
  field = cut_last_field(buffer);
  if (field == nullptr) {
    sch::trace(sch::kTraceRecord, "dw/dm %s", buffer);
    if (!read_name_or_number(buffer, sch::day_names(), sch::kDayNameCount, &day)) {
      return SCH_TM_BAD_FIELD;
    }
    t->day_of_week = day;
    sch::trace(sch::kTraceRecord, "- day retrieved");
    return 0;
  }
  sch::trace(sch::kTraceRecord, "dw/dm %s", field);
  if (!read_name_or_number(field, sch::day_names(), sch::kDayNameCount, &day)) {
    return SCH_TM_BAD_FIELD;
  }
  sch::trace(sch::kTraceRecord, "day retrieved");

  int month = 0;
  field = cut_last_field(buffer);
  const char *month_text = field != nullptr ? field : buffer;
  sch::trace(sch::kTraceRecord, "month %s", month_text);
  if (!read_name_or_number(month_text, sch::month_names(), sch::kMonthNameCount, &month)) {
    return SCH_TM_BAD_FIELD;
  }
  t->day_of_month = day;
  t->month = month;
  if (field == nullptr) {
    sch::trace(sch::kTraceRecord, "- month retrieved");
    return 0;
  }
  sch::trace(sch::kTraceRecord, "month retrieved");

  if (std::strchr(buffer, ':') != nullptr) return SCH_TM_BAD_SHAPE;
  sch::trace(sch::kTraceRecord, "year %s", buffer);
  if (!read_number(buffer, &t->year)) return SCH_TM_BAD_FIELD;
  sch::trace(sch::kTraceRecord, "- year retrieved");
  return 0;
}

}  // extern "C"
