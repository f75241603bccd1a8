// Shared steps of the record writers.
#include "pss/store_io.h"

#include <cstring>

namespace sch::pss {

sch_config_key make_key(uint32_t type, uint32_t sequence, const char *name) {
  sch_config_key key{type, sequence, {}};
  if (name) std::memcpy(key.name, name, strnlen(name, sizeof key.name));
  return key;
}

uint32_t store_bytes(pss2_handle store, const sch_config_key &key, const void *value, size_t length) {
  sch_config_key stored_key = key;
  sch_hton_config_key(&stored_key);
  pss2_datum key_datum{&stored_key, SCH_KEY_SIZE};
  pss2_datum value_datum{const_cast<void *>(value), static_cast<int32_t>(length)};
  return pss2_store(store, &key_datum, &value_datum);
}

uint32_t store_record(pss2_handle store, const sch_config_key &key, const codec::Layout &layout, const void *native) {
  uint8_t image[SCH_PSS_VALUE_SIZE];
  codec::encode(layout, native, image);
  return store_bytes(store, key, image, layout.size);
}

uint32_t delete_key(pss2_handle store, const sch_config_key &key) {
  sch_config_key stored_key = key;
  sch_hton_config_key(&stored_key);
  pss2_datum key_datum{&stored_key, SCH_KEY_SIZE};
  return pss2_delete(store, &key_datum, 1);
}

std::string uri_text(const char (&uri)[SCH_PSS_URI_SIZE]) { return std::string(uri, strnlen(uri, SCH_PSS_URI_SIZE)); }

}  // namespace sch::pss
