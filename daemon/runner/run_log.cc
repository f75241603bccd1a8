// The run log's entries on disk: append within the size bound, read back, stream as messages.
#include "runner/run_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <utility>

#include "runner/log_file.h"
#include "schedcli/platform/file_sync.h"
#include "schedcli/status.h"
#include "schedcli/wire.h"

namespace schedd::runner {

namespace {

constexpr mode_t kLogFileMode = 0640;
constexpr size_t kBodySize = sizeof(RunLogBody);
constexpr size_t kCopyChunk = 64 * 1024;

constexpr std::array<uint32_t, 256> make_crc_table() {
  std::array<uint32_t, 256> table{};
  for (uint32_t n = 0; n < 256; n++) {
    uint32_t c = n;
    for (int k = 0; k < 8; k++) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    table[n] = c;
  }
  return table;
}
constexpr std::array<uint32_t, 256> kCrcTable = make_crc_table();

// Closes a descriptor when it goes.
struct Fd {
  int fd = -1;
  explicit Fd(int value) : fd(value) {}
  ~Fd() {
    if (fd >= 0) close(fd);
  }
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
};

// Reads exactly `length` bytes at `offset`; false on a short read or an error.
bool read_at(int fd, uint64_t offset, void *buffer, size_t length) {
  auto *bytes = static_cast<uint8_t *>(buffer);
  while (length > 0) {
    ssize_t got = pread(fd, bytes, length, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    bytes += got;
    offset += static_cast<uint64_t>(got);
    length -= static_cast<size_t>(got);
  }
  return true;
}

void put_name(uint8_t *field, std::string_view name) {
  std::memset(field, 0, kRunLogNameSize);
  std::memcpy(field, name.data(), std::min(name.size(), kRunLogNameSize));
}

std::string_view name_of(const char (&field)[kRunLogNameSize]) {
  return std::string_view(field, strnlen(field, kRunLogNameSize));
}

RunLogBody decode_body(const uint8_t *bytes) {
  RunLogBody body{};
  std::memcpy(body.job, bytes + offsetof(RunLogBody, job), kRunLogNameSize);
  std::memcpy(body.schedule, bytes + offsetof(RunLogBody, schedule), kRunLogNameSize);
  std::memcpy(body.user, bytes + offsetof(RunLogBody, user), kRunLogNameSize);
  body.wait_status = sch_wire_get_u32(bytes + offsetof(RunLogBody, wait_status));
  body.completion_time = static_cast<int32_t>(sch_wire_get_u32(bytes + offsetof(RunLogBody, completion_time)));
  body.output_length = sch_wire_get_u32(bytes + offsetof(RunLogBody, output_length));
  return body;
}

// One whole entry found in the file.
struct Found {
  uint64_t offset;
  uint64_t size;  // header included
  RunLogBody body;
};

// The entry at `offset` when it is whole: magic, a length that holds the body and stays inside
// `end`, an output length that agrees, and a CRC that holds.
bool whole_entry_at(int fd, uint64_t offset, uint64_t end, Found *found) {
  uint8_t header[kLogEntryHeaderSize];
  if (end - offset < kLogEntryHeaderSize + kBodySize || !read_at(fd, offset, header, sizeof header)) return false;
  uint32_t length = sch_wire_get_u32(header + 4);
  if (sch_wire_get_u32(header) != kLogEntryMagic || length < kBodySize ||
      length > end - offset - kLogEntryHeaderSize) {
    return false;
  }
  std::vector<uint8_t> chunk(std::min<size_t>(length, kCopyChunk));
  uint32_t crc = 0;
  uint8_t body[kBodySize];
  for (uint64_t done = 0; done < length;) {
    size_t piece = static_cast<size_t>(std::min<uint64_t>(chunk.size(), length - done));
    if (!read_at(fd, offset + kLogEntryHeaderSize + done, chunk.data(), piece)) return false;
    if (done == 0) std::memcpy(body, chunk.data(), kBodySize);
    crc = crc32_update(crc, chunk.data(), piece);
    done += piece;
  }
  if (crc != sch_wire_get_u32(header + 8)) return false;
  found->body = decode_body(body);
  if (found->body.output_length != length - kBodySize) return false;
  found->offset = offset;
  found->size = kLogEntryHeaderSize + length;
  return true;
}

// Walks the whole entries from the start up to `end`, handing each to `visit`; returns where the
// last whole one ends.
uint64_t scan(int fd, uint64_t end, const std::function<void(const Found &)> &visit) {
  uint64_t offset = 0;
  for (Found found; whole_entry_at(fd, offset, end, &found); offset += found.size) visit(found);
  return offset;
}

std::vector<uint8_t> encode_entry(const RunLogEntry &entry, size_t output_length) {
  std::vector<uint8_t> bytes(kLogEntryHeaderSize + kBodySize + output_length);
  uint8_t *body = bytes.data() + kLogEntryHeaderSize;
  put_name(body + offsetof(RunLogBody, job), entry.job);
  put_name(body + offsetof(RunLogBody, schedule), entry.schedule);
  put_name(body + offsetof(RunLogBody, user), entry.user);
  sch_wire_put_u32(body + offsetof(RunLogBody, wait_status), entry.wait_status);
  sch_wire_put_u32(body + offsetof(RunLogBody, completion_time), static_cast<uint32_t>(entry.completion_time));
  sch_wire_put_u32(body + offsetof(RunLogBody, output_length), static_cast<uint32_t>(output_length));
  std::memcpy(body + kBodySize, entry.output.data(), output_length);
  auto length = static_cast<uint32_t>(kBodySize + output_length);
  sch_wire_put_u32(bytes.data(), kLogEntryMagic);
  sch_wire_put_u32(bytes.data() + 4, length);
  sch_wire_put_u32(bytes.data() + 8, crc32_update(0, body, length));
  return bytes;
}

// Writes the entries from `keep_from` to `end` of the open file and then `entry` to a new file
// beside it, syncs it and renames it over `location`.
bool rewrite(int fd, const std::string &location, uint64_t keep_from, uint64_t end, const std::vector<uint8_t> &entry) {
  std::string temporary = location + ".new";
  Fd target(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kLogFileMode));
  if (target.fd < 0) return false;
  std::vector<uint8_t> chunk(kCopyChunk);
  bool written = true;
  for (uint64_t at = keep_from; written && at < end;) {
    size_t piece = static_cast<size_t>(std::min<uint64_t>(chunk.size(), end - at));
    written = read_at(fd, at, chunk.data(), piece) && file_write_all(target.fd, chunk.data(), piece) == 0;
    at += piece;
  }
  written = written && file_write_all(target.fd, entry.data(), entry.size()) == 0 && file_sync(target.fd) == 0;
  if (!written || rename(temporary.c_str(), location.c_str()) != 0) {
    unlink(temporary.c_str());
    return false;
  }
  file_sync_directory_of(location.c_str());
  return true;
}

}  // namespace

uint32_t crc32_update(uint32_t crc, const uint8_t *data, size_t length) {
  crc = ~crc;
  for (size_t i = 0; i < length; i++) crc = kCrcTable[(crc ^ data[i]) & 0xFFu] ^ (crc >> 8);
  return ~crc;
}

size_t run_log_entry_size(const RunLogEntry &entry) { return kLogEntryHeaderSize + kBodySize + entry.output.size(); }

uint32_t append_run_log_entry(const std::string &location, uint32_t size_limit, const RunLogEntry &entry,
                              RunLogState *state) {
  constexpr size_t kFixed = kLogEntryHeaderSize + kBodySize;
  if (size_limit < kFixed) return SCH_STATUS_BAD_REQUEST;
  size_t output_length = std::min<size_t>(entry.output.size(), size_limit - kFixed);
  std::vector<uint8_t> bytes = encode_entry(entry, output_length);

  Fd file(open(location.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kLogFileMode));
  struct stat status;
  if (file.fd < 0 || fstat(file.fd, &status) != 0) return SCH_STATUS_LOG_FILE_IO;
  auto file_size = static_cast<uint64_t>(status.st_size);
  std::vector<std::pair<uint64_t, uint64_t>> entries;  // offset and size of each whole entry
  uint64_t end = scan(file.fd, file_size, [&](const Found &found) { entries.emplace_back(found.offset, found.size); });

  if (end + bytes.size() <= size_limit) {
    // A torn append is cut off so that the new entry follows the last whole one.
    if (file_size > end && ftruncate(file.fd, static_cast<off_t>(end)) != 0) return SCH_STATUS_LOG_FILE_IO;
    ssize_t put = pwrite(file.fd, bytes.data(), bytes.size(), static_cast<off_t>(end));
    if (put != static_cast<ssize_t>(bytes.size()) || fdatasync(file.fd) != 0) {
      if (ftruncate(file.fd, static_cast<off_t>(end)) == 0) fdatasync(file.fd);
      return SCH_STATUS_LOG_FILE_IO;
    }
    *state = {0, static_cast<uint32_t>(entries.size() + 1)};
    return 0;
  }
  // The newest entries that fit beside the new one.
  size_t first_kept = entries.size();
  uint64_t kept_size = bytes.size();
  while (first_kept > 0 && kept_size + entries[first_kept - 1].second <= size_limit) {
    kept_size += entries[--first_kept].second;
  }
  uint64_t keep_from = first_kept < entries.size() ? entries[first_kept].first : end;
  if (!rewrite(file.fd, location, keep_from, end, bytes)) return SCH_STATUS_LOG_FILE_IO;
  *state = {0, static_cast<uint32_t>(entries.size() - first_kept + 1)};
  return 0;
}

bool read_run_log(const std::string &location, std::vector<RunLogEntry> *entries) {
  entries->clear();
  Fd file(open(location.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.fd < 0) return errno == ENOENT;
  struct stat status;
  if (fstat(file.fd, &status) != 0) return false;
  bool ok = true;
  scan(file.fd, static_cast<uint64_t>(status.st_size), [&](const Found &found) {
    RunLogEntry &entry = entries->emplace_back();
    entry.job = name_of(found.body.job);
    entry.schedule = name_of(found.body.schedule);
    entry.user = name_of(found.body.user);
    entry.wait_status = found.body.wait_status;
    entry.completion_time = found.body.completion_time;
    entry.output.resize(found.body.output_length);
    ok = ok && read_at(file.fd, found.offset + kLogEntryHeaderSize + kBodySize, entry.output.data(),
                       entry.output.size());
  });
  return ok;
}

std::unique_ptr<RunLogMessages> RunLogMessages::open(const std::string &location, std::string_view name,
                                                     size_t max_payload) {
  if (max_payload <= sizeof(RunLogMessageHeader)) return nullptr;
  int fd = ::open(location.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0 && errno != ENOENT) return nullptr;
  name = name.substr(0, std::min(name.size(), kRunLogNameSize));
  std::unique_ptr<RunLogMessages> messages(new RunLogMessages(fd, std::string(name), max_payload));
  if (fd < 0) return messages;
  struct stat status;
  if (fstat(fd, &status) != 0) return nullptr;
  // The descriptor keeps this file even when an append renames a new one over it; only what was
  // counted here is sent.
  messages->end_ = scan(fd, static_cast<uint64_t>(status.st_size), [&](const Found &found) {
    if (messages->wanted(found.body)) messages->count_++;
  });
  return messages;
}

RunLogMessages::~RunLogMessages() {
  if (fd_ >= 0) close(fd_);
}

bool RunLogMessages::wanted(const RunLogBody &body) const {
  return name_.empty() || name_of(body.job) == name_ || name_of(body.schedule) == name_;
}

RunLogMessages::Next RunLogMessages::next(std::vector<uint8_t> *payload) {
  if (count_ == 0) {
    if (empty_sent_) return Next::end;
    empty_sent_ = true;
    payload->assign(sizeof(RunLogMessageHeader), 0);
    return Next::message;
  }
  if (!in_entry_) {
    if (sent_ == count_) return Next::end;
    // The entry was whole when counted; a file emptied since then no longer holds it.
    Found found;
    do {
      if (!whole_entry_at(fd_, offset_, end_, &found)) return Next::failed;
      offset_ += found.size;
    } while (!wanted(found.body));
    header_ = {};
    header_.count = static_cast<int32_t>(count_);
    header_.number = static_cast<int32_t>(++sent_);
    std::memcpy(header_.job, found.body.job, kRunLogNameSize);
    std::memcpy(header_.schedule, found.body.schedule, kRunLogNameSize);
    std::memcpy(header_.user, found.body.user, kRunLogNameSize);
    header_.wait_status = found.body.wait_status;
    header_.completion_time = found.body.completion_time;
    header_.total_length = static_cast<int32_t>(found.body.output_length);
    output_at_ = found.offset + kLogEntryHeaderSize + kBodySize;
    output_sent_ = 0;
    in_entry_ = true;
  }
  auto total = static_cast<uint32_t>(header_.total_length);
  auto part = static_cast<uint32_t>(std::min<uint64_t>(max_payload_ - sizeof(RunLogMessageHeader), total - output_sent_));
  payload->assign(sizeof(RunLogMessageHeader) + part, 0);
  uint8_t *bytes = payload->data();
  if (!read_at(fd_, output_at_ + output_sent_, bytes + sizeof(RunLogMessageHeader), part)) return Next::failed;
  // A name that fills its 32 bytes goes whole, unterminated: the shell bounds what it prints.
  std::memcpy(bytes + offsetof(RunLogMessageHeader, job), header_.job, kRunLogNameSize);
  std::memcpy(bytes + offsetof(RunLogMessageHeader, schedule), header_.schedule, kRunLogNameSize);
  std::memcpy(bytes + offsetof(RunLogMessageHeader, user), header_.user, kRunLogNameSize);
  sch_wire_put_u32(bytes + offsetof(RunLogMessageHeader, count), static_cast<uint32_t>(header_.count));
  sch_wire_put_u32(bytes + offsetof(RunLogMessageHeader, number), static_cast<uint32_t>(header_.number));
  sch_wire_put_u32(bytes + offsetof(RunLogMessageHeader, wait_status), header_.wait_status);
  sch_wire_put_u32(bytes + offsetof(RunLogMessageHeader, completion_time), static_cast<uint32_t>(header_.completion_time));
  sch_wire_put_u32(bytes + offsetof(RunLogMessageHeader, total_length), total);
  sch_wire_put_u32(bytes + offsetof(RunLogMessageHeader, part_length), part);
  output_sent_ += part;
  if (output_sent_ == total) in_entry_ = false;
  return Next::message;
}

}  // namespace schedd::runner
