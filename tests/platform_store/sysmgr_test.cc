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
