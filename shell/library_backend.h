// The backend that calls the scheduler library's handlers.
#ifndef SCHEDSH_LIBRARY_BACKEND_H
#define SCHEDSH_LIBRARY_BACKEND_H

#include "backend.h"

namespace schedsh {

class LibraryBackend final : public Backend {
 public:
  uint32_t create_delete_job(sch_cli_context *context) override;
  uint32_t define_job(const sch_cli_context &session, std::string_view job, std::string_view text) override;
  uint32_t semicolon_define_job(sch_cli_context *context) override;
  uint32_t create_delete_schedule(sch_cli_context *context) override;
  uint32_t modify_schedule(sch_cli_context *context) override;
  uint32_t modify_schedule_emailaddr(sch_cli_context *context) override;
  int aaa_auth_passwd(sch_cli_context *context) override;
  int show_jobs(sch_cli_context *context) override;
  int show_schedules(sch_cli_context *context) override;
};

}  // namespace schedsh

#endif
