// show schedules: one schedule or all of them, with their time, last run and jobs.
#include "cli/request.h"
#include "cli/show_listing.h"

extern "C" int sch_cli_show_schedules(sch_cli_context *context) {
  static const sch::cli::Listing kSchedules = {.request_type = SCH_REQ_GET_SCHEDULES,
                                               .sending_trace = "send show schedule request",
                                               .check = sch::cli::check_schedule_reply,
                                               .display = display_schedule,
                                               .closing_trace = "successful run",
                                               .by_name = true,
                                               .ruled = true};
  return sch::cli::run_listing(context, kSchedules);
}
