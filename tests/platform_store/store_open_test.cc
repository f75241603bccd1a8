// Opening, closing and destroying stores: modes, statuses, enforced sizes, damaged files, sharing.
#include <dirent.h>
#include <lmdb.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <tuple>
#include <vector>

#include "store_test_support.h"

namespace store_test {
namespace {

TEST(StoreOpen, ModesAndTheirStatuses) {
  TempDir dir;
  uint32_t status = 1;
  EXPECT_EQ(open_store(dir.file("s"), PSS2_MODE_READ, &status), 0u);
  EXPECT_EQ(status, PSS2_ERR_NO_STORE);
  EXPECT_EQ(open_store(dir.file("s"), PSS2_MODE_UPDATE, &status), 0u);
  EXPECT_EQ(status, PSS2_ERR_NO_STORE);
  EXPECT_NE(access(dir.file("s").c_str(), F_OK), 0);

  pss2_handle created = open_store(dir.file("s"), PSS2_MODE_CREATE, &status);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(put(created, make_key(1, 0), "header"), 0u);
  EXPECT_EQ(open_store(dir.file("s"), PSS2_MODE_CREATE, &status), 0u);
  EXPECT_EQ(status, 0x80480011u);
  EXPECT_EQ(pss2_close(created), 0u);

  pss2_handle update = open_store(dir.file("s"), PSS2_MODE_UPDATE, &status);
  EXPECT_EQ(put(update, make_key(1, 1), "fragment"), 0u);
  pss2_handle read = open_store(dir.file("s"), PSS2_MODE_READ, &status);
  EXPECT_EQ(read_all(read).size(), 2u);
  EXPECT_EQ(put(read, make_key(1, 2), "x"), PSS2_ERR_READ_ONLY);
  EXPECT_EQ(pss2_batch_begin(read), PSS2_ERR_READ_ONLY);
  pss2_close(read);
  pss2_close(update);
}

TEST(StoreOpen, BadArgumentsAndSizesGiveStatusWords) {
  TempDir dir;
  const std::string path = dir.file("s");
  pss2_attributes long_key = kAttributes;
  long_key.key_size = 512;
  uint32_t status = 0;
  for (auto [uri, mode, attributes] : {std::tuple{"", PSS2_MODE_READ, &kAttributes}, {path.c_str(), 7u, &kAttributes},
                                       {path.c_str(), PSS2_MODE_CREATE, nullptr},
                                       {path.c_str(), PSS2_MODE_CREATE, &long_key}}) {
    EXPECT_EQ(pss2_open(uri, mode, 0, 0, attributes, &status), 0u);
    EXPECT_EQ(status, PSS2_ERR_BAD_ARGUMENT);
  }
  EXPECT_NE(access(path.c_str(), F_OK), 0);

  // The creator's sizes hold after a reopen.
  pss2_close(pss2_open(path.c_str(), PSS2_MODE_CREATE, 0, 0, &kAttributes, nullptr));
  pss2_handle handle = open_store(path, PSS2_MODE_UPDATE);
  std::string key39(39, 'k'), value(1025, 'v');
  pss2_datum short_key = datum(key39), v = datum(value);
  EXPECT_EQ(pss2_store(handle, &short_key, &v), PSS2_ERR_KEY_SIZE);
  EXPECT_EQ(pss2_fetch(handle, &short_key, &status).data, nullptr);
  EXPECT_EQ(status, PSS2_ERR_KEY_SIZE);
  EXPECT_EQ(put(handle, make_key(1, 0), value), PSS2_ERR_VALUE_SIZE);
  EXPECT_EQ(put(handle, make_key(1, 0), value.substr(0, 1024)), 0u);
  EXPECT_EQ(put(handle, make_key(1, 1), ""), 0u);
  EXPECT_EQ(pss2_store(handle, nullptr, &v), PSS2_ERR_BAD_ARGUMENT);
  EXPECT_EQ(pss2_move2location(nullptr, 1, PSS2_LOCATION_FIRST, nullptr), PSS2_ERR_BAD_ARGUMENT);
  EXPECT_EQ(pss_free_space(handle, nullptr), PSS2_ERR_BAD_ARGUMENT);
  pss2_close(handle);
}

TEST(StoreOpen, FilesThatAreNotWholeStoresAreRefused) {
  TempDir dir;
  std::ofstream(dir.file("text")) << "not a store\n";
  std::ofstream(dir.file("empty")).flush();
  MDB_env *env = nullptr;  // a sound LMDB file without the store's own layout
  MDB_txn *txn = nullptr;
  MDB_dbi dbi = 0;
  MDB_val val{3, const_cast<char *>("abc")};
  ASSERT_EQ(mdb_env_create(&env), 0);
  ASSERT_EQ(mdb_env_open(env, dir.file("foreign").c_str(), MDB_NOSUBDIR, 0600), 0);
  ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn) || mdb_dbi_open(txn, nullptr, 0, &dbi) ||
                mdb_put(txn, dbi, &val, &val, 0) || mdb_txn_commit(txn),
            0);
  mdb_env_close(env);
  pss2_handle full = open_store(dir.file("cut"), PSS2_MODE_CREATE);
  for (uint32_t i = 0; i < 200; i++) put(full, make_key(1, i), std::string(900, 'x'));
  pss2_close(full);
  std::filesystem::copy_file(dir.file("cut"), dir.file("one-page"));
  ASSERT_EQ(truncate(dir.file("cut").c_str(), file_size(dir.file("cut")) / 2), 0);
  ASSERT_EQ(truncate(dir.file("one-page").c_str(), 4096), 0);

