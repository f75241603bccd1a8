// File URIs: parsing, rendering and mapping onto the scheduler's directories.
#include "schedcli/platform/uri.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "schedcli/platform/sysmgr.h"

namespace {

struct FileSystem {
  const char *name;
  bool under_runtime;  // else under the state directory
};

constexpr FileSystem kFileSystems[] = {{"logs", false}, {"bootflash", false}, {"volatile", true}};

const FileSystem *find_file_system(std::string_view name) {
  for (const FileSystem &fs : kFileSystems) {
    if (name == fs.name) return &fs;
  }
  return nullptr;
}

bool leaves_its_directory(std::string_view path) {
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    if (path.substr(start, end - start) == "..") return true;
    start = end + 1;
  }
  return false;
}

}  // namespace

extern "C" {

int uri_parse(const char *text, file_uri *uri) {
  if (!text || !uri || !*text) return -1;
  *uri = file_uri{};
  std::string_view view(text);
  std::string_view path = view;
  size_t colon = view.find(':');
  if (colon != std::string_view::npos) {
    std::string_view device = view.substr(0, colon);
    if (!find_file_system(device)) return -1;
    std::memcpy(uri->device, device.data(), device.size());
    path = view.substr(colon + 1);
    if (leaves_its_directory(path)) return -1;
  }
  if (path.empty() || path.size() >= sizeof uri->path) return -1;
  std::memcpy(uri->path, path.data(), path.size());
  return 0;
}

const char *uri_map_targetfs_path_get(const char *device, const char *path) {
  static thread_local std::string mapped;
  if (!path) return nullptr;
  const char *state = sysmgr_state_dir();
  if (!device || !*device) {
    if (path[0] == '/') return (mapped = path).c_str();
    if (!state) return nullptr;
    return (mapped = std::string(state) + "/" + path).c_str();
  }
  const FileSystem *fs = find_file_system(device);
  const char *base = fs ? (fs->under_runtime ? sysmgr_runtime_dir() : state) : nullptr;
  if (!base) return nullptr;
  std::string directory = std::string(base) + "/" + fs->name;
  mkdir(directory.c_str(), 0750);
  while (*path == '/') path++;
  return (mapped = directory + "/" + path).c_str();
}

int snprintf_uri_len(char *buffer, const file_uri *uri, size_t length) {
  if (!uri) return -1;
  if (uri->device[0]) return std::snprintf(buffer, length, "%.*s:%.*s", URI_DEVICE_SIZE, uri->device, URI_PATH_SIZE, uri->path);
  return std::snprintf(buffer, length, "%.*s", URI_PATH_SIZE, uri->path);
}

}  // extern "C"
