// The handle table and each handle's view of its store: read snapshot or batch, cursor, walk.
#include <pthread.h>

#include <cstring>

#include "pss/store.h"

namespace pss {
namespace {

// Handle numbers carry the slot in the low byte and a generation above it, so a closed handle
// does not silently reach a store opened later in the same slot.
constexpr uint32_t kGenerationLimit = 0xFFFFFF;

void prepare_fork() { state().mutex.lock(); }
void parent_after_fork() { state().mutex.unlock(); }

// The child forgets every environment and handle without touching LMDB: its objects belong to
// the parent. What they hold stays allocated in the child, which is the price of never using
// them there.
void child_after_fork() {
  State &s = state();
  for (auto &environment : s.environments) static_cast<void>(environment.release());
  s.environments.clear();
  for (Slot &slot : s.slots) static_cast<void>(slot.handle.release());
  s.mutex.unlock();
}

State *make_state() {
  auto *created = new State;
  pthread_atfork(prepare_fork, parent_after_fork, child_after_fork);
  return created;
}

}  // namespace

State &state() {
  // Never destroyed: hosts may still close stores from their own static destructors.
  static State *instance = make_state();
  return *instance;
}

std::unique_lock<std::mutex> lock_state() { return std::unique_lock(state().mutex); }

Handle *handle_find(pss2_handle id) {
  uint32_t index = (id & 0xFF) - 1;
  if (index >= kMaxHandles) return nullptr;
  Handle *handle = state().slots[index].handle.get();
  return handle && handle->id == id ? handle : nullptr;
}

uint32_t handle_add(Environment *environment, uint32_t mode, pss2_handle *out) {
  for (uint32_t index = 0; index < kMaxHandles; index++) {
    Slot &slot = state().slots[index];
    if (slot.handle) continue;
    slot.generation = slot.generation % kGenerationLimit + 1;
    slot.handle = std::make_unique<Handle>();
    slot.handle->environment = environment;
    slot.handle->mode = mode;
    slot.handle->id = slot.generation << 8 | (index + 1);
    *out = slot.handle->id;
    return PSS2_OK;
  }
  return PSS2_ERR_TOO_MANY;
}

void handle_close(Handle *handle) {
  Environment *environment = handle->environment;
  walk_end(*handle);
  if (handle->batch_txn) {
    mdb_txn_abort(handle->batch_txn);
    environment->batch_owner = 0;
  }
  if (handle->read_txn) mdb_txn_abort(handle->read_txn);
  state().slots[(handle->id & 0xFF) - 1].handle.reset();
  environment_release(environment);
}

MDB_txn *view_txn(const Handle &handle) { return handle.batch_txn ? handle.batch_txn : handle.read_txn; }

uint32_t view_begin(Handle &handle) {
  if (handle.batch_txn || handle.read_active) return PSS2_OK;
  int rc = handle.read_txn ? mdb_txn_renew(handle.read_txn)
                           : mdb_txn_begin(handle.environment->env, nullptr, MDB_RDONLY, &handle.read_txn);
  if (rc != 0) return status_from_mdb(rc);
  handle.read_active = true;
  return PSS2_OK;
}

// Cursors are closed first: one opened in a batch is freed by LMDB when the batch ends.
void view_end(Handle &handle) {
  if (handle.cursor) {
    mdb_cursor_close(handle.cursor);
    handle.cursor = nullptr;
  }
  if (handle.read_active) {
    mdb_txn_reset(handle.read_txn);  // lets go of the snapshot, so writers can reuse its pages
    handle.read_active = false;
  }
}

bool walking(const Handle &handle) { return handle.position != Position::kNone; }

void walk_end(Handle &handle) {
  handle.position = Position::kNone;
  handle.visited = 0;
  view_end(handle);
}

uint32_t walk_reposition(Handle &handle) {
  uint32_t status = view_begin(handle);
  int rc = 0;
  if (status == PSS2_OK && !handle.cursor) {
    rc = mdb_cursor_open(view_txn(handle), handle.environment->records, &handle.cursor);
    if (rc != 0) handle.cursor = nullptr;
  }
  if (status == PSS2_OK && rc == 0 && handle.position != Position::kAtEnd) {
    MDB_val key{handle.walk_key.size(), handle.walk_key.data()};
    MDB_val value;
    rc = mdb_cursor_get(handle.cursor, &key, &value, MDB_SET_RANGE);
    if (rc == 0) {
      bool same = key.mv_size == handle.walk_key.size() &&
                  std::memcmp(key.mv_data, handle.walk_key.data(), key.mv_size) == 0;
      handle.position = same ? Position::kOnRecord : Position::kBeforeNext;
    } else if (rc == MDB_NOTFOUND) {
      handle.position = Position::kAtEnd;
      rc = 0;
    }
  }
  if (status == PSS2_OK) status = status_from_mdb(rc);
  if (status != PSS2_OK) walk_end(handle);
  return status;
}

}  // namespace pss