  for (const char *name : {"text", "empty", "foreign", "cut", "one-page", "."}) {
    for (uint32_t mode : {PSS2_MODE_READ, PSS2_MODE_UPDATE}) {
      uint32_t status = 0;
      EXPECT_EQ(open_store(dir.file(name), mode, &status), 0u) << name;
      EXPECT_EQ(status, PSS2_ERR_CORRUPT) << name;
    }
  }
  EXPECT_EQ(file_size(dir.file("empty")), 0);
}

// Descriptors of this process on `path`: a second environment on the file would add more.
int descriptors_on(const std::string &path) {
  int count = 0;
  DIR *fds = opendir("/proc/self/fd");
  while (struct dirent *entry = readdir(fds)) {
    std::error_code error;
    auto target = std::filesystem::read_symlink(std::string("/proc/self/fd/") + entry->d_name, error);
    if (!error && target == std::filesystem::canonical(path)) count++;
  }
  closedir(fds);
  return count;
}

TEST(StoreOpen, OneFileOpenedTwiceSharesOneEnvironment) {
  TempDir dir;
  pss2_handle update = open_store(dir.file("s"), PSS2_MODE_CREATE);
  int descriptors = descriptors_on(dir.file("s"));
  pss2_handle read = open_store(dir.file("./s"), PSS2_MODE_READ);  // another spelling, same file
  ASSERT_NE(read, 0u);
  EXPECT_NE(read, update);
  EXPECT_EQ(descriptors_on(dir.file("s")), descriptors);
  EXPECT_EQ(put(update, make_key(2, 0), "on"), 0u);
  EXPECT_EQ(pss2_close(update), 0u);
  uint32_t status = 1;
  EXPECT_EQ(fetch(read, make_key(2, 0), &status), "on");
  EXPECT_EQ(pss2_close(read), 0u);
  EXPECT_EQ(descriptors_on(dir.file("s")), 0);
}

TEST(StoreOpen, ClosedHandlesStayInvalidAndDestroyRemovesTheStore) {
  TempDir dir;
  pss2_handle handle = open_store(dir.file("s"), PSS2_MODE_CREATE);
  EXPECT_EQ(pss2_destroy(dir.file("s").c_str()), PSS2_ERR_BUSY);
  EXPECT_EQ(pss2_close(handle), 0u);
  EXPECT_EQ(pss2_close(handle), PSS2_ERR_BAD_HANDLE);
  pss2_handle reused = open_store(dir.file("s"), PSS2_MODE_UPDATE);  // takes the same slot
  EXPECT_EQ(put(handle, make_key(1, 0), "x"), PSS2_ERR_BAD_HANDLE);
  uint32_t status = 0;
  EXPECT_EQ(pss2_getkey(handle, &status).data, nullptr);
  EXPECT_EQ(status, PSS2_ERR_BAD_HANDLE);
  pss2_close(reused);
  EXPECT_EQ(pss2_destroy(dir.file("s").c_str()), 0u);
  EXPECT_FALSE(std::filesystem::exists(dir.file("s")) || std::filesystem::exists(dir.file("s-lock")));
  EXPECT_EQ(pss2_destroy(dir.file("s").c_str()), 0u);
}

// The daemon keeps its running, startup and debug stores open while snapshot copies are written
// beside them; a 32-bit process must have the address space for all of them at once.
TEST(StoreOpen, TheDaemonsStoresFitOpenTogetherInA32BitProcess) {
  TempDir dir;
  std::vector<pss2_handle> handles;
  for (int i = 0; i < 10; i++) {
    uint32_t status = 1;
    handles.push_back(open_store(dir.file("s" + std::to_string(i)), PSS2_MODE_CREATE, &status));
    ASSERT_EQ(status, 0u) << "store " << i;
    EXPECT_EQ(put(handles.back(), make_key(1, 0), "header"), 0u) << "store " << i;
  }
  for (pss2_handle handle : handles) EXPECT_EQ(pss2_close(handle), 0u);
}

}  // namespace
}  // namespace store_test
