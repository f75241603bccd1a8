// The backend that calls the scheduler library's handlers and the platform's requests.
#ifndef SCHEDSH_LIBRARY_BACKEND_H
#define SCHEDSH_LIBRARY_BACKEND_H

#include <memory>
#include <string>

#include "backend.h"
#include "change_gathering.h"

namespace schedsh {

class LibraryBackend final : public Backend {
 public:
  // The daemon's directories, which file URIs are mapped into.
  LibraryBackend(std::string state_dir, std::string runtime_dir)
      : state_dir_(std::move(state_dir)), runtime_dir_(std::move(runtime_dir)) {}

  uint32_t create_delete_job(sch_cli_context *context) override;
  uint32_t define_job(const sch_cli_context &session, std::string_view job, std::string_view text) override;
  uint32_t semicolon_define_job(sch_cli_context *context) override;
  uint32_t create_delete_schedule(sch_cli_context *context) override;
  uint32_t modify_schedule(sch_cli_context *context) override;
  uint32_t modify_schedule_emailaddr(sch_cli_context *context) override;
  int aaa_auth_passwd(sch_cli_context *context) override;
  int show_jobs(sch_cli_context *context) override;
  int show_schedules(sch_cli_context *context) override;
  int enable_scheduler(sch_cli_context *context) override;
  uint32_t logfile_resize(sch_cli_context *context) override;
  uint32_t logfile_clear(sch_cli_context *context) override;
  uint32_t logfile_rename(sch_cli_context *context) override;
  uint32_t email_transport(sch_cli_context *context) override;
  int show_config(sch_cli_context *context) override;
  int show_memstats(sch_cli_context *context) override;
  int show_logfile(sch_cli_context *context) override;
  uint32_t show_timers(sch_cli_context *context) override;
  uint32_t config_text(cmi_session *session, uint32_t cfg_type, std::string *text) override;
  uint32_t copy_running_to_startup(cmi_session *session) override;
  uint32_t logging_level(cmi_session *session, std::string_view facility, uint32_t level) override;
  cmi_session *gather_changes(cmi_session *session, std::string *why) override;
  std::size_t gathered() override;
  uint32_t apply_gathered(cmi_session *session, bool send, bool check, std::vector<ApplyFailure> *failures) override;

 private:
  std::unique_ptr<ChangeGathering> gathering_;
  std::string state_dir_;
  std::string runtime_dir_;
};

}  // namespace schedsh

#endif
