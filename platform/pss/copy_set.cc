// Copies of several stores that replace their targets as one step, and the recovery at start-up
// that finishes such a copy after a crash and clears the temporary files a crash left behind.
//
// A copy of a set goes: every compacted copy written beside its target and synced, their
// directories synced; then the commit record (the intent: which temporary becomes which target)
// written aside, synced and renamed into place; then the renames; then the intent removed. A crash
// before the intent is in place leaves every old target; after it, recovery renames whatever is
// left to rename, so every target ends new.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>
#include <span>
#include <string_view>

#include "pss/store.h"
#include "schedcli/platform/codec.h"
#include "schedcli/platform/file_sync.h"

namespace pss {
namespace {

// The intent record, big-endian (these bytes are stored: never reorder):
//   0 magic "SCHEDCPI"  8 format version  12 rename count
//   16 per rename: u32 length, the temporary's path, u32 length, the target's path
//   then a u32 FNV-1a checksum of every byte before it.
constexpr char kMagic[8] = {'S', 'C', 'H', 'E', 'D', 'C', 'P', 'I'};
constexpr uint32_t kFormatVersion = 1;
constexpr size_t kHeaderSize = 16;
constexpr uint32_t kMaxRenames = 16;
constexpr size_t kMaxPath = 4096;
constexpr size_t kMaxIntentSize = kHeaderSize + kMaxRenames * 2 * (4 + kMaxPath) + 4;
constexpr mode_t kIntentMode = 0600;

uint32_t checksum(std::span<const uint8_t> bytes) {
  uint32_t hash = 2166136261u;
  for (uint8_t byte : bytes) hash = (hash ^ byte) * 16777619u;
  return hash;
}

void append_u32(std::vector<uint8_t> *out, uint32_t value) {
  size_t at = out->size();
  out->resize(at + 4);
  bigendian::put_u32(out->data() + at, value);
}

void append_text(std::vector<uint8_t> *out, const std::string &text) {
  append_u32(out, static_cast<uint32_t>(text.size()));
  out->insert(out->end(), text.begin(), text.end());
}

std::vector<uint8_t> encode_intent(const std::vector<PendingCopy> &copies) {
  std::vector<uint8_t> bytes(std::begin(kMagic), std::end(kMagic));
  append_u32(&bytes, kFormatVersion);
  append_u32(&bytes, static_cast<uint32_t>(copies.size()));
  for (const PendingCopy &copy : copies) {
    append_text(&bytes, copy.temporary);
    append_text(&bytes, copy.target);
  }
  append_u32(&bytes, checksum(bytes));
  return bytes;
}

// Reads a length-prefixed path at *at; false when it does not fit, is empty, too long or holds a
// NUL.
bool read_text(std::span<const uint8_t> bytes, size_t *at, std::string *text) {
  uint32_t length = 0;
  if (!bigendian::get_u32_at(bytes, *at, &length) || length == 0 || length > kMaxPath) return false;
  std::string_view field;
  if (!bigendian::get_name_at(bytes, *at + 4, length, &field) || field.size() != length) return false;
  text->assign(field);
  *at += 4 + length;
  return true;
}

bool decode_intent(std::span<const uint8_t> bytes, std::vector<PendingCopy> *copies) {
  if (bytes.size() < kHeaderSize + 4 || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) return false;
  size_t body = bytes.size() - 4;
  if (bigendian::get_u32(bytes.data() + body) != checksum(bytes.first(body))) return false;
  uint32_t version = 0, count = 0;
  bigendian::get_u32_at(bytes, 8, &version);
  bigendian::get_u32_at(bytes, 12, &count);
  if (version != kFormatVersion || count == 0 || count > kMaxRenames) return false;
  std::span<const uint8_t> entries = bytes.first(body);
  size_t at = kHeaderSize;
  for (uint32_t i = 0; i < count; i++) {
    PendingCopy copy;
    if (!read_text(entries, &at, &copy.temporary) || !read_text(entries, &at, &copy.target)) return false;
    copies->push_back(std::move(copy));
  }
  return at == body;
}

bool all_digits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The process id in a temporary name "<target>.tmp.<pid>.<n>", or -1 when `name` is not one.
long temporary_owner(std::string_view name) {
  size_t last_dot = name.rfind('.');
  if (last_dot == std::string_view::npos || !all_digits(name.substr(last_dot + 1))) return -1;
  size_t pid_dot = name.rfind('.', last_dot - 1);
  if (pid_dot == std::string_view::npos || pid_dot == 0) return -1;
  std::string_view pid = name.substr(pid_dot + 1, last_dot - pid_dot - 1);
  if (!all_digits(pid) || pid.size() > 9 || !name.substr(0, pid_dot).ends_with(".tmp")) return -1;
  return std::stol(std::string(pid));
}

// An intent names only temporaries of its own targets, and targets in the directories given:
// whatever else a damaged or planted file says is never renamed.
bool entry_allowed(const PendingCopy &copy, const std::set<std::string> &directories) {
  if (!directories.count(directory_of(copy.target)) || copy.target.find('\0') != std::string::npos) return false;
  std::string_view temporary = copy.temporary;
  return temporary.starts_with(copy.target + ".tmp.") && temporary_owner(base_name_of(copy.temporary)) >= 0 &&
         temporary.find('/', copy.target.size()) == std::string_view::npos;
}

uint32_t sync_directories(const std::set<std::string> &directories) {
  for (const std::string &directory : directories) {
    if (int error = file_sync_directory_of((directory + "/.").c_str()); error != 0) return status_from_errno(error);
  }
  return PSS2_OK;
}

// Renames every temporary still there onto its target, then syncs their directories. A temporary
// already gone was renamed before: its directory was synced before the intent was committed.
uint32_t roll_forward(const std::vector<PendingCopy> &copies) {
  std::set<std::string> directories;
  uint32_t status = PSS2_OK;
  for (const PendingCopy &copy : copies) {
    directories.insert(directory_of(copy.target));
    if (std::rename(copy.temporary.c_str(), copy.target.c_str()) != 0 && errno != ENOENT && status == PSS2_OK) {
      status = status_from_errno(errno);
    }
  }
  uint32_t synced = sync_directories(directories);
  return status != PSS2_OK ? status : synced;
}

uint32_t remove_intent(const std::string &intent) {
  if (unlink(intent.c_str()) != 0 && errno != ENOENT) return status_from_errno(errno);
  return sync_directory_of(intent);
}

// Reads the intent at `intent` into *copies. PSS2_ERR_NO_STORE when there is none,
// PSS2_ERR_CORRUPT when it is not a whole, well-formed intent.
uint32_t read_intent(const std::string &intent, std::vector<PendingCopy> *copies) {
  int fd = open(intent.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return errno == ENOENT ? PSS2_ERR_NO_STORE : status_from_errno(errno);
  std::vector<uint8_t> bytes(kMaxIntentSize + 1);
  size_t got = 0;
  ssize_t count = 0;
  while (got < bytes.size() && (count = read(fd, bytes.data() + got, bytes.size() - got)) != 0) {
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) break;
    got += static_cast<size_t>(count);
  }
  int error = count < 0 ? errno : 0;
  close(fd);
  if (error != 0) return status_from_errno(error);
  if (got > kMaxIntentSize || !decode_intent(std::span<const uint8_t>(bytes.data(), got), copies)) {
    return PSS2_ERR_CORRUPT;
  }
  return PSS2_OK;
}

// Finishes the copy that the intent at `intent` records, if there is one, and removes the intent.
uint32_t finish_intent(const std::string &intent, const std::set<std::string> &directories) {
  std::vector<PendingCopy> copies;
  uint32_t status = read_intent(intent, &copies);
  if (status == PSS2_ERR_NO_STORE) return PSS2_OK;
  if (status == PSS2_OK &&
      !std::all_of(copies.begin(), copies.end(), [&](const auto &copy) { return entry_allowed(copy, directories); })) {
    status = PSS2_ERR_CORRUPT;
  }
  if (status == PSS2_ERR_CORRUPT) {
    // Never committed by us: nothing of it is renamed, and it must not stay to mislead a later start.
    remove_intent(intent);
    return PSS2_ERR_CORRUPT;
  }
  if (status == PSS2_OK) status = roll_forward(copies);
  return status == PSS2_OK ? remove_intent(intent) : status;
}

// Writes the intent aside, syncs it and renames it into place: from then on the copy is decided.
uint32_t commit_intent(const std::string &intent, const std::vector<PendingCopy> &copies) {
  std::vector<uint8_t> bytes = encode_intent(copies);
  if (bytes.size() > kMaxIntentSize) return PSS2_ERR_BAD_ARGUMENT;
  std::string temporary = temporary_name_for(intent);
  unlink(temporary.c_str());
  int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kIntentMode);
  if (fd < 0) return status_from_errno(errno);
  uint32_t status = PSS2_OK;
  for (size_t written = 0; status == PSS2_OK && written < bytes.size();) {
    ssize_t count = write(fd, bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      status = status_from_errno(count < 0 ? errno : EIO);
    } else {
      written += static_cast<size_t>(count);
    }
  }
  if (status == PSS2_OK) {
    if (int error = file_sync(fd); error != 0) status = status_from_errno(error);
  }
  // The hook stands for a failure of the commit record before it is in place.
  if (status == PSS2_OK) fault_fires(PSS2_FAULT_SNAPSHOT, &status);
  if (close(fd) != 0 && status == PSS2_OK) status = status_from_errno(errno);
  if (status == PSS2_OK && std::rename(temporary.c_str(), intent.c_str()) != 0) status = status_from_errno(errno);
  if (status != PSS2_OK) {
    unlink(temporary.c_str());
    return status;
  }
  return sync_directory_of(intent);
}

void discard(const std::vector<PendingCopy> &copies) {
  for (const PendingCopy &copy : copies) unlink(copy.temporary.c_str());
}

// Removes every temporary file "<name>.tmp.<pid>.<n>" in `directory` but this process's own.
uint32_t remove_strays(const std::string &directory) {
  DIR *listing = opendir(directory.c_str());
  if (!listing) return errno == ENOENT ? PSS2_OK : status_from_errno(errno);
  const long self = getpid();
  uint32_t status = PSS2_OK;
  bool removed = false;
  while (dirent *entry = readdir(listing)) {
    long owner = temporary_owner(entry->d_name);
    if (owner < 0 || owner == self) continue;
    struct stat file;
    if (fstatat(dirfd(listing), entry->d_name, &file, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(file.st_mode)) continue;
    if (unlinkat(dirfd(listing), entry->d_name, 0) == 0) {
      removed = true;
    } else if (errno != ENOENT && status == PSS2_OK) {
      status = status_from_errno(errno);
    }
  }
  closedir(listing);
  if (removed && status == PSS2_OK) status = sync_directory_of(directory + "/.");
  return status;
}

}  // namespace

uint32_t copy_stores(const std::vector<Environment *> &sources, const std::vector<std::string> &targets,
                     const std::string &intent) {
  if (sources.empty() || sources.size() != targets.size() || sources.size() > kMaxRenames) return PSS2_ERR_BAD_ARGUMENT;
  std::set<std::string> directories;
  if (std::set<std::string>(targets.begin(), targets.end()).size() != targets.size()) return PSS2_ERR_BAD_ARGUMENT;
  for (const std::string &target : targets) {
    // Renaming over a file this process has open would leave two environments on one lock file.
    if (environment_of_file(target)) return PSS2_ERR_BUSY;
    directories.insert(directory_of(target));
  }
  // A copy that a crash left decided is finished first, so that its intent never outlives it and
  // later names a temporary of this copy.
  if (uint32_t status = finish_intent(intent, directories); status != PSS2_OK && status != PSS2_ERR_CORRUPT) {
    return status;
  }

  std::vector<PendingCopy> copies;
  for (size_t i = 0; i < sources.size(); i++) {
    PendingCopy copy;
    uint32_t status = copy_write(*sources[i], targets[i], PSS2_FAULT_SNAPSHOT, &copy);
    if (status != PSS2_OK) {
      discard(copies);
      return status;
    }
    copies.push_back(std::move(copy));
  }
  if (copies.size() == 1) return copy_install(copies[0]);  // one rename is atomic by itself

  // The temporaries' names must be durable before the intent that relies on them.
  uint32_t status = sync_directories(directories);
  if (status == PSS2_OK) status = commit_intent(intent, copies);
  if (status != PSS2_OK) {
    discard(copies);
    return status;
  }
  // Decided: a failure from here on leaves the intent, and the next start finishes the copy.
  if ((status = roll_forward(copies)) != PSS2_OK) return status;
  return remove_intent(intent);
}

uint32_t recover_copies(const std::string &intent, const std::vector<std::string> &directories) {
  std::set<std::string> allowed;
  // Named as the targets' own paths name them, with or without a final '/'.
  for (std::string directory : directories) {
    while (directory.size() > 1 && directory.back() == '/') directory.pop_back();
    allowed.insert(directory);
  }
  uint32_t status = finish_intent(intent, allowed);
  allowed.insert(directory_of(intent));
  for (const std::string &directory : allowed) {
    uint32_t removed = remove_strays(directory);
    if (status == PSS2_OK) status = removed;
  }
  return status;
}

}  // namespace pss
