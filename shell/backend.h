// The library handlers and configuration requests the shell calls, behind an interface so that
// tests can see what each is given.
#ifndef SCHEDSH_BACKEND_H
#define SCHEDSH_BACKEND_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "schedcli/cli.h"

namespace schedsh {

// A change of an apply that the daemon refused: its number in gathering order, and why.
struct ApplyFailure {
  std::size_t index;
  uint32_t status;
};

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
  virtual int enable_scheduler(sch_cli_context *context) = 0;
  virtual uint32_t logfile_resize(sch_cli_context *context) = 0;
  virtual uint32_t logfile_clear(sch_cli_context *context) = 0;
  virtual uint32_t logfile_rename(sch_cli_context *context) = 0;
  virtual uint32_t email_transport(sch_cli_context *context) = 0;
  virtual int show_config(sch_cli_context *context) = 0;
  virtual int show_memstats(sch_cli_context *context) = 0;
  virtual int show_logfile(sch_cli_context *context) = 0;
  // The schedules' timers as the daemon words them; it prints them, or an error line.
  virtual uint32_t show_timers(sch_cli_context *context) = 0;

  // Requests to the configuration framework that the daemon hosts, on the shell's session:
  // 0, or a status that syserr2str renders. They print nothing.
  // The running or startup configuration text (ACFG_CFG_*) into `text`.
  virtual uint32_t config_text(cmi_session *session, uint32_t cfg_type, std::string *text) = 0;
  virtual uint32_t copy_running_to_startup(cmi_session *session) = 0;
  // A level of 0..7, or ACFG_LEVEL_DEFAULT.
  virtual uint32_t logging_level(cmi_session *session, std::string_view facility, uint32_t level) = 0;

  // Changes applied as one. gather_changes answers the session for the handlers to use from then
  // on: the changes they make to jobs, schedules and schedule addresses are kept rather than
  // sent, each answered with success, and what else they ask goes on to the daemon on `session`.
  // Null, with `why`, when no gathering can be had. gathered() counts the changes kept so far.
  virtual cmi_session *gather_changes(cmi_session *session, std::string *why) = 0;
  virtual std::size_t gathered() = 0;
  // Ends the gathering. With `send` the changes go to the daemon on `session` as one apply, all
  // or nothing (`check`: the daemon only says which would fail): 0 when all hold, else the status
  // of the first failure, with each failure in `failures`. Without `send` they are dropped.
  virtual uint32_t apply_gathered(cmi_session *session, bool send, bool check,
                                  std::vector<ApplyFailure> *failures) = 0;
};

}  // namespace schedsh

#endif
