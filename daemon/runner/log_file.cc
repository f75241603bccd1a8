// The run log's file on disk: where it is, and creating, emptying and moving it.
#include "runner/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "core/debug.h"
#include "core/syslog_lines.h"
#include "schedcli/diag.h"
#include "schedcli/platform/file_sync.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/syslog.h"
#include "schedcli/platform/sysmgr.h"
#include "schedcli/status.h"

namespace schedd {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kLogFileMode = 0640;

// The catalogue's file-error message, with the failed step, the path and the system's reason.
void report_failure(const char *step, const std::string &path, int error) {
  debug(kDebugRequest, "log file: cannot %s %s: %s", step, path.c_str(), std::strerror(error));
  std::string what = std::string("log file: cannot ") + step + " " + path;
  emit(syslog_msg_SCH_SYSLOG_FILE_ERR, what.c_str(), std::strerror(error));
}

bool inside(const fs::path &directory, const char *root) {
  if (!root) return false;
  std::error_code error;
  fs::path canonical_root = fs::canonical(root, error);
  if (error) return false;
  fs::path relative = directory.lexically_relative(canonical_root);
  return !relative.empty() && *relative.begin() != "..";
}

// A copy for a move across file systems: written whole beside nothing, synced, then the source
// goes. A failure removes the partial copy.
uint32_t copy_then_remove(const std::string &from, const std::string &to) {
  int source = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (source < 0) {
    report_failure("read", from, errno);
    return SCH_STATUS_LOG_FILE_IO;
  }
  int target = open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kLogFileMode);
  if (target < 0) {
    int error = errno;
    close(source);
    if (error == EEXIST) return SCH_STATUS_LOG_FILE_EXISTS;
    report_failure("create", to, error);
    return SCH_STATUS_LOG_FILE_IO;
  }
  char buffer[65536];
  int error = 0;
  for (ssize_t got; error == 0 && (got = read(source, buffer, sizeof buffer)) != 0;) {
    if (got < 0) {
      if (errno != EINTR) error = errno;
    } else if (write(target, buffer, static_cast<size_t>(got)) != got) {
      error = errno != 0 ? errno : EIO;
    }
  }
  if (error == 0 && fsync(target) != 0) error = errno;
  close(source);
  if (close(target) != 0 && error == 0) error = errno;
  if (error != 0) {
    report_failure("copy to", to, error);
    unlink(to.c_str());
    return SCH_STATUS_LOG_FILE_IO;
  }
  file_sync_directory_of(to.c_str());
  if (unlink(from.c_str()) != 0) report_failure("remove", from, errno);
  return 0;
}

}  // namespace

sch_log_file_record default_log_file_record() {
  sch_log_file_record record{};
  record.size_limit = SCH_LOG_FILE_SIZE_DEFAULT;
  store_log_path(&record, kDefaultLogFileName);
  return record;
}

std::string_view stored_log_path(const sch_log_file_record &record) {
  const char *path = reinterpret_cast<const char *>(record.writer_data);
  return std::string_view(path, strnlen(path, sizeof record.writer_data));
}

bool store_log_path(sch_log_file_record *record, std::string_view path) {
  if (path.size() >= sizeof record->writer_data) return false;
  std::memset(record->writer_data, 0, sizeof record->writer_data);
  std::memcpy(record->writer_data, path.data(), path.size());
  return true;
}

std::string log_file_location(std::string_view stored_path) {
  fs::path path(stored_path);
  if (path.is_relative()) path = fs::path(sysmgr_state_dir() ? sysmgr_state_dir() : ".") / path;
  return path.lexically_normal().string();
}

