// Storing, deleting and fetching records, one durable transaction each or gathered in a batch.
#include "pss/store.h"

namespace pss {
namespace {

uint32_t check_key(const Handle &handle, const pss2_datum *key) {
  if (!key || !key->data || key->length < 0) return PSS2_ERR_BAD_ARGUMENT;
  if (static_cast<uint32_t>(key->length) != handle.environment->attributes.key_size) return PSS2_ERR_KEY_SIZE;
  return PSS2_OK;
}

MDB_val as_val(const pss2_datum *datum) { return MDB_val{static_cast<size_t>(datum->length), datum->data}; }

// Applies one change: inside the open batch, or in its own transaction committed (and synced)
// before returning. A walk on the handle goes on from its current key in the changed store.
template <typename Change>
uint32_t apply_change(Handle &handle, Change change) {
  Environment &environment = *handle.environment;
  if (handle.batch_txn) {
    if (handle.batch_error != PSS2_OK) return handle.batch_error;
    view_end(handle);
    int rc = change(handle.batch_txn);
    // Any failure but a missing key leaves LMDB's transaction unusable: the batch is lost.
    if (rc != 0 && rc != MDB_NOTFOUND) handle.batch_error = status_from_mdb(rc);
    uint32_t status = status_from_mdb(rc);
    if (walking(handle)) {
      if (handle.batch_error == PSS2_OK) {
        walk_reposition(handle);
      } else {
        walk_end(handle);
      }
    }
    return status;
  }
  if (environment.batch_owner != 0) return PSS2_ERR_BUSY;  // the writer lock is held by that batch
  view_end(handle);
  MDB_txn *txn = nullptr;
  int rc = mdb_txn_begin(environment.env, nullptr, 0, &txn);
  if (rc == 0) {
    rc = change(txn);
    if (rc == 0) {
      rc = mdb_txn_commit(txn);
    } else {
      mdb_txn_abort(txn);
    }
  }
  uint32_t status = status_from_mdb(rc);
  if (walking(handle)) walk_reposition(handle);
  return status;
}

// The handle of a change: open, writable, and with a well-formed key.
uint32_t writable_handle(pss2_handle id, const pss2_datum *key, Handle **out) {
  Handle *handle = handle_find(id);
  if (!handle) return PSS2_ERR_BAD_HANDLE;
  if (uint32_t status = check_key(*handle, key); status != PSS2_OK) return status;
  if (handle->mode == PSS2_MODE_READ) return PSS2_ERR_READ_ONLY;
  *out = handle;
  return PSS2_OK;
}

// A change refused before it reached LMDB (the fault hook, a size or argument error) spoils an open
// batch just as a failed write does: the batch would otherwise commit without that change.
uint32_t refuse_change(pss2_handle id, uint32_t status) {
  Handle *handle = handle_find(id);
  if (handle && handle->batch_txn && handle->batch_error == PSS2_OK && status != PSS2_ERR_NO_KEY) {
    handle->batch_error = status;
  }
  return status;
}

}  // namespace
}  // namespace pss

using pss::Handle;

