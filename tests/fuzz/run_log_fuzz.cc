// Fuzzing of the run-log file as a crash or another build may have left it: reading it back,
// streaming it as `show scheduler logfile` messages, and the append that repairs a torn tail.
//
// Input: a size limit (u16, in 16-byte units), a message bound (u16, added to the least one), a
// name filter length (byte) and name, the entry to append (names, status, time, output length,
// output), then pieces of the file, each a kind byte and a u16 length:
//   kind 0: the bytes as they are;  kind 1: the bytes framed as an entry with the right magic,
//   length and CRC;  kind 2: the same with the output-length word made to agree.
// Framing in the harness lets whole entries through the CRC, so the fuzzer reaches the code
// behind it; raw pieces damage what follows.
#include <sys/stat.h>

#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "runner/log_file.h"
#include "runner/run_log.h"
#include "schedcli/status.h"
#include "schedcli/wire.h"

namespace {

using schedd::runner::RunLogEntry;
using schedd::runner::RunLogMessageHeader;
using schedd::runner::RunLogMessages;
using fuzz::require;

constexpr size_t kBodySize = sizeof(schedd::runner::RunLogBody);

std::string g_location;

std::string file_from(fuzz::Reader &input) {
  std::string file;
  while (!input.empty()) {
    uint8_t kind = input.byte() % 3;
    std::string_view piece = input.bytes(input.u16());
    if (kind == 0) {
      file += piece;
      continue;
    }
    std::string body(piece);
    if (kind == 2 && body.size() >= kBodySize) {
      sch_wire_put_u32(reinterpret_cast<uint8_t *>(body.data()) + offsetof(schedd::runner::RunLogBody, output_length),
                       static_cast<uint32_t>(body.size() - kBodySize));
    }
    uint8_t header[schedd::kLogEntryHeaderSize];
    sch_wire_put_u32(header, schedd::kLogEntryMagic);
    sch_wire_put_u32(header + 4, static_cast<uint32_t>(body.size()));
    sch_wire_put_u32(header + 8, schedd::runner::crc32_update(0, reinterpret_cast<const uint8_t *>(body.data()),
                                                              body.size()));
    file.append(reinterpret_cast<const char *>(header), sizeof header);
    file += body;
  }
  return file;
}

void write_file(const std::string &bytes) {
  FILE *file = std::fopen(g_location.c_str(), "wb");
  require(file != nullptr, "the log file can be written");
  require(std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size(), "the log file is written");
  std::fclose(file);
}

bool same(const RunLogEntry &a, const RunLogEntry &b) {
  return a.job == b.job && a.schedule == b.schedule && a.user == b.user && a.wait_status == b.wait_status &&
         a.completion_time == b.completion_time && a.output == b.output;
}

std::string name_field(const char *field) { return std::string(field, strnlen(field, 32)); }

// Every message within the bound, numbered in order, and together the entries the filter takes,
// output and all.
void check_messages(const std::vector<RunLogEntry> &entries, std::string_view name, size_t bound) {
  auto messages = RunLogMessages::open(g_location, name, bound);
  require(messages != nullptr, "a readable log opens for streaming");
  std::vector<RunLogEntry> wanted;
  std::string filter(name.substr(0, std::min<size_t>(name.size(), 32)));
  for (const RunLogEntry &entry : entries) {
    if (filter.empty() || entry.job == filter || entry.schedule == filter) wanted.push_back(entry);
  }
  require(messages->count() == wanted.size(), "the count is the entries the filter takes");

  std::vector<RunLogEntry> streamed;
  std::vector<uint8_t> payload;
  int32_t number = 0;
  RunLogMessages::Next next;
  while ((next = messages->next(&payload)) == RunLogMessages::Next::message) {
    require(payload.size() >= sizeof(RunLogMessageHeader) && payload.size() <= bound, "message within its bound");
    auto word = [&](size_t offset) { return static_cast<int32_t>(sch_wire_get_u32(payload.data() + offset)); };
    int32_t count = word(offsetof(RunLogMessageHeader, count));
    require(static_cast<size_t>(count) == wanted.size(), "each message announces the count");
    if (count == 0) continue;
    int32_t this_number = word(offsetof(RunLogMessageHeader, number));
    int32_t part = word(offsetof(RunLogMessageHeader, part_length));
    require(part >= 0 && sizeof(RunLogMessageHeader) + static_cast<size_t>(part) == payload.size(),
            "part length is what the message holds");
    if (this_number != number) {
      require(this_number == number + 1, "entries numbered in order");
      number = this_number;
      RunLogEntry &entry = streamed.emplace_back();
      RunLogMessageHeader header;
      std::memcpy(&header, payload.data(), sizeof header);
      entry.job = name_field(header.job);
      entry.schedule = name_field(header.schedule);
      entry.user = name_field(header.user);
      entry.wait_status = static_cast<uint32_t>(word(offsetof(RunLogMessageHeader, wait_status)));
      entry.completion_time = word(offsetof(RunLogMessageHeader, completion_time));
    }
    streamed.back().output.append(reinterpret_cast<const char *>(payload.data()) + sizeof(RunLogMessageHeader),
                                  static_cast<size_t>(part));
  }
  require(next == RunLogMessages::Next::end, "an unchanged file streams to its end");
  require(streamed.size() == wanted.size(), "every counted entry is sent");
  for (size_t i = 0; i < wanted.size(); i++) {
    require(same(streamed[i], wanted[i]), "entries sent as read");
  }
}

// The append cuts a torn tail, keeps the newest entries that fit and ends with the new one.
void check_append(const std::vector<RunLogEntry> &before, const RunLogEntry &entry, uint32_t limit) {
  schedd::runner::RunLogState state;
  uint32_t status = schedd::runner::append_run_log_entry(g_location, limit, entry, &state);
  constexpr size_t kFixed = schedd::kLogEntryHeaderSize + kBodySize;
  if (limit < kFixed) {
    require(status == SCH_STATUS_BAD_REQUEST, "a limit below one header is refused");
    return;
  }
  require(status == 0, "an append to a writable file succeeds");
  std::vector<RunLogEntry> after;
  require(schedd::runner::read_run_log(g_location, &after), "the appended log reads");
  require(!after.empty() && state.count == after.size(), "the state counts the file's entries");
  struct stat file;
  require(stat(g_location.c_str(), &file) == 0 && static_cast<uint64_t>(file.st_size) <= limit,
          "the file stays within its limit");
  RunLogEntry expected = entry;
  expected.output.resize(std::min<size_t>(expected.output.size(), limit - kFixed));
  // Names are NUL-padded fields of 32 bytes: a NUL inside a name ends it.
  for (std::string *name : {&expected.job, &expected.schedule, &expected.user}) {
    name->resize(strnlen(name->c_str(), std::min<size_t>(name->size(), 32)));
  }
  require(same(after.back(), expected), "the new entry is the last");
  require(after.size() - 1 <= before.size(), "no entry appears from nowhere");
  size_t skipped = before.size() - (after.size() - 1);
  for (size_t i = 0; i + 1 < after.size(); i++) {
    require(same(after[i], before[skipped + i]), "the newest entries are kept in order");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
  fuzz::begin_run(argc, argv);
  std::string pattern = fuzz::scratch_directory("log");
  g_location = pattern + "/" + schedd::kDefaultLogFileName;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader input(data, size);
  uint32_t limit = static_cast<uint32_t>(input.u16()) * 16;
  size_t bound = sizeof(RunLogMessageHeader) + 1 + input.u16();
  std::string name(input.bytes(input.byte() % 40));
  RunLogEntry entry;
  entry.job = input.bytes(input.byte() % 40);
  entry.schedule = input.bytes(input.byte() % 40);
  entry.user = input.bytes(input.byte() % 40);
  entry.wait_status = input.u32();
  entry.completion_time = static_cast<int32_t>(input.u32());
  entry.output = input.bytes(input.u16());
  write_file(file_from(input));

  std::vector<RunLogEntry> entries;
  require(schedd::runner::read_run_log(g_location, &entries), "a readable file reads");
  check_messages(entries, name, bound);
  check_append(entries, entry, limit);
  return 0;
}
