// Local users: the names the local password file lists.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "schedcli/platform/auth.h"

namespace {

struct PasswdSetting {
  std::mutex mutex;
  std::string path = AUTH_DEFAULT_PASSWD_FILE;
};

PasswdSetting &setting() {
  static PasswdSetting instance;
  return instance;
}

std::string passwd_path() {
  PasswdSetting &s = setting();
  std::lock_guard lock(s.mutex);
  return s.path;
}

// True when the line is an entry whose name field is exactly `name`.
bool names_user(const char *line, size_t line_length, const char *name, size_t name_length) {
  return line_length > name_length && line[name_length] == ':' && std::memcmp(line, name, name_length) == 0;
}

}  // namespace

extern "C" {

uint32_t auth_local_passwd_file_set(const char *path) {
  if (path && !*path) return AUTH_ERR_BAD_ARGUMENT;
  PasswdSetting &s = setting();
  std::lock_guard lock(s.mutex);
  s.path = path ? path : AUTH_DEFAULT_PASSWD_FILE;
  return 0;
}

int check_if_user_local(void *, const char *user_name) {
  // A ':' can never be part of a name in the file, and would let "a:x" match user "a".
  if (!user_name || !*user_name || std::strchr(user_name, ':')) return 0;
  FILE *file = std::fopen(passwd_path().c_str(), "re");
  if (!file) return 0;
  size_t name_length = std::strlen(user_name);
  char *line = nullptr;
  size_t capacity = 0;
  ssize_t length;
  int found = 0;
  while (!found && (length = getline(&line, &capacity, file)) >= 0) {
    found = names_user(line, static_cast<size_t>(length), user_name, name_length);
  }
  std::free(line);
  std::fclose(file);
  return found;
}

}  // extern "C"
