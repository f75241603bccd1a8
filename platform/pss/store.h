// Internals of the record stores: shared LMDB environments, the handle table, views and copies.
#ifndef SCHEDPLAT_PSS_STORE_H
#define SCHEDPLAT_PSS_STORE_H

#include <lmdb.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "schedcli/platform/pss.h"

namespace pss {

inline constexpr uint32_t kMaxKeySize = 511;  // LMDB's key limit in its default build
inline constexpr uint32_t kMaxValueSize = 64u << 20;
// Address space reserved per store; the file itself grows only as pages are written. A 32-bit
// process has at most 4 GiB of address space, and the daemon holds its running, startup and
// debug stores and their snapshot copies open at once, so there each store gets a quarter of
// 1 GiB: still room to rewrite a value of the largest size beside its old pages.
inline constexpr size_t kMapSize = sizeof(void *) > 4 ? size_t{1} << 30 : size_t{256} << 20;
static_assert(kMapSize >= 3 * size_t{kMaxValueSize}, "a largest value and its rewrite fit the map");
inline constexpr uint32_t kMaxHandles = 255;

// One LMDB environment per store file in this process, shared by every handle on that file:
// two environments on one file would break LMDB's locking.
struct Environment {
  MDB_env *env = nullptr;
  MDB_dbi records = 0;
  std::string path;  // as first opened; a snapshot names its copy after it
  dev_t device = 0;
  ino_t inode = 0;
  pss2_attributes attributes{};
  bool writable = true;
  int references = 0;
  pss2_handle batch_owner = 0;  // LMDB allows one write transaction per environment
};

// Where a walk stands. kBeforeNext: the current record went away and the cursor already rests on
// its successor, so NEXT must not advance again.
enum class Position { kNone, kOnRecord, kBeforeNext, kAtEnd };

struct Handle {
  Environment *environment = nullptr;
  pss2_handle id = 0;
  uint32_t mode = 0;            // PSS2_MODE_READ or PSS2_MODE_UPDATE
  MDB_txn *read_txn = nullptr;  // kept after a reset so that a renew is cheap
  bool read_active = false;
  MDB_txn *batch_txn = nullptr;
  uint32_t batch_error = 0;     // the first failure inside the batch; commit reports it
  MDB_cursor *cursor = nullptr;
  Position position = Position::kNone;
  std::vector<unsigned char> walk_key;  // the current key, to find the place again after a write
  uint32_t visited = 0;
};

struct Slot {
  std::unique_ptr<Handle> handle;
  uint32_t generation = 0;
};

struct State {
  std::mutex mutex;
  std::vector<std::unique_ptr<Environment>> environments;
  std::array<Slot, kMaxHandles> slots;
};

// Every entry point holds this lock for its whole run. A child of fork starts with empty tables:
// LMDB objects must not be used across fork.
State &state();
std::unique_lock<std::mutex> lock_state();

// status.cc
uint32_t status_from_mdb(int rc);
uint32_t status_from_errno(int error);

// fault.cc: true when the hook makes this call fail; *status is then set.
bool fault_fires(pss2_fault_operation operation, uint32_t *status);

// registry.cc
bool attributes_valid(const pss2_attributes &attributes);
// Creates a new store file atomically: PSS2_ERR_EXISTS when anything is at `path`.
uint32_t store_create_file(const std::string &path, const pss2_attributes &attributes);
// Shares or opens the environment of an existing store file.
uint32_t environment_open(const std::string &path, bool need_write, Environment **out);
void environment_release(Environment *environment);
// The open environment of the file at `path`, or null.
Environment *environment_of_file(const std::string &path);
std::string lock_file_of(const std::string &path);

// handles.cc
Handle *handle_find(pss2_handle id);
uint32_t handle_add(Environment *environment, uint32_t mode, pss2_handle *out);
void handle_close(Handle *handle);
// A view is the transaction reads go through: the batch when one is open, else a read snapshot.
MDB_txn *view_txn(const Handle &handle);
uint32_t view_begin(Handle &handle);
void view_end(Handle &handle);
// Puts the cursor back on the walk's key (or its successor) in the current view.
uint32_t walk_reposition(Handle &handle);
void walk_end(Handle &handle);
bool walking(const Handle &handle);

// files.cc
std::string temporary_name_for(const std::string &target);
std::string directory_of(const std::string &path);
std::string base_name_of(const std::string &path);
uint32_t sync_directory_of(const std::string &path);

// A compacted copy written and synced beside its target, not yet renamed into place.
struct PendingCopy {
  std::string temporary;
  std::string target;
};
uint32_t copy_write(Environment &environment, const std::string &target, pss2_fault_operation operation,
                    PendingCopy *out);
uint32_t copy_install(const PendingCopy &copy);

// copy_set.cc: copies each source onto its target (distinct paths) as one step, deciding it with
// the intent file at `intent`; and the start-up side, which finishes a decided copy and removes
// the temporary files left in `directories` and the intent's own directory.
uint32_t copy_stores(const std::vector<Environment *> &sources, const std::vector<std::string> &targets,
                     const std::string &intent);
uint32_t recover_copies(const std::string &intent, const std::vector<std::string> &directories);

}  // namespace pss

#endif
