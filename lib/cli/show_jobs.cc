// show jobs: one job or all of them, each with its command text.
#include <cstdio>

#include "cli/request.h"
#include "cli/request_frame.h"
#include "cli/show_listing.h"

extern "C" {

void display_job(const void *reply) {
  const auto *bytes = static_cast<const uint8_t *>(reply);
  sch_job_reply head;
  sch_wire_decode(SCH_WIRE_JOB_REPLY, bytes, sizeof head, &head);
  int name_length = sch::cli::name_length(head.name);
  std::printf("Job Name: %.*s\n", name_length, head.name);
  // Ten dashes for "Job Name: ", then as many as the name: the underline spans the line above.
  std::fputs("----------", stdout);
  print_line(name_length, '-');
  std::putchar('\n');
  // The text brings its own newlines.
  for (int32_t i = 0; i < head.text_length; i++) std::putc(bytes[sizeof head + static_cast<size_t>(i)], stdout);
}

int sch_cli_show_jobs(sch_cli_context *context) {
  static const sch::cli::Listing kJobs = {.request_type = SCH_REQ_GET_JOBS,
                                          .sending_trace = "sending show job request",
                                          .check = sch::cli::check_job_reply,
                                          .display = display_job,
                                          .closing_trace = nullptr,
                                          .by_name = true,
                                          .ruled = true};
  return sch::cli::run_listing(context, kJobs);
}

}  // extern "C"
