// Whole-store copies: the snapshot into the startup area, free space, and shrinking in place.
#include <algorithm>
#include <cstring>
#include <string>

#include "pss/store.h"
#include "schedcli/platform/sysmgr.h"
#include "schedcli/protocol.h"

namespace pss {
namespace {

// The commit record of a copy to startup, beside the startup configuration store.
constexpr char kStartupCopyIntent[] = "scheduler_copy_intent";

// The running stores have startup counterparts of another name; any other store keeps its name.
uint32_t snapshot_target(const Environment &environment, std::string *out) {
  std::string name = base_name_of(environment.path);
  const char *prefix = sysmgr_startup_cfg_uri_get();
  if (name == SCH_STORE_RUNNING) {
    name = SCH_STORE_STARTUP;
  } else if (name == SCH_STORE_DEBUG_RUNNING) {
    name = SCH_STORE_DEBUG_STARTUP;
    prefix = sysmgr_debug_cfg_uri_get();
  }
  if (!prefix) return PSS2_ERR_NO_DIRECTORY;
  *out = std::string(prefix) + name;
  return PSS2_OK;
}

uint32_t startup_intent(std::string *out) {
  const char *prefix = sysmgr_startup_cfg_uri_get();
  if (!prefix) return PSS2_ERR_NO_DIRECTORY;
  *out = std::string(prefix) + kStartupCopyIntent;
  return PSS2_OK;
}

// The directory of every store under `prefix`, named as the stores' own paths name it.
std::string directory_under(const char *prefix) { return directory_of(std::string(prefix) + SCH_STORE_STARTUP); }

// Pages on LMDB's free list: each of its records is a page list whose first word is its length.
uint32_t count_free_pages(MDB_env *env, uint64_t *pages) {
  MDB_txn *txn = nullptr;
  int rc = mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn);
  if (rc != 0) return status_from_mdb(rc);
  constexpr MDB_dbi kFreeListDatabase = 0;
  MDB_cursor *cursor = nullptr;
  rc = mdb_cursor_open(txn, kFreeListDatabase, &cursor);
  MDB_val key{0, nullptr};
  MDB_val value{0, nullptr};
  while (rc == 0 && (rc = mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) == 0) {
    size_t count = 0;
    if (value.mv_size >= sizeof count) std::memcpy(&count, value.mv_data, sizeof count);
    *pages += count;
  }
  if (cursor) mdb_cursor_close(cursor);
  mdb_txn_abort(txn);
  return rc == MDB_NOTFOUND ? PSS2_OK : status_from_mdb(rc);
}

}  // namespace
}  // namespace pss

