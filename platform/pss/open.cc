// Opening, closing and destroying stores.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "pss/store.h"

namespace {

uint32_t open_store(const char *uri, uint32_t mode, const pss2_attributes *attributes, pss2_handle *out) {
  if (!uri || !*uri) return PSS2_ERR_BAD_ARGUMENT;
  if (mode != PSS2_MODE_READ && mode != PSS2_MODE_UPDATE && mode != PSS2_MODE_CREATE) return PSS2_ERR_BAD_ARGUMENT;
  std::string path(uri);
  if (mode == PSS2_MODE_CREATE) {
    if (!attributes || !pss::attributes_valid(*attributes)) return PSS2_ERR_BAD_ARGUMENT;
    uint32_t status = pss::store_create_file(path, *attributes);
    if (status != PSS2_OK) return status;
  }
  pss::Environment *environment = nullptr;
  uint32_t status = pss::environment_open(path, mode != PSS2_MODE_READ, &environment);
  if (status != PSS2_OK) return status;
  status = pss::handle_add(environment, mode == PSS2_MODE_READ ? PSS2_MODE_READ : PSS2_MODE_UPDATE, out);
  if (status != PSS2_OK) pss::environment_release(environment);
  return status;
}

uint32_t unlink_if_present(const std::string &path, bool *removed) {
  if (unlink(path.c_str()) == 0) {
    *removed = true;
    return PSS2_OK;
  }
  return errno == ENOENT ? PSS2_OK : pss::status_from_errno(errno);
}

}  // namespace

extern "C" {

pss2_handle pss2_open(const char *uri, uint32_t mode, uint32_t permissions, uint32_t flags,
                      const pss2_attributes *attributes, uint32_t *status) {
  static_cast<void>(permissions);
  static_cast<void>(flags);
  uint32_t ignored = 0;
  if (!status) status = &ignored;
  auto lock = pss::lock_state();
  if (pss::fault_fires(PSS2_FAULT_OPEN, status)) return 0;
  pss2_handle handle = 0;
  *status = open_store(uri, mode, attributes, &handle);
  return *status == PSS2_OK ? handle : 0;
}

uint32_t pss2_close(pss2_handle handle) {
  auto lock = pss::lock_state();
  pss::Handle *found = pss::handle_find(handle);
  if (!found) return PSS2_ERR_BAD_HANDLE;
  pss::handle_close(found);
  return PSS2_OK;
}

uint32_t pss2_destroy(const char *uri) {
  if (!uri || !*uri) return PSS2_ERR_BAD_ARGUMENT;
  auto lock = pss::lock_state();
  std::string path(uri);
  if (pss::environment_of_file(path)) return PSS2_ERR_BUSY;
  bool removed = false;
  uint32_t status = unlink_if_present(path, &removed);
  if (status == PSS2_OK) status = unlink_if_present(pss::lock_file_of(path), &removed);
  return status == PSS2_OK && removed ? pss::sync_directory_of(path) : status;
}

}  // extern "C"
