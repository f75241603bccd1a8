// Local users: exactly the names the configured password file lists.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "schedcli/platform/auth.h"
#include "support/temp_dir.h"

namespace {

class LocalUsers : public ::testing::Test {
 protected:
  void SetUp() override {
    passwd_ = directory_ + "/passwd";
    std::ofstream(passwd_) << "root:x:0:0:root:/root:/bin/bash\n"
                              "alice:x:1000:1000:Alice:/home/alice:/bin/sh\n"
                              "carol\n"
                              "\n"
                              "dave:x:1002:1002::/home/dave:/bin/sh";  // no newline at the end
    ASSERT_EQ(auth_local_passwd_file_set(passwd_.c_str()), 0u);
  }
  void TearDown() override {
    auth_local_passwd_file_set(nullptr);
  }

  sch::testing::TempDir temp_;
  std::string directory_ = temp_.path();
  std::string passwd_;
};

TEST_F(LocalUsers, MatchesWholeNamesOnly) {
  EXPECT_NE(check_if_user_local(nullptr, "alice"), 0);
  EXPECT_NE(check_if_user_local(nullptr, "dave"), 0) << "last line without its newline";
  for (const char *stranger : {"ali", "alicea", "alice:x", "carol", "x", "", "Alice"}) {
    EXPECT_EQ(check_if_user_local(nullptr, stranger), 0) << stranger;
  }
  EXPECT_EQ(check_if_user_local(nullptr, nullptr), 0);
}

}  // namespace
