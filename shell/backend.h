// The library handlers the shell calls, behind an interface so that tests can see the contexts.
#ifndef SCHEDSH_BACKEND_H
#define SCHEDSH_BACKEND_H

#include <cstdint>
#include <string_view>

#include "schedcli/cli.h"

namespace schedsh {

// Each call returns the handler's own result; its meaning differs per handler.
class Backend {
 public:
  virtual ~Backend() = default;
  virtual uint32_t create_delete_job(sch_cli_context *context) = 0;
  virtual uint32_t define_job(const sch_cli_context &session, std::string_view job, std::string_view text) = 0;
  virtual uint32_t semicolon_define_job(sch_cli_context *context) = 0;
  virtual uint32_t create_delete_schedule(sch_cli_context *context) = 0;
  virtual uint32_t modify_schedule(sch_cli_context *context) = 0;
  virtual uint32_t modify_schedule_emailaddr(sch_cli_context *context) = 0;
  virtual int aaa_auth_passwd(sch_cli_context *context) = 0;
  virtual int show_jobs(sch_cli_context *context) = 0;
  virtual int show_schedules(sch_cli_context *context) = 0;
};

}  // namespace schedsh

#endif
