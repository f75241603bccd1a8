// Fuzzing of the time strings and the time checks: any operator text, and any 40 bytes taken as a
// record, must come back with one of the documented results and nothing else.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "schedcli/status.h"
#include "schedcli/tminfo.h"
#include "write_confinement.h"

namespace {

constexpr int kFormat = -static_cast<int>(SCH_STATUS_TIME_FORMAT);
constexpr int kOutOfRange = -static_cast<int>(SCH_STATUS_OUT_OF_RANGE);
constexpr int kInPast = -static_cast<int>(SCH_STATUS_TIME_IN_PAST);

void require(bool holds) {
  if (!holds) std::abort();
}

void check_verify(const tminfo &t) {
  int result = sch_verify_tminfo(&t);
  require(result == 0 || result == kOutOfRange || result == kInPast);
}

void check_text(const char *text) {
  tminfo t;
  std::memset(&t, 0xff, sizeof t);  // every word -1, as the commands preset it
  int parsed = sch_parse_str_to_tminfo(text, &t);
  require(parsed == 0 || parsed == SCH_TM_BAD_SHAPE || parsed == SCH_TM_BAD_FIELD);
  // The parser writes time fields only.
  require(t.type == -1 && t.start_time == -1 && t.last_time == -1 && t.reserved == -1);
  for (int32_t type : {SCH_TM_ONESHOT, SCH_TM_DAILY, SCH_TM_WEEKLY, SCH_TM_MONTHLY}) {
    t.type = type;
    check_verify(t);
  }

  // Berlin's spring change: 29 March 2026, 01:59:30 local standard time.
  time_t instant = 1774745970;
  struct tm now {};
  localtime_r(&instant, &now);
  tminfo start{};
  int result = get_start_time(text, &start, &now);
  require(result == 0 || result == kFormat || result == kOutOfRange || result == kInPast);
}

void check_record(const uint8_t *data) {
  tminfo t;
  std::memcpy(&t, data, sizeof t);
  check_verify(t);
  uint32_t delta = 0;
  require(sch_compute_delta(&t, &delta) == 0);
  timeval interval{-1, -1};
  time_t next = -1;
  int result = sch_compute_timer_interval(&t, &interval, &next);
  require(result == -1 || (result == 0 && interval.tv_sec >= 0 && interval.tv_usec == 0));
  normalize_day_of_month(t.year, static_cast<unsigned>(t.month), t.day_of_month);
  normalize_incremental_time(&t);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
  fuzz::confine_writes(*argc, *argv);
  // A zone with daylight-saving time, so that both flags reach mktime.
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // The parser takes NUL-terminated text: hand it a terminated copy of exactly the input.
  std::string text(reinterpret_cast<const char *>(data), size);
  check_text(text.c_str());
  if (size >= sizeof(tminfo)) check_record(data);
  return 0;
}
