// The three-letter day and month names that time strings may use.
#include "schedcli/tminfo.h"

// One table for both lookups: days are entries 0..6, months begin at entry 7.
const char *const sch_time_names[19] = {
    "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat",
    "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec",
};
