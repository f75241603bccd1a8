// Helpers of the store tests: a fresh directory per test and scheduler-shaped keys and records.
#ifndef TESTS_PLATFORM_STORE_SUPPORT_H
#define TESTS_PLATFORM_STORE_SUPPORT_H

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "schedcli/platform/pss.h"
#include "support/temp_dir.h"

namespace store_test {

inline constexpr pss2_attributes kAttributes{40, 1024, 0x001E0000, 1, 2000};
using Key = std::array<unsigned char, 40>;
using Records = std::vector<std::pair<std::string, std::string>>;

using sch::testing::TempDir;

// Big-endian type and sequence, then the name, as the scheduler lays out its keys.
inline Key make_key(uint32_t type, uint32_t sequence, const std::string &name = "job") {
  Key key{};
  for (int i = 0; i < 4; i++) {
    key[i] = static_cast<unsigned char>(type >> (24 - 8 * i));
    key[4 + i] = static_cast<unsigned char>(sequence >> (24 - 8 * i));
  }
  std::memcpy(key.data() + 8, name.data(), name.size());
  return key;
}
inline std::string key_text(const Key &key) { return std::string(key.begin(), key.end()); }

template <typename Bytes>
pss2_datum datum(const Bytes &bytes) {
  return pss2_datum{const_cast<unsigned char *>(reinterpret_cast<const unsigned char *>(bytes.data())),
                    static_cast<int32_t>(bytes.size())};
}
template <typename Bytes>
pss2_datum datum(const Bytes &&) = delete;  // a descriptor of a temporary would dangle

inline pss2_handle open_store(const std::string &path, uint32_t mode, uint32_t *status = nullptr) {
  return pss2_open(path.c_str(), mode, 0xE0, 0, mode == PSS2_MODE_CREATE ? &kAttributes : nullptr, status);
}
inline uint32_t put(pss2_handle handle, const Key &key, const std::string &value) {
  pss2_datum k = datum(key), v = datum(value);
  return pss2_store(handle, &k, &v);
}
inline uint32_t erase(pss2_handle handle, const Key &key) {
  pss2_datum k = datum(key);
  return pss2_delete(handle, &k, 1);
}
inline std::string text_of(const pss2_datum &d) {
  return d.data ? std::string(static_cast<const char *>(d.data), d.length) : std::string();
}
inline std::string fetch(pss2_handle handle, const Key &key, uint32_t *status) {
  pss2_datum k = datum(key);
  return text_of(pss2_fetch(handle, &k, status));
}

// Every record in walk order.
inline Records read_all(pss2_handle handle) {
  Records records;
  uint32_t status = 0, moved = pss2_move2location(&handle, 1, PSS2_LOCATION_FIRST, nullptr);
  for (; moved == 0; moved = pss2_move2location(&handle, 1, PSS2_LOCATION_NEXT, nullptr)) {
    records.emplace_back(text_of(pss2_getkey(handle, &status)), text_of(pss2_getvalue(handle, &status)));
    EXPECT_EQ(status, 0u);
  }
  EXPECT_EQ(moved, PSS2_ERR_END);
  return records;
}

// The records of the store at `path`, read through a handle of its own.
inline Records contents(const std::string &path) {
  pss2_handle handle = open_store(path, PSS2_MODE_READ);
  EXPECT_NE(handle, 0u) << path;
  Records records = read_all(handle);
  pss2_close(handle);
  return records;
}

inline uintmax_t file_size(const std::string &path) { return std::filesystem::file_size(path); }

}  // namespace store_test

#endif
