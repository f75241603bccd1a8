// Service paths: directories, URI prefixes and the stateless-restart flag.
#include "schedcli/platform/sysmgr.h"

#include <filesystem>
#include <fstream>

#include "store_test_support.h"

namespace store_test {
namespace {

class Sysmgr : public ::testing::Test {
 protected:
  void TearDown() override { sysmgr_dirs_clear(); }
  TempDir dir_;
};

TEST_F(Sysmgr, SettingMakesTheDirectoriesAndTellsAFirstStartAfterBoot) {
  EXPECT_EQ(sysmgr_running_cfg_uri_get(), nullptr);
  ASSERT_EQ(sysmgr_dirs_set(dir_.file("state/").c_str(), dir_.file("a/run").c_str()), 0);
  EXPECT_EQ(sysmgr_is_stateless_restart(), 1);
  for (const char *made : {"state/startup", "state/debug", "a/run"}) {
    EXPECT_TRUE(std::filesystem::is_directory(dir_.file(made))) << made;
  }
  EXPECT_EQ(sysmgr_state_dir(), dir_.file("state"));
  EXPECT_EQ(sysmgr_startup_cfg_uri_get(), dir_.file("state/startup/"));
  EXPECT_EQ(sysmgr_debug_cfg_uri_get(), dir_.file("state/debug/"));
  EXPECT_EQ(sysmgr_uri_complete(sysmgr_running_cfg_uri_get(), "", "scheduler_runtime"),
            dir_.file("a/run/scheduler_runtime"));
  EXPECT_STREQ(sysmgr_uri_complete(nullptr, nullptr, "x"), "x");

  // A restart that finds its runtime directory continues from the running stores.
  ASSERT_EQ(sysmgr_dirs_set(dir_.file("state").c_str(), dir_.file("a/run").c_str()), 0);
  EXPECT_EQ(sysmgr_is_stateless_restart(), 0);
  sysmgr_dirs_clear();
  EXPECT_EQ(sysmgr_startup_cfg_uri_get(), nullptr);
}

TEST_F(Sysmgr, AFailedSetChangesNothing) {
  ASSERT_EQ(sysmgr_dirs_set(dir_.file("state").c_str(), dir_.file("run").c_str()), 0);
  std::ofstream(dir_.file("file")) << "x";
  EXPECT_EQ(sysmgr_dirs_set(dir_.file("new/state").c_str(), dir_.file("file/run").c_str()), ENOTDIR);
  EXPECT_FALSE(std::filesystem::exists(dir_.file("new")));
  EXPECT_EQ(sysmgr_state_dir(), dir_.file("state"));
  EXPECT_EQ(sysmgr_dirs_set(nullptr, "x"), EINVAL);
  EXPECT_EQ(sysmgr_dirs_set(std::string(201, 'd').c_str(), "x"), ENAMETOOLONG);
}

}  // namespace
}  // namespace store_test