uint32_t resolve_log_file_name(std::string_view requested, std::string *location, std::string *stored_path) {
  if (requested.empty()) return SCH_STATUS_BAD_REQUEST;
  fs::path path = fs::path(log_file_location(requested));
  fs::path name = path.filename();
  if (name.empty() || name == "." || name == "..") return SCH_STATUS_BAD_REQUEST;
  std::error_code error;
  // Symbolic links in the directory are followed before the place is judged, so that none can
  // lead outside.
  fs::path directory = fs::canonical(path.parent_path(), error);
  if (error || !fs::is_directory(directory, error)) return SCH_STATUS_LOG_FILE_DIRECTORY;
  if (!inside(directory, sysmgr_state_dir()) && !inside(directory, sysmgr_runtime_dir())) {
    return SCH_STATUS_LOG_FILE_PLACE;
  }
  fs::path target = directory / name;
  // Kept relative to the state directory where it can be, as the default name is.
  fs::path state = fs::canonical(sysmgr_state_dir(), error);
  fs::path relative = error ? fs::path() : target.lexically_relative(state);
  bool under_state = !relative.empty() && *relative.begin() != "..";
  *location = target.string();
  *stored_path = under_state ? relative.string() : target.string();
  return stored_path->size() < sizeof(sch_log_file_record::writer_data) ? 0 : SCH_STATUS_BAD_REQUEST;
}

bool stored_log_path_allowed(std::string_view stored_path) {
  std::string location, kept;
  uint32_t status = resolve_log_file_name(stored_path, &location, &kept);
  if (status == 0) return true;
  // A directory that is missing is no danger where the name lies in the daemon's directories:
  // nothing can be made in it, and the runner reports that with each entry.
  fs::path directory = fs::path(log_file_location(stored_path)).parent_path();
  if (status == SCH_STATUS_LOG_FILE_DIRECTORY &&
      (inside(directory, sysmgr_state_dir()) || inside(directory, sysmgr_runtime_dir()))) {
    return true;
  }
  std::string what = "log file: stored name " + std::string(stored_path) + " not used";
  emit(syslog_msg_SCH_SYSLOG_FILE_ERR, what.c_str(), syserr2str(status));
  return false;
}

uint32_t create_log_file(const std::string &location) {
  int fd = open(location.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kLogFileMode);
  if (fd < 0) {
    report_failure("create", location, errno);
    return SCH_STATUS_LOG_FILE_IO;
  }
  close(fd);
  return 0;
}

uint32_t empty_log_file(const std::string &location) {
  int fd = open(location.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kLogFileMode);
  if (fd < 0) {
    report_failure("empty", location, errno);
    return SCH_STATUS_LOG_FILE_IO;
  }
  bool synced = fsync(fd) == 0;
  int error = errno;
  if (close(fd) != 0 || !synced) {
    report_failure("sync", location, error);
    return SCH_STATUS_LOG_FILE_IO;
  }
  return 0;
}

uint32_t move_log_file(const std::string &from, const std::string &to) {
  struct stat existing;
  if (lstat(to.c_str(), &existing) == 0) return SCH_STATUS_LOG_FILE_EXISTS;
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    file_sync_directory_of(from.c_str());
    file_sync_directory_of(to.c_str());
    return 0;
  }
  switch (errno) {
    case EEXIST:
      return SCH_STATUS_LOG_FILE_EXISTS;
    case ENOENT: {
      // Nothing to carry over: the log starts anew at its new place.
      if (lstat(from.c_str(), &existing) == 0) break;
      int fd = open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kLogFileMode);
      if (fd >= 0) {
        close(fd);
        return 0;
      }
      if (errno == EEXIST) return SCH_STATUS_LOG_FILE_EXISTS;
      break;
    }
    case EXDEV:
      return copy_then_remove(from, to);
    case EINVAL:
      // A file system without the no-replace rename: a hard link refuses an existing name too.
      if (link(from.c_str(), to.c_str()) == 0) {
        if (unlink(from.c_str()) != 0) report_failure("remove", from, errno);
        file_sync_directory_of(to.c_str());
        return 0;
      }
      if (errno == EEXIST) return SCH_STATUS_LOG_FILE_EXISTS;
      if (errno == EXDEV) return copy_then_remove(from, to);
      break;
    default:
      break;
  }
  report_failure("move to", to, errno);
  return SCH_STATUS_LOG_FILE_IO;
}

}  // namespace schedd