extern "C" {

uint32_t pss2_store(pss2_handle handle, const pss2_datum *key, const pss2_datum *value) {
  auto lock = pss::lock_state();
  uint32_t status = PSS2_OK;
  if (pss::fault_fires(PSS2_FAULT_STORE, &status)) return pss::refuse_change(handle, status);
  Handle *found = nullptr;
  if ((status = pss::writable_handle(handle, key, &found)) != PSS2_OK) return pss::refuse_change(handle, status);
  if (!value || !value->data || value->length < 0) return pss::refuse_change(handle, PSS2_ERR_BAD_ARGUMENT);
  if (static_cast<uint32_t>(value->length) > found->environment->attributes.max_value_size) {
    return pss::refuse_change(handle, PSS2_ERR_VALUE_SIZE);
  }
  MDB_val k = pss::as_val(key);
  MDB_val v = pss::as_val(value);
  MDB_dbi records = found->environment->records;
  return pss::apply_change(*found, [&](MDB_txn *txn) { return mdb_put(txn, records, &k, &v, 0); });
}

uint32_t pss2_delete(pss2_handle handle, const pss2_datum *key, int flags) {
  static_cast<void>(flags);
  auto lock = pss::lock_state();
  uint32_t status = PSS2_OK;
  if (pss::fault_fires(PSS2_FAULT_DELETE, &status)) return pss::refuse_change(handle, status);
  Handle *found = nullptr;
  if ((status = pss::writable_handle(handle, key, &found)) != PSS2_OK) return pss::refuse_change(handle, status);
  MDB_val k = pss::as_val(key);
  MDB_dbi records = found->environment->records;
  return pss::apply_change(*found, [&](MDB_txn *txn) { return mdb_del(txn, records, &k, nullptr); });
}

pss2_datum pss2_fetch(pss2_handle handle, const pss2_datum *key, uint32_t *status) {
  uint32_t ignored = 0;
  if (!status) status = &ignored;
  auto lock = pss::lock_state();
  if (pss::fault_fires(PSS2_FAULT_FETCH, status)) return pss2_datum{nullptr, 0};
  Handle *found = pss::handle_find(handle);
  *status = found ? pss::check_key(*found, key) : PSS2_ERR_BAD_HANDLE;
  if (*status != PSS2_OK) return pss2_datum{nullptr, 0};
  // A walking handle reads its walk's view; otherwise each fetch takes a fresh snapshot.
  if (!pss::walking(*found)) pss::view_end(*found);
  if ((*status = pss::view_begin(*found)) != PSS2_OK) return pss2_datum{nullptr, 0};
  MDB_val k = pss::as_val(key);
  MDB_val v{0, nullptr};
  *status = pss::status_from_mdb(mdb_get(pss::view_txn(*found), found->environment->records, &k, &v));
  if (*status != PSS2_OK) return pss2_datum{nullptr, 0};
  return pss2_datum{v.mv_data, static_cast<int32_t>(v.mv_size)};
}

uint32_t pss2_batch_begin(pss2_handle handle) {
  auto lock = pss::lock_state();
  Handle *found = pss::handle_find(handle);
  if (!found) return PSS2_ERR_BAD_HANDLE;
  if (found->mode == PSS2_MODE_READ) return PSS2_ERR_READ_ONLY;
  if (found->batch_txn) return PSS2_ERR_BATCH;
  if (found->environment->batch_owner != 0) return PSS2_ERR_BUSY;
  pss::view_end(*found);
  int rc = mdb_txn_begin(found->environment->env, nullptr, 0, &found->batch_txn);
  if (rc != 0) {
    found->batch_txn = nullptr;
    if (pss::walking(*found)) pss::walk_reposition(*found);
    return pss::status_from_mdb(rc);
  }
  found->environment->batch_owner = handle;
  found->batch_error = PSS2_OK;
  if (pss::walking(*found)) pss::walk_reposition(*found);
  return PSS2_OK;
}

}  // extern "C"

namespace {

// Ends the batch of `handle`: commits it (the commit syncs) or drops it.
uint32_t end_batch(pss2_handle handle, bool commit) {
  auto lock = pss::lock_state();
  Handle *found = pss::handle_find(handle);
  if (!found) return PSS2_ERR_BAD_HANDLE;
  if (!found->batch_txn) return PSS2_ERR_BATCH;
  pss::view_end(*found);
  uint32_t status = found->batch_error;
  if (commit && status == PSS2_OK) {
    status = pss::status_from_mdb(mdb_txn_commit(found->batch_txn));
  } else {
    mdb_txn_abort(found->batch_txn);
  }
  found->batch_txn = nullptr;
  found->batch_error = PSS2_OK;
  found->environment->batch_owner = 0;
  if (pss::walking(*found)) pss::walk_reposition(*found);
  return commit ? status : PSS2_OK;
}

}  // namespace

extern "C" {

uint32_t pss2_batch_commit(pss2_handle handle) { return end_batch(handle, true); }
uint32_t pss2_batch_abort(pss2_handle handle) { return end_batch(handle, false); }

}  // extern "C"
