// Service paths: the state and runtime directories a host sets, and the store URIs built on them.
#include "schedcli/platform/sysmgr.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace {

constexpr size_t kMaxDirectory = 200;
constexpr mode_t kDirectoryMode = 0750;

// Fixed arrays rather than strings: pointers handed out stay put until the next set or clear.
struct Directories {
  std::mutex mutex;
  std::atomic<bool> set{false};
  std::atomic<bool> stateless{false};
  char state[kMaxDirectory + 1] = {};
  char runtime[kMaxDirectory + 1] = {};
  char running_prefix[kMaxDirectory + 2] = {};
  char startup_prefix[kMaxDirectory + 10] = {};
  char debug_prefix[kMaxDirectory + 10] = {};
};

Directories &directories() {
  static Directories instance;
  return instance;
}

std::string without_trailing_slashes(const char *path) {
  std::string trimmed(path);
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  return trimmed;
}

// mkdir -p that remembers what it made, so that a failure can be undone.
int make_directories(const std::string &path, std::vector<std::string> *made) {
  for (size_t end = 1; end <= path.size(); end++) {
    if (end != path.size() && path[end] != '/') continue;
    std::string prefix = path.substr(0, end);
    if (mkdir(prefix.c_str(), kDirectoryMode) == 0) {
      made->push_back(prefix);
      // The daemon runs under umask 077; its group must still reach the socket.
      chmod(prefix.c_str(), kDirectoryMode);
      continue;
    }
    struct stat existing;
    if (errno != EEXIST) return errno;
    if (stat(prefix.c_str(), &existing) != 0) return errno;
    if (!S_ISDIR(existing.st_mode)) return ENOTDIR;
  }
  return 0;
}

int copy_text(char *buffer, size_t size, const std::string &text) {
  if (!buffer || text.size() >= size) return -1;
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return 0;
}

// XDG variables count only when they hold an absolute path.
const char *absolute_environment(const char *name) {
  const char *value = std::getenv(name);
  return value && value[0] == '/' ? value : nullptr;
}

std::string home_directory() {
  if (const char *home = absolute_environment("HOME")) return home;
  struct passwd *entry = getpwuid(getuid());
  return entry && entry->pw_dir ? entry->pw_dir : "/tmp";
}

}  // namespace

extern "C" {

int sysmgr_dirs_set(const char *state_dir, const char *runtime_dir) {
  if (!state_dir || !runtime_dir || !*state_dir || !*runtime_dir) return EINVAL;
  std::string state = without_trailing_slashes(state_dir);
  std::string runtime = without_trailing_slashes(runtime_dir);
  if (state.size() > kMaxDirectory || runtime.size() > kMaxDirectory) return ENAMETOOLONG;

  struct stat existing;
  bool runtime_existed = stat(runtime.c_str(), &existing) == 0;
  if (runtime_existed && !S_ISDIR(existing.st_mode)) return ENOTDIR;
  std::vector<std::string> made;
  int error = 0;
  for (const std::string &path : {state, state + "/startup", state + "/debug", runtime}) {
    if ((error = make_directories(path, &made)) != 0) break;
  }
  if (error != 0) {
    for (auto it = made.rbegin(); it != made.rend(); ++it) rmdir(it->c_str());
    return error;
  }

  Directories &d = directories();
  std::lock_guard lock(d.mutex);
  std::snprintf(d.state, sizeof d.state, "%s", state.c_str());
  std::snprintf(d.runtime, sizeof d.runtime, "%s", runtime.c_str());
  std::snprintf(d.running_prefix, sizeof d.running_prefix, "%s/", runtime.c_str());
  std::snprintf(d.startup_prefix, sizeof d.startup_prefix, "%s/startup/", state.c_str());
  std::snprintf(d.debug_prefix, sizeof d.debug_prefix, "%s/debug/", state.c_str());
  d.stateless = !runtime_existed;
  d.set = true;
  return 0;
}

void sysmgr_dirs_clear(void) {
  Directories &d = directories();
  std::lock_guard lock(d.mutex);
  d.set = false;
  d.stateless = false;
}

const char *sysmgr_state_dir(void) { return directories().set ? directories().state : nullptr; }
const char *sysmgr_runtime_dir(void) { return directories().set ? directories().runtime : nullptr; }
const char *sysmgr_running_cfg_uri_get(void) { return directories().set ? directories().running_prefix : nullptr; }
const char *sysmgr_startup_cfg_uri_get(void) { return directories().set ? directories().startup_prefix : nullptr; }
const char *sysmgr_debug_cfg_uri_get(void) { return directories().set ? directories().debug_prefix : nullptr; }
int sysmgr_is_stateless_restart(void) { return directories().set && directories().stateless ? 1 : 0; }

void sysmgr_stateless_restart_set(void) { directories().stateless = true; }

int sysmgr_default_state_dir(char *buffer, size_t size) {
  if (geteuid() == 0) return copy_text(buffer, size, "/var/lib/schedcli");
  if (const char *state_home = absolute_environment("XDG_STATE_HOME")) {
    return copy_text(buffer, size, std::string(state_home) + "/schedcli");
  }
  return copy_text(buffer, size, home_directory() + "/.local/state/schedcli");
}

int sysmgr_default_runtime_dir(char *buffer, size_t size) {
  if (geteuid() == 0) return copy_text(buffer, size, "/run/schedcli");
  if (const char *runtime = absolute_environment("XDG_RUNTIME_DIR")) {
    return copy_text(buffer, size, std::string(runtime) + "/schedcli");
  }
  return copy_text(buffer, size, "/tmp/schedcli-" + std::to_string(getuid()));
}

const char *sysmgr_uri_complete(const char *prefix, const char *middle, const char *name) {
  static thread_local std::string uri;
  uri.assign(prefix ? prefix : "");
  uri.append(middle ? middle : "");
  uri.append(name ? name : "");
  return uri.c_str();
}

}  // extern "C"
