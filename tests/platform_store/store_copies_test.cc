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
