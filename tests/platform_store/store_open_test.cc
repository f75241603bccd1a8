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
