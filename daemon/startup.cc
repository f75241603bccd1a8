// Start-up and shutdown of the daemon's directories, stores and database.
#include "startup.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "database.h"
#include "debug.h"
#include "debug_store.h"
#include "log_file.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/platform/sdwrap.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/sysmgr.h"

namespace schedd {

namespace {

constexpr const char *kLockName = "schedd.pid";
constexpr const char *kDebugLogName = "schedd-debug.log";

struct StoreName {
  const char *(*prefix)();
  const char *name;
};

// Every store the library names, with the prefix its URI is built on.
constexpr StoreName kStores[] = {
    {sysmgr_running_cfg_uri_get, "scheduler_runtime"},
    {sysmgr_running_cfg_uri_get, "scheduler_runtime_database"},
    {sysmgr_running_cfg_uri_get, "scheduler_debug_runtime"},
    {sysmgr_startup_cfg_uri_get, "scheduler_startup"},
    {sysmgr_debug_cfg_uri_get, "scheduler_debug_startup"},
};

// The library keeps each store's URI in 64 bytes; a longer one would name another file.
bool store_paths_fit(std::string *error) {
  for (const StoreName &store : kStores) {
    std::string uri = sysmgr_uri_complete(store.prefix(), "", store.name);
    if (uri.size() >= SCH_PSS_URI_SIZE) {
      *error = "store path " + uri + " is " + std::to_string(uri.size()) + " bytes long, " +
               std::to_string(SCH_PSS_URI_SIZE - 1) +
               " at most: choose a shorter --state-dir or --runtime-dir";
      return false;
    }
  }
  return true;
}

// The library's whole-configuration save leaves out the schedules' addresses and the condition
// and transport records. After a stateless restart they are written too, so that the running
// store holds everything the startup store gave.
uint32_t complete_running_store() {
  return durably(pss_running, [] {
    bool written = true;
    for (GList *element = g_list_first(sch_schedule_email_list); element; element = element->next) {
      auto *entry = static_cast<sch_schedule_email_entry *>(element->data);
      written = sch_save_schedule_email_entry_to_pss(pss_running, entry) == 0 && written;
    }
    written = sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, scheduler_enabled) == 0 && written;
    sch_email_transport_conf &transport = email_transport_conf;
    if (transport.from[0]) written = sch_save_email_from_conf_to_pss(pss_running, &transport) == 0 && written;
    if (transport.reply_to[0]) written = sch_save_email_replyto_conf_to_pss(pss_running, &transport) == 0 && written;
    if (transport.smtp_server[0]) {
      written = sch_save_email_smtpserver_conf_to_pss(pss_running, &transport) == 0 && written;
    }
    return written;
  });
}

// What a store without these records means: the default log file and no mail server, the
// server's kind, port and VRF at their defaults.
void fill_in_defaults() {
  if (stored_log_path(sch_log_file).empty()) store_log_path(&sch_log_file, kDefaultLogFileName);
  sch_email_transport_conf &transport = email_transport_conf;
  if (transport.smtp_server[0] == '\0') {
    const sch_email_transport_conf defaults = default_transport();
    transport.smtp_reserved = defaults.smtp_reserved;
    transport.smtp_port = defaults.smtp_port;
    std::memcpy(transport.vrf, defaults.vrf, sizeof transport.vrf);
  }
}

std::string read_pid(int fd) {
  char text[32] = {};
  ssize_t got = pread(fd, text, sizeof text - 1, 0);
  if (got <= 0) return "unknown";
  text[strcspn(text, "\n")] = '\0';
  return text;
}

}  // namespace

Service::~Service() {
  if (stores_opened_) {
    free_database();
    // Reported before the stores close, which switches debug output off.
    debug(kDebugStartup, "stopped with %llu tracked blocks in use",
          static_cast<unsigned long long>(mtrack_live_blocks(SCH_MTRACK_IDENTITY)));
    close_debug_store();
    sch_pss_close_handles(nullptr);
  }
  if (debug_stream_) {
    sdwrap_buginf_stream_set(nullptr);
    std::fclose(debug_stream_);
  }
  // The lock goes with the descriptor; the file stays for the next daemon to take.
  if (lock_fd_ >= 0) close(lock_fd_);
}

// Two daemons must never open the same stores: the lock is taken before any store is.
bool Service::lock_instance(const std::string &runtime_dir, std::string *error) {
  std::string path = runtime_dir + "/" + kLockName;
  lock_fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
  if (lock_fd_ < 0) {
    *error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  if (flock(lock_fd_, LOCK_EX | LOCK_NB) != 0) {
    *error = errno == EWOULDBLOCK ? "another schedd (pid " + read_pid(lock_fd_) +
                                        ") is already running with runtime directory " + runtime_dir
                                  : "cannot lock " + path + ": " + std::strerror(errno);
    return false;
  }
  std::string pid = std::to_string(getpid()) + "\n";
  if (ftruncate(lock_fd_, 0) != 0 || pwrite(lock_fd_, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
    *error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

bool Service::start(const Options &options, std::string *error) {
  if (int failure = sysmgr_dirs_set(options.state_dir.c_str(), options.runtime_dir.c_str())) {
    *error = "cannot use state directory " + options.state_dir + " and runtime directory " + options.runtime_dir +
             ": " + std::strerror(failure);
    return false;
  }
  if (!store_paths_fit(error)) return false;
  for (int level : options.debug_levels) sdwrap_debug_level_set(level, 1);
  if (!options.debug_levels.empty() && !options.foreground) {
    std::string path = options.state_dir + "/" + kDebugLogName;
    debug_stream_ = std::fopen(path.c_str(), "ae");
    if (!debug_stream_) {
      *error = "cannot open " + path + ": " + std::strerror(errno);
      return false;
    }
    setvbuf(debug_stream_, nullptr, _IOLBF, 0);
    sdwrap_buginf_stream_set(debug_stream_);
  }
  if (!lock_instance(options.runtime_dir, error)) return false;

  bool stateless = sysmgr_is_stateless_restart() != 0;
  debug(kDebugStartup, "starting %s%s, state %s, runtime %s", options.standby ? "as standby" : "active",
        stateless ? " after a stateless restart" : "", options.state_dir.c_str(), options.runtime_dir.c_str());
  sch_uname_q_init();
  sch_pss_uri_init();
  stores_opened_ = true;  // a failed start may have opened one of them
  int result = options.standby ? sch_standby_pss_init() : sch_pss_init();
  if (result != 0) {
    *error = "cannot open the stores in " + options.runtime_dir + " (the store's message above says why)";
    return false;
  }
  if (!options.standby && stateless) {
    if (uint32_t status = complete_running_store()) {
      *error = std::string("cannot write the startup configuration into the running store: ") + syserr2str(status);
      return false;
    }
  }
  if (!open_debug_store(stateless && !options.standby, !options.standby, error)) return false;
  number_restored_schedules();
  fill_in_defaults();
  if (!options.standby) {
    // A log file that cannot be made is reported and does not stop the daemon: a job runner
    // tries again with every entry.
    create_log_file(log_file_location(stored_log_path(sch_log_file)));
    if (options.enable_feature && !scheduler_enabled) {
      if (uint32_t status = durably(pss_running, [] {
            return sch_save_condition_entry_to_pss(pss_running, &sch_condition_key, 1) == 0;
          })) {
        *error = std::string("cannot turn the scheduler feature on: ") + syserr2str(status);
        return false;
      }
      scheduler_enabled = 1;
    }
  }
  return true;
}

}  // namespace schedd
