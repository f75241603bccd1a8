// Calls into libschedcli and libschedplat; the handlers print their own output and errors.
#include "library_backend.h"

#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "cli/request.h"
#include "schedcli/cli.h"
#include "schedcli/cli_config.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/wire.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/sysmgr.h"

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

int LibraryBackend::enable_scheduler(sch_cli_context *context) { return sch_enable_scheduler(context); }

uint32_t LibraryBackend::logfile_resize(sch_cli_context *context) { return sch_cli_logfile_resize(context); }

uint32_t LibraryBackend::logfile_clear(sch_cli_context *context) { return sch_cli_logfile_clear(context); }

namespace {

bool is_directory(const std::string &path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

uint32_t LibraryBackend::logfile_rename(sch_cli_context *context) {
  // The handler maps the URI onto the daemon's directories, so the platform must know them.
  // Setting them creates whatever is missing, and a runtime directory made by the shell would
  // hide the daemon's next stateless restart: they are set only once both exist.
  if (!sysmgr_state_dir() && is_directory(state_dir_) && is_directory(runtime_dir_)) {
    sysmgr_dirs_set(state_dir_.c_str(), runtime_dir_.c_str());
  }
  return sch_cli_logfile_rename(context);
}

uint32_t LibraryBackend::email_transport(sch_cli_context *context) { return sch_cli_config_email_transport(context); }

int LibraryBackend::show_config(sch_cli_context *context) { return sch_cli_show_config(context); }

int LibraryBackend::show_memstats(sch_cli_context *context) { return sch_cli_show_memstats(context); }

int LibraryBackend::show_logfile(sch_cli_context *context) { return sch_cli_show_logfile(context); }

uint32_t LibraryBackend::show_timers(sch_cli_context *context) {
  sch_request_header header{SCH_REQ_GET_TIMERS, 0};
  uint8_t request[sizeof header];
  sch_wire_encode(SCH_WIRE_REQUEST_HEADER, &header, request);
  void *reply = nullptr;
  uint32_t length = sizeof request;
  uint32_t status = cmi_req_resp(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, request, &reply, &length, nullptr,
                                 nullptr, 0, context->session, SCH_CMI_FLAGS);
  if (status == 0 && reply) std::fwrite(reply, 1, length, stdout);
  std::free(reply);
  if (status != 0) std::fprintf(stderr, "Error: %s\n", syserr2str(status));
  return status;
}

uint32_t LibraryBackend::config_text(cmi_session *session, uint32_t cfg_type, std::string *text) {
  char *received = nullptr;
  std::size_t length = 0;
  // No filter: the passwords are in their encrypted form, and a pasted text needs them.
  uint32_t status = acfg_request_config_text(session, cfg_type, 0, &received, &length);
  if (status == 0 && received) text->assign(received, length);
  std::free(received);
  return status;
}

uint32_t LibraryBackend::copy_running_to_startup(cmi_session *session) { return acfg_request_copy_startup(session); }

uint32_t LibraryBackend::logging_level(cmi_session *session, std::string_view facility, uint32_t level) {
  return acfg_request_logging_level(session, std::string(facility).c_str(), level);
}

cmi_session *LibraryBackend::gather_changes(cmi_session *session, std::string *why) {
  auto gathering = std::make_unique<ChangeGathering>();
  if (!gathering->start(session, why)) return nullptr;
  gathering_ = std::move(gathering);
  return gathering_->session();
}

std::size_t LibraryBackend::gathered() { return gathering_ ? gathering_->count() : 0; }

namespace {

// Sends the records as one apply, in as many parts as the messages' size calls for.
uint32_t send_apply(cmi_session *session, uint8_t mode, const std::vector<Record> &records,
                    std::vector<ApplyFailure> *failures) {
  std::size_t next = 0;
  bool first = true;
  while (true) {
    std::vector<uint8_t> part{mode, 0};
    // A record always fits one part: the largest (a job's text) is far below a message.
    while (next < records.size() && part.size() + 4 + records[next].size() <= CMI_MAX_PAYLOAD) {
      uint8_t length[4];
      sch_wire_put_u32(length, static_cast<uint32_t>(records[next].size()));
      part.insert(part.end(), length, length + 4);
      part.insert(part.end(), records[next].begin(), records[next].end());
      next++;
    }
    bool last = next == records.size();
    part[1] = static_cast<uint8_t>((first ? ACFG_APPLY_FIRST : 0) | (last ? ACFG_APPLY_LAST : 0));
    first = false;
    void *reply = nullptr;
    uint32_t length = static_cast<uint32_t>(part.size());
    uint32_t status = cmi_req_resp(ACFG_SERVICE, ACFG_OP_APPLY, part.data(), &reply, &length, nullptr, nullptr, 0,
                                   session, 0);
    const auto *bytes = static_cast<const uint8_t *>(reply);
    for (uint32_t at = 0; last && bytes && at + 8 <= length; at += 8) {
      failures->push_back({sch_wire_get_u32(bytes + at), sch_wire_get_u32(bytes + at + 4)});
    }
    std::free(reply);
    if (status != 0 || last) return status;
  }
}

}  // namespace

uint32_t LibraryBackend::apply_gathered(cmi_session *session, bool send, bool check,
                                        std::vector<ApplyFailure> *failures) {
  if (!gathering_) return 0;
  std::vector<Record> records = gathering_->finish();
  gathering_.reset();
  if (!send || records.empty()) return 0;
  return send_apply(session, check ? ACFG_APPLY_CHECK : ACFG_APPLY_COMMIT, records, failures);
}

}  // namespace schedsh
