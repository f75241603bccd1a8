// The scheduler status words as the time functions return them: negated.
#ifndef SCHEDCLI_LIB_TIME_TIME_STATUS_H
#define SCHEDCLI_LIB_TIME_TIME_STATUS_H

#include "schedcli/status.h"

namespace sch {

inline constexpr int kTimeFormat = -static_cast<int>(SCH_STATUS_TIME_FORMAT);
inline constexpr int kTimeOutOfRange = -static_cast<int>(SCH_STATUS_OUT_OF_RANGE);
inline constexpr int kTimeInPast = -static_cast<int>(SCH_STATUS_TIME_IN_PAST);

}  // namespace sch

#endif
