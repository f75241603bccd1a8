// Durable files and names: fsync of a file and of the directory that names it.
#include "schedcli/platform/file_sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

int sync_descriptor(int fd) {
  if (fd < 0) return EBADF;
  while (fsync(fd) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

}  // namespace

extern "C" {

int file_write_all(int fd, const void *bytes, size_t size) {
  const auto *next = static_cast<const unsigned char *>(bytes);
  while (size > 0) {
    ssize_t written = write(fd, next, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    if (written == 0) return EIO;
    next += written;
    size -= static_cast<size_t>(written);
  }
  return 0;
}

int file_sync(int fd) { return sync_descriptor(fd); }

int file_sync_directory_of(const char *path) {
  if (!path || !*path) return EINVAL;
  std::string name(path);
  size_t slash = name.rfind('/');
  std::string directory = slash == std::string::npos ? "." : slash == 0 ? "/" : name.substr(0, slash);
  int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return errno;
  int error = sync_descriptor(fd);
  close(fd);
  return error;
}

int file_sync_with_directory(int fd, const char *path) {
  int error = sync_descriptor(fd);
  return error != 0 ? error : file_sync_directory_of(path);
}

}  // extern "C"
