// The run log's entries: appending one per finished run within the size bound, reading them back,
// and the reply messages of `show scheduler logfile`. The file format is the one log_file.h fixes.
#ifndef SCHEDD_RUNNER_RUN_LOG_H
#define SCHEDD_RUNNER_RUN_LOG_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace schedd::runner {

inline constexpr size_t kRunLogNameSize = 32;

// One finished run as the log keeps it. Names longer than 32 bytes are cut when written.
struct RunLogEntry {
  std::string job;
  std::string schedule;
  std::string user;
  uint32_t wait_status = 0;     // as waitpid reports it
  int32_t completion_time = 0;  // seconds since the epoch
  std::string output;
};

// Body of an entry in the file, before its output (big-endian words):
//   0 job name (32), 32 schedule name (32), 64 user name (32), 96 u32 wait status,
//   100 i32 completion time, 104 u32 output length; the output follows.
struct RunLogBody {
  char job[kRunLogNameSize];
  char schedule[kRunLogNameSize];
  char user[kRunLogNameSize];
  uint32_t wait_status;
  int32_t completion_time;
  uint32_t output_length;
};
static_assert(sizeof(RunLogBody) == 108 && offsetof(RunLogBody, schedule) == 32 && offsetof(RunLogBody, user) == 64 &&
              offsetof(RunLogBody, wait_status) == 96 && offsetof(RunLogBody, completion_time) == 100 &&
              offsetof(RunLogBody, output_length) == 104);

// Bytes an entry takes in the file, header included.
size_t run_log_entry_size(const RunLogEntry &entry);

// Where the log stands after an append: what the log-file record keeps.
struct RunLogState {
  uint32_t read_offset = 0;  // where the oldest entry kept begins (0 after a rewrite)
  uint32_t count = 0;        // entries from there to the end
};

// Appends `entry` to the file at `location` (created when absent) and makes it durable, keeping
// the file within `size_limit` bytes: when it would grow past it, the newest entries that fit
// beside the new one are written with it to a new file, synced, and renamed over the old one. An
// entry larger than the limit on its own keeps only the start of its output that fits. A torn
// tail is cut off first. Returns 0 with *state set, or SCH_STATUS_LOG_FILE_IO (the file is then
// as it was, bar a torn tail cut off) and SCH_STATUS_BAD_REQUEST when not even the entry's header
// fits the limit.
uint32_t append_run_log_entry(const std::string &location, uint32_t size_limit, const RunLogEntry &entry,
                              RunLogState *state);

// Reads the file's entries in order, stopping at the first torn one. A missing file reads as
// empty. Returns false when the file cannot be read. For tests and tools: it holds every entry.
bool read_run_log(const std::string &location, std::vector<RunLogEntry> *entries);

// The reply messages of `show scheduler logfile`, one payload at a time, reading the file as it
// goes (never more than one message's worth of output in memory). Each message is
//   0 i32 number of entries in the reply (0: the log is empty; then this one message is all)
//   4 i32 number of this entry, from 1
//   8 job name (32), 40 schedule name (32), 72 user name (32), NUL-padded, 104 8 bytes zero
//   112 u32 wait status, 116 i32 completion time, 120 i32 total output length,
//   124 i32 length of the output part in this message, 128 the part.
// An entry whose output does not fit one message continues in further messages that repeat its
// header with the next part.
struct RunLogMessageHeader {
  int32_t count;
  int32_t number;
  char job[kRunLogNameSize];
  char schedule[kRunLogNameSize];
  char user[kRunLogNameSize];
  uint8_t unused[8];
  uint32_t wait_status;
  int32_t completion_time;
  int32_t total_length;
  int32_t part_length;
};
static_assert(sizeof(RunLogMessageHeader) == 128 && offsetof(RunLogMessageHeader, number) == 4 &&
              offsetof(RunLogMessageHeader, job) == 8 && offsetof(RunLogMessageHeader, schedule) == 40 &&
              offsetof(RunLogMessageHeader, user) == 72 && offsetof(RunLogMessageHeader, wait_status) == 112 &&
              offsetof(RunLogMessageHeader, completion_time) == 116 &&
              offsetof(RunLogMessageHeader, total_length) == 120 && offsetof(RunLogMessageHeader, part_length) == 124);

class RunLogMessages {
 public:
  enum class Next { message, end, failed };

  // Opens the file at `location` and counts the entries to send: every whole one, or with a
  // non-empty `name` (the request's name field, up to 32 bytes) those whose job name or schedule
  // name is exactly that name. `max_payload` bounds each message (at least 129 bytes). A missing
  // file is an empty log. nullptr when the file cannot be read or the bound is too small.
  static std::unique_ptr<RunLogMessages> open(const std::string &location, std::string_view name,
                                              size_t max_payload);
  ~RunLogMessages();
  RunLogMessages(const RunLogMessages &) = delete;
  RunLogMessages &operator=(const RunLogMessages &) = delete;

  // Entries the reply announces.
  uint32_t count() const { return count_; }
  // The next message's payload in *payload; end after the last; failed when the file no longer
  // holds what was counted (it was emptied meanwhile) or cannot be read: the reply stops short.
  Next next(std::vector<uint8_t> *payload);

 private:
  RunLogMessages(int fd, std::string name, size_t max_payload) : fd_(fd), name_(std::move(name)), max_payload_(max_payload) {}
  bool wanted(const RunLogBody &body) const;

  int fd_;
  std::string name_;
  size_t max_payload_;
  uint64_t end_ = 0;        // end of the last whole entry when counted: later appends are not sent
  uint32_t count_ = 0;
  uint32_t sent_ = 0;       // entries begun
  uint64_t offset_ = 0;     // next entry in the file
  bool empty_sent_ = false;
  // The entry being sent: its header, where its output is and how much of it went.
  RunLogMessageHeader header_{};
  uint64_t output_at_ = 0;
  uint32_t output_sent_ = 0;
  bool in_entry_ = false;
};

// CRC-32 as zlib computes it (IEEE polynomial, reflected), continued from `crc`.
uint32_t crc32_update(uint32_t crc, const uint8_t *data, size_t length);

}  // namespace schedd::runner

#endif
