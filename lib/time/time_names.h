// Views into the shared name table for the day and month lookups.
#ifndef SCHEDCLI_LIB_TIME_TIME_NAMES_H
#define SCHEDCLI_LIB_TIME_TIME_NAMES_H

#include "schedcli/tminfo.h"

namespace sch {

inline constexpr int kDayNameCount = 7;
inline constexpr int kMonthNameCount = 12;
inline const char *const *day_names() { return sch_time_names; }
inline const char *const *month_names() { return sch_time_names + kDayNameCount; }

}  // namespace sch

#endif
