// Reading a store back in tests: every record as key and value bytes, in store order.
#ifndef SCHEDCLI_TESTS_PSS_STORE_READER_H
#define SCHEDCLI_TESTS_PSS_STORE_READER_H

#include <string>
#include <utility>
#include <vector>

#include "db/codec.h"
#include "schedcli/platform/pss.h"

namespace sch::testing {

using Record = std::pair<std::string, std::string>;  // key bytes, value bytes

inline std::vector<Record> all_records(pss2_handle store) {
  std::vector<Record> records;
  uint32_t visited = 0;
  for (uint32_t status = pss2_move2location(&store, 1, PSS2_LOCATION_FIRST, &visited); status == 0;
       status = pss2_move2location(&store, 1, PSS2_LOCATION_NEXT, &visited)) {
    uint32_t key_status = 0, value_status = 0;
    pss2_datum key = pss2_getkey(store, &key_status);
    pss2_datum value = pss2_getvalue(store, &value_status);
    records.emplace_back(std::string(static_cast<const char *>(key.data), static_cast<size_t>(key.length)),
                         value.data ? std::string(static_cast<const char *>(value.data), static_cast<size_t>(value.length))
                                    : std::string());
  }
  return records;
}

// The stored (big-endian) image of a key.
inline std::string stored_key(uint32_t type, uint32_t sequence, const std::string &name = "") {
  std::string key(SCH_KEY_SIZE, '\0');
  codec::put_u32(reinterpret_cast<uint8_t *>(key.data()), type);
  codec::put_u32(reinterpret_cast<uint8_t *>(key.data()) + 4, sequence);
  key.replace(8, std::min<size_t>(name.size(), 32), name.substr(0, 32));
  return key;
}

// The value stored under a key, or nullopt-like empty marker "<none>".
inline std::string value_at(pss2_handle store, const std::string &key) {
  pss2_datum key_datum{const_cast<char *>(key.data()), static_cast<int32_t>(key.size())};
  uint32_t status = 0;
  pss2_datum value = pss2_fetch(store, &key_datum, &status);
  if (status != 0) return "<none>";
  return std::string(static_cast<const char *>(value.data), static_cast<size_t>(value.length));
}

inline std::string be32(uint32_t value) {
  std::string out(4, '\0');
  codec::put_u32(reinterpret_cast<uint8_t *>(out.data()), value);
  return out;
}

}  // namespace sch::testing

#endif