extern "C" {

uint32_t pss2_snapshot(pss2_handle handle, pss2_handle debug_handle) {
  auto lock = pss::lock_state();
  pss::Handle *found = pss::handle_find(handle);
  pss::Handle *debug = debug_handle ? pss::handle_find(debug_handle) : nullptr;
  if (!found || (debug_handle && !debug)) return PSS2_ERR_BAD_HANDLE;
  std::vector<pss::Environment *> sources{found->environment};
  if (debug) sources.push_back(debug->environment);
  std::vector<std::string> targets(sources.size());
  std::string intent;
  uint32_t status = pss::startup_intent(&intent);
  for (size_t i = 0; i < sources.size() && status == PSS2_OK; i++) {
    status = pss::snapshot_target(*sources[i], &targets[i]);
  }
  return status == PSS2_OK ? pss::copy_stores(sources, targets, intent) : status;
}

uint32_t pss2_copy_stores(const pss2_handle *sources, const char *const *targets, uint32_t count,
                          const char *intent) {
  if (!sources || !targets || !intent || !*intent || count == 0) return PSS2_ERR_BAD_ARGUMENT;
  auto lock = pss::lock_state();
  std::vector<pss::Environment *> environments;
  std::vector<std::string> paths;
  for (uint32_t i = 0; i < count; i++) {
    pss::Handle *found = pss::handle_find(sources[i]);
    if (!found) return PSS2_ERR_BAD_HANDLE;
    if (!targets[i] || !*targets[i]) return PSS2_ERR_BAD_ARGUMENT;
    environments.push_back(found->environment);
    paths.emplace_back(targets[i]);
  }
  return pss::copy_stores(environments, paths, intent);
}

uint32_t pss2_recover_copies(const char *intent, const char *const *directories, uint32_t count) {
  if (!intent || !*intent || (count && !directories)) return PSS2_ERR_BAD_ARGUMENT;
  std::vector<std::string> paths;
  for (uint32_t i = 0; i < count; i++) {
    if (!directories[i] || !*directories[i]) return PSS2_ERR_BAD_ARGUMENT;
    paths.emplace_back(directories[i]);
  }
  auto lock = pss::lock_state();
  return pss::recover_copies(intent, paths);
}

uint32_t pss2_startup_recover(void) {
  const char *running = sysmgr_running_cfg_uri_get();
  const char *startup = sysmgr_startup_cfg_uri_get();
  const char *debug = sysmgr_debug_cfg_uri_get();
  std::string intent;
  if (!running || !startup || !debug || pss::startup_intent(&intent) != PSS2_OK) return PSS2_ERR_NO_DIRECTORY;
  auto lock = pss::lock_state();
  return pss::recover_copies(intent, {pss::directory_under(running), pss::directory_under(startup),
                                      pss::directory_under(debug)});
}

uint32_t pss_free_space(pss2_handle handle, uint32_t *free_bytes) {
  auto lock = pss::lock_state();
  uint32_t status = PSS2_OK;
  if (pss::fault_fires(PSS2_FAULT_FREE_SPACE, &status)) return status;
  if (!free_bytes) return PSS2_ERR_BAD_ARGUMENT;
  pss::Handle *found = pss::handle_find(handle);
  if (!found) return PSS2_ERR_BAD_HANDLE;
  MDB_env *env = found->environment->env;
  uint64_t pages = 0;
  MDB_stat stat;
  if ((status = pss::count_free_pages(env, &pages)) != PSS2_OK) return status;
  if ((status = pss::status_from_mdb(mdb_env_stat(env, &stat))) != PSS2_OK) return status;
  *free_bytes = static_cast<uint32_t>(std::min<uint64_t>(pages * stat.ms_psize, UINT32_MAX));
  return PSS2_OK;
}

pss2_handle pss_shrink(pss2_handle handle, uint32_t *status) {
  uint32_t ignored = 0;
  if (!status) status = &ignored;
  auto lock = pss::lock_state();
  pss::Handle *found = pss::handle_find(handle);
  if (!found) {
    *status = PSS2_ERR_BAD_HANDLE;
    return 0;
  }
  pss::Environment &environment = *found->environment;
  const std::string path = environment.path;
  const uint32_t mode = found->mode;
  // The file is replaced under the environment, so nobody else in this process may be using it.
  uint32_t result = mode == PSS2_MODE_READ                                      ? PSS2_ERR_READ_ONLY
                    : environment.references > 1 || environment.batch_owner != 0 ? PSS2_ERR_BUSY
                                                                                 : PSS2_OK;
  pss::PendingCopy copy;
  if (result == PSS2_OK) {
    pss::walk_end(*found);
    result = pss::copy_write(environment, path, PSS2_FAULT_SHRINK, &copy);
  }
  pss::handle_close(found);  // closes the environment before its file is replaced
  if (result == PSS2_OK) result = pss::copy_install(copy);
  pss2_handle reopened = 0;
  pss::Environment *fresh = nullptr;
  if (result == PSS2_OK) result = pss::environment_open(path, true, &fresh);
  if (result == PSS2_OK && (result = pss::handle_add(fresh, mode, &reopened)) != PSS2_OK) {
    pss::environment_release(fresh);
  }
  *status = result;
  return result == PSS2_OK ? reopened : 0;
}

}  // extern "C"
