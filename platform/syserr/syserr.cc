// Texts for every status word the product returns.
#include "schedcli/platform/syserr.h"

#include <cstdio>

#include "schedcli/platform/pss.h"
#include "schedcli/status.h"

namespace {

struct CodeText {
  uint32_t code;
  const char *text;
};

constexpr CodeText kTexts[] = {
    {0, "Success"},
    // Record stores.
    {PSS2_ERR_BAD_HANDLE, "Store handle is not open"},
    {PSS2_ERR_BAD_ARGUMENT, "Invalid argument to the record store"},
    {PSS2_ERR_NO_KEY, "No such record in the store"},
    {PSS2_ERR_KEY_SIZE, "Record key size does not match the store"},
    {PSS2_ERR_VALUE_SIZE, "Record value is larger than the store allows"},
    {PSS2_ERR_READ_ONLY, "Store is open for reading only"},
    {PSS2_ERR_END, "No more records in the store"},
    {PSS2_ERR_IO, "Input/output error on the record store"},
    {PSS2_ERR_FULL, "Record store is full"},
    {PSS2_ERR_TOO_MANY, "Too many record stores open"},
    {PSS2_ERR_CORRUPT, "Record store is damaged or not a store"},
    {PSS2_ERR_NO_MEMORY, "Out of memory in the record store"},
    {PSS2_ERR_NO_STORE, "Record store does not exist"},
    {PSS2_ERR_BUSY, "Record store is already open"},
    {PSS2_ERR_BATCH, "Record store batch is not in the expected state"},
    {PSS2_ERR_EXISTS, "Record store already exists"},
    // The scheduler.
    {SCH_STATUS_EXISTS, "Entry already exists"},
    {SCH_STATUS_NO_CREDENTIAL, "User name or password missing"},
    {SCH_STATUS_TIME_FORMAT, "Incorrect time format"},
    {SCH_STATUS_TIME_FORMAT_ALT, "Incorrect time format"},
    {SCH_STATUS_OUT_OF_RANGE, "Value out of range"},
    {SCH_STATUS_TIME_IN_PAST, "Specified time is in the past"},
    {SCH_STATUS_AUTH_FAILED, "User authentication failed"},
    {SCH_STATUS_CREDENTIAL_FETCH, "Could not fetch the user's credential"},
    {SCH_STATUS_LOCAL_USER, "Password cannot be stored for a local user"},
};

}  // namespace

extern "C" const char *syserr2str(uint32_t code) {
  for (const CodeText &entry : kTexts) {
    if (entry.code == code) return entry.text;
  }
  static thread_local char unknown[40];
  std::snprintf(unknown, sizeof unknown, "unknown error 0x%08x", code);
  return unknown;
}
