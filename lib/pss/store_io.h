// Shared steps of the record writers: building a key, converting a copy of it, handing key and
// value images to the store.
#ifndef SCHEDCLI_LIB_PSS_STORE_IO_H
#define SCHEDCLI_LIB_PSS_STORE_IO_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "db/codec.h"
#include "schedcli/pss.h"

namespace sch::pss {

// A key with `name` copied into its field: at most 32 bytes, NUL-padded.
sch_config_key make_key(uint32_t type, uint32_t sequence, const char *name);

// Stores `length` bytes under a converted copy of the key; returns the store's status.
uint32_t store_bytes(pss2_handle store, const sch_config_key &key, const void *value, size_t length);
// Encodes a native record by its layout and stores it.
uint32_t store_record(pss2_handle store, const sch_config_key &key, const codec::Layout &layout, const void *native);
// Deletes under a converted copy of the key; returns the store's status.
uint32_t delete_key(pss2_handle store, const sch_config_key &key);

// A URI global as a terminated string (the global is not terminated when full).
std::string uri_text(const char (&uri)[SCH_PSS_URI_SIZE]);

}  // namespace sch::pss

#endif
