// The device key of type-7 passwords: where it lives, and reading or making it.
#include "secrets/device_key.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <optional>
#include <string>

#include "schedcli/platform/file_sync.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/sysmgr.h"

namespace {

constexpr mode_t kKeyMode = 0600;

struct KeySetting {
  std::mutex mutex;
  std::optional<std::string> path;  // unset: the state directory's device.key
};

KeySetting &setting() {
  static KeySetting instance;
  return instance;
}

std::optional<std::string> key_path() {
  KeySetting &s = setting();
  std::lock_guard lock(s.mutex);
  if (s.path) return s.path;
  if (const char *state = sysmgr_state_dir()) return std::string(state) + "/" SECRETS_DEVICE_KEY_NAME;
  return std::nullopt;
}

uint32_t access_status(int error) {
  return error == ENOENT ? SECRETS_ERR_NO_KEY : SECRETS_ERR_KEY_ACCESS;
}

// Writes a new key beside the target and links it into place, so that nobody ever reads a part
// of a key, and of two processes making one at once both end up with the same. Returns 0 when
// a key is at `path` afterwards, whoever made it.
uint32_t make_key(const std::string &path) {
  std::string temporary = path + ".XXXXXX";
  int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) return SECRETS_ERR_KEY_ACCESS;
  unsigned char key[secrets::kKeyBytes];
  crypto_aead_chacha20poly1305_ietf_keygen(key);
  bool written = fchmod(fd, kKeyMode) == 0 && file_write_all(fd, key, sizeof key) == 0 && file_sync(fd) == 0;
  sodium_memzero(key, sizeof key);
  close(fd);
  bool linked = written && (link(temporary.c_str(), path.c_str()) == 0 || errno == EEXIST);
  unlink(temporary.c_str());
  if (!linked) return SECRETS_ERR_KEY_ACCESS;
  // The key must outlive a crash as surely as the passwords stored under it.
  file_sync_directory_of(path.c_str());
  return 0;
}

uint32_t read_key(const std::string &path, unsigned char (&key)[secrets::kKeyBytes]) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return access_status(errno);
  struct stat status;
  uint32_t result = 0;
  if (fstat(fd, &status) != 0) {
    result = SECRETS_ERR_KEY_ACCESS;
  } else if (!S_ISREG(status.st_mode) || status.st_size != static_cast<off_t>(sizeof key)) {
    result = SECRETS_ERR_KEY_DAMAGED;
  } else {
    size_t got = 0;
    while (got < sizeof key) {
      ssize_t count = read(fd, key + got, sizeof key - got);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      got += static_cast<size_t>(count);
    }
    if (got != sizeof key) result = SECRETS_ERR_KEY_DAMAGED;
  }
  close(fd);
  return result;
}

}  // namespace

namespace secrets {

uint32_t load_device_key(bool create, unsigned char (&key)[kKeyBytes]) {
  std::optional<std::string> path = key_path();
  uint32_t status = SECRETS_ERR_NO_KEY_PATH;
  if (path) {
    status = read_key(*path, key);
    if (status == SECRETS_ERR_NO_KEY && create) {
      status = make_key(*path);
      if (status == 0) status = read_key(*path, key);
    }
  }
  if (status != 0) sodium_memzero(key, sizeof key);
  return status;
}

}  // namespace secrets

extern "C" uint32_t secrets_device_key_path_set(const char *path) {
  if (path && !*path) return SECRETS_ERR_BAD_ARGUMENT;
  KeySetting &s = setting();
  std::lock_guard lock(s.mutex);
  s.path = path ? std::optional<std::string>(path) : std::nullopt;
  return 0;
}
