// File plumbing of the stores: names beside a target, directory sync, and compacted copies that
// replace their target atomically.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "pss/store.h"
#include "schedcli/platform/file_sync.h"

namespace pss {

std::string temporary_name_for(const std::string &target) {
  static std::atomic<uint64_t> counter{0};
  // Unique within this process; a leftover of a dead process with the same pid is unlinked
  // before use by every caller.
  return target + ".tmp." + std::to_string(getpid()) + "." + std::to_string(++counter);
}

std::string directory_of(const std::string &path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string base_name_of(const std::string &path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A rename or a new name is durable only once its directory is synced.
uint32_t sync_directory_of(const std::string &path) {
  int error = file_sync_directory_of(path.c_str());
  return error == 0 ? PSS2_OK : status_from_errno(error);
}

uint32_t copy_write(Environment &environment, const std::string &target, pss2_fault_operation operation,
                    PendingCopy *out) {
  // A copy is the daemon's alone, as every store is.
  constexpr mode_t mode = 0600;
  std::string temporary = temporary_name_for(target);
  unlink(temporary.c_str());
  int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (fd < 0) return status_from_errno(errno);

  uint32_t status = status_from_mdb(mdb_env_copyfd2(environment.env, fd, MDB_CP_COMPACT));
  if (status == PSS2_OK) {
    if (int error = file_sync(fd); error != 0) status = status_from_errno(error);
  }
  // The hook stands for a failure after the copy is written and before it replaces the target.
  if (status == PSS2_OK) fault_fires(operation, &status);
  if (close(fd) != 0 && status == PSS2_OK) status = status_from_errno(errno);
  if (status != PSS2_OK) {
    unlink(temporary.c_str());
    return status;
  }
  *out = PendingCopy{temporary, target};
  return PSS2_OK;
}

uint32_t copy_install(const PendingCopy &copy) {
  if (std::rename(copy.temporary.c_str(), copy.target.c_str()) != 0) {
    uint32_t status = status_from_errno(errno);
    unlink(copy.temporary.c_str());
    return status;
  }
  return sync_directory_of(copy.target);
}

}  // namespace pss
