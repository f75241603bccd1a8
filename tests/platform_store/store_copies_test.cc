// Whole-store copies: snapshot targets and atomicity, free space, and shrinking in place.
#include <filesystem>
#include <iterator>

#include "schedcli/platform/sysmgr.h"
#include "store_test_support.h"

namespace store_test {
namespace {

class StoreCopies : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(sysmgr_dirs_set(dir_.file("state").c_str(), dir_.file("run").c_str()), 0); }
  void TearDown() override {
    pss2_fault_clear_all();
    sysmgr_dirs_clear();
  }
  std::string running(const std::string &name) { return dir_.file("run/" + name); }
  std::string startup(const std::string &name) { return dir_.file("state/startup/" + name); }
  std::string debug(const std::string &name) { return dir_.file("state/debug/" + name); }
  // A store and its lock file, and no temporary copy left behind.
  void expect_two_files_in(const std::string &directory) {
    auto files = std::filesystem::directory_iterator(dir_.file(directory));
    EXPECT_EQ(std::distance(begin(files), end(files)), 2) << directory;
  }
  TempDir dir_;
};

TEST_F(StoreCopies, SnapshotWritesTheStartupCounterpartsOfTheRunningStores) {
  pss2_handle config = open_store(running("scheduler_runtime"), PSS2_MODE_CREATE);
  pss2_handle debug_config = open_store(running("scheduler_debug_runtime"), PSS2_MODE_CREATE);
  pss2_handle other = open_store(running("scheduler_runtime_database"), PSS2_MODE_CREATE);
  put(config, make_key(1, 0), "job");
  put(debug_config, make_key(4, 0), "level");
  put(other, make_key(255, 1), "result");
  // As the library does it: a read handle on the running store beside the daemon's own.
  pss2_handle reader = open_store(running("scheduler_runtime"), PSS2_MODE_READ);
  EXPECT_EQ(pss2_snapshot(reader, debug_config), 0u);
  pss2_close(reader);
  EXPECT_EQ(pss2_snapshot(other, 0), 0u);
  EXPECT_EQ(contents(startup("scheduler_startup")), read_all(config));
  EXPECT_EQ(contents(debug("scheduler_debug_startup")), read_all(debug_config));
  EXPECT_EQ(contents(startup("scheduler_runtime_database")), read_all(other));

  EXPECT_EQ(pss2_snapshot(config, 12345), PSS2_ERR_BAD_HANDLE);
  pss2_handle target = open_store(startup("scheduler_startup"), PSS2_MODE_READ);
  EXPECT_EQ(pss2_snapshot(config, 0), PSS2_ERR_BUSY);  // never replaced under an open handle
  pss2_close(target);
  sysmgr_dirs_clear();
  EXPECT_EQ(pss2_snapshot(config, 0), PSS2_ERR_NO_DIRECTORY);
  for (pss2_handle handle : {config, debug_config, other}) pss2_close(handle);
}

// Each step fails in turn (the two copies, then the commit record) until none is left to fail: the
// pair of targets is always wholly old or wholly new, and nothing is left beside them.
TEST_F(StoreCopies, FailedSnapshotLeavesTheOldStartupPairWhole) {
  pss2_handle config = open_store(running("scheduler_runtime"), PSS2_MODE_CREATE);
  pss2_handle debug_config = open_store(running("scheduler_debug_runtime"), PSS2_MODE_CREATE);
  put(config, make_key(1, 0), "saved");
  put(debug_config, make_key(4, 0), "saved");
  ASSERT_EQ(pss2_snapshot(config, debug_config), 0u);
  put(config, make_key(1, 0), "changed");
  put(debug_config, make_key(4, 0), "changed");
  uint64_t nth = 1;
  for (;; nth++) {
    pss2_fault_set(PSS2_FAULT_SNAPSHOT, nth, PSS2_ERR_IO, 0);
    uint32_t status = pss2_snapshot(config, debug_config);
    const char *expected = status == 0 ? "changed" : "saved";
    EXPECT_EQ(contents(startup("scheduler_startup"))[0].second, expected) << nth;
    EXPECT_EQ(contents(debug("scheduler_debug_startup"))[0].second, expected) << nth;
    expect_two_files_in("state/startup");
    expect_two_files_in("state/debug");
    if (status == 0) break;
    EXPECT_EQ(status, PSS2_ERR_IO);
    ASSERT_LE(nth, 3u);
  }
  EXPECT_EQ(nth, 4u) << "two copies and the commit record, each failed once";
  pss2_close(config);
  pss2_close(debug_config);
}

TEST_F(StoreCopies, ShrinkGivesBackTheSpaceOfDeletedRecordsUnderANewHandle) {
  pss2_handle handle = open_store(running("s"), PSS2_MODE_CREATE);
  uint32_t free_bytes = 0, status = 1;
  ASSERT_EQ(pss2_batch_begin(handle), 0u);
  for (uint32_t i = 0; i < 3000; i++) put(handle, make_key(255, i), std::string(1000, 'r'));
  ASSERT_EQ(pss2_batch_commit(handle), 0u);
  for (uint32_t i = 0; i < 3000; i++) {
    if (i % 30 != 0) erase(handle, make_key(255, i));
  }
  uintmax_t before = file_size(running("s"));
  EXPECT_EQ(pss_free_space(handle, &free_bytes), 0u);
  EXPECT_GT(free_bytes, before / 2);

  pss2_handle shrunk = pss_shrink(handle, &status);
  ASSERT_NE(shrunk, 0u) << status;
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(pss2_close(handle), PSS2_ERR_BAD_HANDLE);
  EXPECT_LT(file_size(running("s")), before / 4);
  EXPECT_EQ(pss_free_space(shrunk, &free_bytes), 0u);
  EXPECT_LT(free_bytes, 16u * 4096);
  EXPECT_EQ(read_all(shrunk).size(), 100u);
  EXPECT_EQ(put(shrunk, make_key(255, 1), "writable"), 0u);
  pss2_close(shrunk);
}

TEST_F(StoreCopies, FailedShrinkClosesTheHandleAndLeavesTheStoreAsItWas) {
  pss2_handle handle = open_store(running("s"), PSS2_MODE_CREATE);
  for (uint32_t i = 0; i < 50; i++) put(handle, make_key(1, i), "kept");
  Records before = read_all(handle);
  uintmax_t size = file_size(running("s"));
  uint32_t status = 0;
  pss2_fault_set(PSS2_FAULT_SHRINK, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(pss_shrink(handle, &status), 0u);
  EXPECT_EQ(status, PSS2_ERR_IO);
  EXPECT_EQ(pss2_close(handle), PSS2_ERR_BAD_HANDLE);
  EXPECT_EQ(file_size(running("s")), size);
  expect_two_files_in("run");

  handle = open_store(running("s"), PSS2_MODE_UPDATE);
  pss2_handle second = open_store(running("s"), PSS2_MODE_READ);
  EXPECT_EQ(pss_shrink(handle, &status), 0u);
  EXPECT_EQ(status, PSS2_ERR_BUSY);  // the file cannot be replaced under another handle
  EXPECT_EQ(pss_shrink(second, &status), 0u);
  EXPECT_EQ(status, PSS2_ERR_READ_ONLY);
  EXPECT_EQ(contents(running("s")), before);
}

}  // namespace
}  // namespace store_test
