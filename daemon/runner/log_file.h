// The run log: the file that gets one entry per finished job run, bounded by the configured size.
// Where it is, its size limit and how many entries it holds live in the log-file record
// (sch_log_file), whose first 256 bytes keep the file's path.
//
// Location: the path as the record keeps it. A relative path lies under the state directory;
// the default is "scheduler_circular_log.dat" there. The file may be renamed only to a place
// inside the state or runtime directory (the daemon may run as root, and an operator's name must
// not make it write elsewhere), never over an existing file.
//
// Format, for the job runner that appends to it (integers big-endian, like every stored record):
//   the file is a sequence of entries; each is
//     0  u32  kLogEntryMagic
//     4  u32  length of the entry body that follows these 12 bytes
//     8  u32  CRC-32 (IEEE, as zlib computes it) of the body
//    12  body: job name (32 bytes), schedule name (32), user name (32), each NUL-padded;
//        u32 wait status of the run; i32 completion time (seconds since the epoch);
//        u32 output length; then the output bytes
//   The record's read_offset is where the oldest entry kept begins, and count is the number of
//   entries from there to the end. An entry is appended at the end of the file; when the file
//   would grow past the size limit, the newest entries that fit are first written to a new file
//   beside it, synced, and renamed over it (read_offset 0 then), so a crash leaves one whole
//   file. A resize takes effect at the next append. An entry whose magic, length or CRC does not
//   hold is a torn append: readers stop there, and the writer cuts it off before appending.
#ifndef SCHEDD_RUNNER_LOG_FILE_H
#define SCHEDD_RUNNER_LOG_FILE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "schedcli/db.h"

namespace schedd {

inline constexpr const char *kDefaultLogFileName = "scheduler_circular_log.dat";
inline constexpr uint32_t kLogEntryMagic = 0x5343484cu;  // "SCHL"
inline constexpr uint32_t kLogEntryHeaderSize = 12;

// The record of a scheduler without log-file configuration: default name and size, empty.
sch_log_file_record default_log_file_record();

// The path kept in the record (empty when it keeps none).
std::string_view stored_log_path(const sch_log_file_record &record);
// Puts `path` in the record; false when it does not fit (255 bytes at most).
bool store_log_path(sch_log_file_record *record, std::string_view path);
// Whether a name read from a store may be used, judged as a rename request is: a damaged or
// foreign store must not make the daemon create or empty a file outside its directories. A name
// refused is reported in the system log.
bool stored_log_path_allowed(std::string_view stored_path);

// The file's location on disk for a path as the record keeps it.
std::string log_file_location(std::string_view stored_path);

// Where a rename of the log file to `requested` (a path as the shell sends it) would put it, as
// the absolute location and the path to keep in the record. 0, or why the name cannot be used:
// SCH_STATUS_BAD_REQUEST, SCH_STATUS_LOG_FILE_DIRECTORY or SCH_STATUS_LOG_FILE_PLACE.
uint32_t resolve_log_file_name(std::string_view requested, std::string *location, std::string *stored_path);

// Creates the file empty when nothing is there. 0 or SCH_STATUS_LOG_FILE_IO.
uint32_t create_log_file(const std::string &location);
// Empties the file, creating it when it is absent, and syncs it. 0 or SCH_STATUS_LOG_FILE_IO.
uint32_t empty_log_file(const std::string &location);
// Moves the file from one location to another, never over an existing file; a file that has gone
// missing is created anew at the target. 0, SCH_STATUS_LOG_FILE_EXISTS or SCH_STATUS_LOG_FILE_IO;
// on failure the file stays where it was.
uint32_t move_log_file(const std::string &from, const std::string &to);

}  // namespace schedd

#endif
