// Walking a store in ascending key order with the handle's cursor.
#include "pss/store.h"

namespace pss {
namespace {

// Records the record under the cursor as the walk's current one, or ends the walk.
uint32_t settle(Handle &handle, int rc, const MDB_val &key) {
  if (rc != 0) {
    walk_end(handle);
    return rc == MDB_NOTFOUND ? PSS2_ERR_END : status_from_mdb(rc);
  }
  const auto *bytes = static_cast<const unsigned char *>(key.mv_data);
  handle.walk_key.assign(bytes, bytes + key.mv_size);
  handle.position = Position::kOnRecord;
  handle.visited++;
  return PSS2_OK;
}

uint32_t move_first(Handle &handle) {
  walk_end(handle);
  uint32_t status = view_begin(handle);
  if (status != PSS2_OK) return status;
  int rc = mdb_cursor_open(view_txn(handle), handle.environment->records, &handle.cursor);
  if (rc != 0) {
    handle.cursor = nullptr;
    walk_end(handle);
    return status_from_mdb(rc);
  }
  MDB_val key{0, nullptr};
  MDB_val value{0, nullptr};
  return settle(handle, mdb_cursor_get(handle.cursor, &key, &value, MDB_FIRST), key);
}

uint32_t move_next(Handle &handle) {
  MDB_val key{0, nullptr};
  MDB_val value{0, nullptr};
  switch (handle.position) {
    case Position::kNone:
      return PSS2_ERR_END;
    case Position::kAtEnd:
      walk_end(handle);
      return PSS2_ERR_END;
    case Position::kBeforeNext:
      return settle(handle, mdb_cursor_get(handle.cursor, &key, &value, MDB_GET_CURRENT), key);
    case Position::kOnRecord:
      break;
  }
  return settle(handle, mdb_cursor_get(handle.cursor, &key, &value, MDB_NEXT), key);
}

// The current record's key or value as a descriptor into the map.
pss2_datum current(pss2_handle id, pss2_fault_operation operation, bool want_key, uint32_t *status) {
  uint32_t ignored = 0;
  if (!status) status = &ignored;
  auto lock = lock_state();
  if (fault_fires(operation, status)) return pss2_datum{nullptr, 0};
  Handle *handle = handle_find(id);
  if (!handle) {
    *status = PSS2_ERR_BAD_HANDLE;
    return pss2_datum{nullptr, 0};
  }
  if (handle->position != Position::kOnRecord) {
    *status = PSS2_ERR_END;
    return pss2_datum{nullptr, 0};
  }
  MDB_val key{0, nullptr};
  MDB_val value{0, nullptr};
  *status = status_from_mdb(mdb_cursor_get(handle->cursor, &key, &value, MDB_GET_CURRENT));
  if (*status != PSS2_OK) return pss2_datum{nullptr, 0};
  const MDB_val &wanted = want_key ? key : value;
  return pss2_datum{wanted.mv_data, static_cast<int32_t>(wanted.mv_size)};
}

}  // namespace
}  // namespace pss

extern "C" {

uint32_t pss2_move2location(pss2_handle *handle, int unit, int location, uint32_t *out) {
  static_cast<void>(unit);
  auto lock = pss::lock_state();
  uint32_t status = PSS2_OK;
  if (pss::fault_fires(PSS2_FAULT_MOVE, &status)) return status;
  if (!handle) return PSS2_ERR_BAD_ARGUMENT;
  pss::Handle *found = pss::handle_find(*handle);
  if (!found) return PSS2_ERR_BAD_HANDLE;
  uint32_t visited_before = found->visited;
  if (location == PSS2_LOCATION_FIRST) {
    status = pss::move_first(*found);
  } else if (location == PSS2_LOCATION_NEXT) {
    status = pss::move_next(*found);
  } else {
    return PSS2_ERR_BAD_ARGUMENT;
  }
  if (out) *out = status == PSS2_OK ? found->visited : location == PSS2_LOCATION_FIRST ? 0 : visited_before;
  return status;
}

pss2_datum pss2_getkey(pss2_handle handle, uint32_t *status) {
  return pss::current(handle, PSS2_FAULT_GETKEY, true, status);
}

pss2_datum pss2_getvalue(pss2_handle handle, uint32_t *status) {
  return pss::current(handle, PSS2_FAULT_GETVALUE, false, status);
}

}  // extern "C"
