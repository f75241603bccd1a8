// The daemon's start and stop steps, and the way a request reaches its handler.
#include "core/daemon.h"

#include <fcntl.h>
#include <syslog.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "config/startup.h"
#include "core/debug.h"
#include "ipc/dispatch.h"
#include "ipc/server.h"
#include "runner/runner.h"
#include "schedcli/pss.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/file_sync.h"
#include "schedcli/platform/pss.h"
#include "schedcli/protocol.h"
#include "schedcli/platform/sdwrap.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/syslog.h"
#include "schedcli/platform/sysmgr.h"

namespace schedd {

namespace {

constexpr const char *kLockName = "schedd.pid";
constexpr const char *kDebugLogName = "schedd-debug.log";
// Written once a start-up has made its running stores whole. A runtime directory without it holds
// what a start-up cut short left: the next start takes the startup configuration again.
constexpr const char *kRunningWholeName = "running-stores-whole";

// Every store the library names, with the prefix its URI is built on.
struct StoreName {
  const char *(*prefix)();
  const char *name;
};
constexpr StoreName kStores[] = {
    {sysmgr_running_cfg_uri_get, SCH_STORE_RUNNING},
    {sysmgr_running_cfg_uri_get, SCH_STORE_RUNNING_DATABASE},
    {sysmgr_running_cfg_uri_get, SCH_STORE_DEBUG_RUNNING},
    {sysmgr_startup_cfg_uri_get, SCH_STORE_STARTUP},
    {sysmgr_debug_cfg_uri_get, SCH_STORE_DEBUG_STARTUP},
};

// The library keeps each store's URI in 64 bytes; a longer one would name another file.
bool store_paths_fit(std::string *error) {
  for (const StoreName &store : kStores) {
    std::string uri = sysmgr_uri_complete(store.prefix(), "", store.name);
    if (uri.size() >= SCH_PSS_URI_SIZE) {
      *error = "store path " + uri + " is " + std::to_string(uri.size()) + " bytes long, " +
               std::to_string(SCH_PSS_URI_SIZE - 1) + " at most: choose a shorter --state-dir or --runtime-dir";
      return false;
    }
  }
  return true;
}

std::string read_pid(int fd) {
  char text[32] = {};
  ssize_t got = pread(fd, text, sizeof text - 1, 0);
  if (got <= 0) return "unknown";
  text[strcspn(text, "\n")] = '\0';
  return text;
}

std::string runtime_path(const char *name) { return std::string(sysmgr_runtime_dir()) + "/" + name; }

bool exists(const std::string &path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

// Creates the file empty and makes it and its name durable.
bool write_marker(const std::string &path) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  int error = file_sync_with_directory(fd, path.c_str());
  close(fd);
  errno = error;
  return error == 0;
}

}  // namespace

Daemon::Daemon(const Options &options, const Clock &clock) : options_(options), clock_(clock) {}

Daemon::~Daemon() { stop(); }

const std::string &Daemon::socket_path() const {
  static const std::string none;
  return server_ ? server_->socket_path() : none;
}

bool Daemon::start(std::string *error, StartParts parts) {
  static constexpr Step kDirectories{"directories", &Daemon::set_directories, nullptr};
  static constexpr Step kDebugOutput{"debug output", &Daemon::open_debug_output, &Daemon::close_debug_output};
  static constexpr Step kLock{"instance lock", &Daemon::lock_instance, &Daemon::unlock_instance};
  static constexpr Step kRestore{"configuration", &Daemon::restore, &Daemon::release};
  static constexpr Step kMark{"running stores", &Daemon::mark_running_stores_whole, nullptr};
  static constexpr Step kRunner{"runner", &Daemon::start_runner, &Daemon::stop_runner};
  static constexpr Step kServer{"socket", &Daemon::start_server, &Daemon::stop_server};
  wall_timer_ = parts.wall_timer;
  const std::array<const Step *, 7> steps{&kDirectories, &kDebugOutput, &kLock, &kRestore, &kMark, &kRunner, &kServer};
  for (const Step *step : steps) {
    if ((step == &kServer && !parts.socket) || (step == &kRunner && (!parts.runner || options_.standby))) continue;
    std::string why;
    if (!(this->*step->start)(&why)) {
      *error = std::string(step->name) + ": " + why;
      stop();
      return false;
    }
    started_.push_back(step);
  }
  loop_.watch_stop_signals([this] {
    debug(kDebugStartup, "stopping on a signal");
    stop_serving();
  });
  return true;
}

void Daemon::run() { loop_.run(); }

void Daemon::stop_serving() { loop_.quit(); }

void Daemon::stop() {
  while (!started_.empty()) {
    const Step *step = started_.back();
    started_.pop_back();
    if (step->stop) (this->*step->stop)();
  }
}

Reply Daemon::handle(uint32_t service, uint32_t opcode, RequestBytes request, const Caller &caller) {
  model_.set_actor(caller.user);
  Reply reply = dispatch(service, opcode, request, RequestContext{caller, model_, options_.standby, runner_.get()});
  model_.set_actor({});
  return reply;
}

bool Daemon::set_directories(std::string *error) {
  if (int failure = sysmgr_dirs_set(options_.state_dir.c_str(), options_.runtime_dir.c_str())) {
    *error = "cannot use state directory " + options_.state_dir + " and runtime directory " + options_.runtime_dir +
             ": " + std::strerror(failure);
    return false;
  }
  if (!store_paths_fit(error)) return false;
  // The device key is the daemon's alone: other processes have their passwords made and read here.
  secrets_use_device_key(1);
  for (int level : options_.debug_levels) sdwrap_debug_level_set(level, 1);
  return true;
}

bool Daemon::open_debug_output(std::string *error) {
  if (options_.debug_levels.empty() || options_.foreground) return true;
  std::string path = options_.state_dir + "/" + kDebugLogName;
  debug_stream_ = std::fopen(path.c_str(), "ae");
  if (!debug_stream_) {
    *error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  setvbuf(debug_stream_, nullptr, _IOLBF, 0);
  sdwrap_buginf_stream_set(debug_stream_);
  return true;
}

void Daemon::close_debug_output() {
  if (!debug_stream_) return;
  sdwrap_buginf_stream_set(nullptr);
  std::fclose(debug_stream_);
  debug_stream_ = nullptr;
}

// Two daemons must never open the same stores: the lock is taken before any store is.
bool Daemon::lock_instance(std::string *error) {
  std::string path = runtime_path(kLockName);
  lock_fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lock_fd_ < 0) {
    *error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  if (flock(lock_fd_, LOCK_EX | LOCK_NB) != 0) {
    *error = errno == EWOULDBLOCK ? "another schedd (pid " + read_pid(lock_fd_) +
                                        ") is already running with runtime directory " + options_.runtime_dir
                                  : "cannot lock " + path + ": " + std::strerror(errno);
    close(lock_fd_);
    lock_fd_ = -1;
    return false;
  }
  std::string pid = std::to_string(getpid()) + "\n";
  if (ftruncate(lock_fd_, 0) != 0 || pwrite(lock_fd_, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
    *error = "cannot write " + path + ": " + std::strerror(errno);
    unlock_instance();
    return false;
  }
  return true;
}

// The pid file goes while the lock is still held, so that no other daemon's file is removed.
void Daemon::unlock_instance() {
  if (lock_fd_ < 0) return;
  unlink(runtime_path(kLockName).c_str());
  close(lock_fd_);
  lock_fd_ = -1;
}

bool Daemon::restore(std::string *error) {
  stateless_ = sysmgr_is_stateless_restart() != 0;
  if (!options_.standby && !stateless_ && !exists(runtime_path(kRunningWholeName))) {
    // The last start-up stopped before its running stores were whole: they are dropped and the
    // configuration comes from the startup store again, as on the first start after boot.
    nost_syslog(LOG_WARNING, "schedd: the last start did not complete; starting from the startup configuration");
    if (uint32_t status = destroy_running_stores()) {
      *error = std::string("cannot remove the running stores a failed start left: ") + syserr2str(status);
      return false;
    }
    sysmgr_stateless_restart_set();
    stateless_ = true;
  }
  debug(kDebugStartup, "starting %s%s, state %s, runtime %s", options_.standby ? "as standby" : "active",
        stateless_ ? " after a stateless restart" : "", options_.state_dir.c_str(), options_.runtime_dir.c_str());
  if (!options_.standby) {
    // A copy to startup that a crash interrupted is finished, or its leftovers removed, before the
    // startup store is read.
    uint32_t recovered = pss2_startup_recover();
    if (recovered == PSS2_ERR_CORRUPT) {
      nost_syslog(LOG_WARNING, "schedd: a damaged record of an interrupted copy to startup was removed");
    } else if (recovered != 0) {
      *error = std::string("cannot recover the startup stores: ") + syserr2str(recovered);
      return false;
    }
  }
  StartupMode mode{options_.standby, stateless_, options_.enable_feature};
  if (!restore_configuration(mode, error)) {
    release();
    return false;
  }
  return true;
}

void Daemon::release() { release_configuration(); }

bool Daemon::mark_running_stores_whole(std::string *error) {
  if (options_.standby || exists(runtime_path(kRunningWholeName))) return true;
  if (!write_marker(runtime_path(kRunningWholeName))) {
    *error = "cannot write " + runtime_path(kRunningWholeName) + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

bool Daemon::start_runner(std::string *error) {
  RunnerSettings settings;
  settings.wall_timer = wall_timer_;
  settings.interpreter = options_.interpreter;
  settings.ready_program = options_.ready_program;
  settings.awake_jobs = static_cast<unsigned>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
  settings.time_limit = std::chrono::seconds(options_.job_time_limit_seconds);
  settings.mail_ca_file = options_.mail_ca_file;
  if (!options_.mail_retry_delays_ms.empty()) {
    settings.mail_retry_delays.clear();
    for (int delay : options_.mail_retry_delays_ms) settings.mail_retry_delays.emplace_back(delay);
  }
  runner_ = std::make_unique<Runner>(model_, loop_, clock_, settings);
  if (!runner_->start()) {
    *error = "no wall-clock timer: schedules could not fire";
    runner_.reset();
    return false;
  }
  return true;
}

void Daemon::stop_runner() { runner_.reset(); }

bool Daemon::start_server(std::string *error) {
  server_ = std::make_unique<Server>(loop_, [this](uint32_t service, uint32_t opcode, RequestBytes request,
                                                   const Caller &caller) {
    return handle(service, opcode, request, caller);
  });
  std::string path = runtime_path(CMI_SOCKET_NAME);
  if (uint32_t status = server_->listen(path)) {
    *error = "cannot listen on " + path + ": " + syserr2str(status);
    server_.reset();
    return false;
  }
  return true;
}

void Daemon::stop_server() { server_.reset(); }

}  // namespace schedd
