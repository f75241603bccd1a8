// Calls into libschedcli; the handlers print their own output and errors.
#include "library_backend.h"

#include <climits>
#include <string>

namespace schedsh {

uint32_t LibraryBackend::create_delete_job(sch_cli_context *context) { return sch_cli_create_delete_job(context); }

uint32_t LibraryBackend::define_job(const sch_cli_context &session, std::string_view job, std::string_view text) {
  std::string name(job);
  std::string body(text);
  // The length travels as an int; anything near that is refused by the transport anyway.
  int length = body.size() > INT_MAX ? INT_MAX : static_cast<int>(body.size());
  return sch_cli_define_job(session.session, body.c_str(), length, name.c_str(), session.user, session.identity);
}

uint32_t LibraryBackend::semicolon_define_job(sch_cli_context *context) {
  return sch_cli_semicolon_delimiter_define_job(context);
}

uint32_t LibraryBackend::create_delete_schedule(sch_cli_context *context) {
  return sch_cli_create_delete_schedule(context);
}

uint32_t LibraryBackend::modify_schedule(sch_cli_context *context) { return sch_cli_modify_schedule(context); }

uint32_t LibraryBackend::modify_schedule_emailaddr(sch_cli_context *context) {
  return sch_cli_modify_schedule_emailaddr(context);
}

int LibraryBackend::aaa_auth_passwd(sch_cli_context *context) { return sch_cli_aaa_auth_passwd(context); }

int LibraryBackend::show_jobs(sch_cli_context *context) { return sch_cli_show_jobs(context); }

int LibraryBackend::show_schedules(sch_cli_context *context) { return sch_cli_show_schedules(context); }

}  // namespace schedsh
