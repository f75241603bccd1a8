// The file-sync helper: it syncs what it is given and says which call failed and why.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>

#include "schedcli/platform/file_sync.h"
#include "support/temp_dir.h"

namespace {

TEST(FileSync, SyncsAFileAndTheDirectoryThatNamesItOrReportsTheError) {
  sch::testing::TempDir temp;
  const std::string directory = temp.path();
  const std::string file = directory + "/f";
  int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(file_sync(fd), 0);
  EXPECT_EQ(file_sync_with_directory(fd, file.c_str()), 0);
  EXPECT_EQ(file_sync_directory_of((directory + "/gone").c_str()), 0) << "the name itself need not exist";
  EXPECT_EQ(file_sync_directory_of("relative-name"), 0) << "a bare name is in the working directory";
  EXPECT_EQ(file_sync_directory_of("/top-level"), 0);
  close(fd);

  EXPECT_EQ(file_sync(-1), EBADF);
  EXPECT_EQ(file_sync(fd), EBADF) << "a closed descriptor";
  EXPECT_EQ(file_sync_with_directory(-1, file.c_str()), EBADF);
  EXPECT_EQ(file_sync_directory_of(nullptr), EINVAL);
  EXPECT_EQ(file_sync_directory_of(""), EINVAL);
  EXPECT_EQ(file_sync_directory_of((directory + "/missing/f").c_str()), ENOENT);
  EXPECT_EQ(file_sync_directory_of((file + "/f").c_str()), ENOTDIR);
}

}  // namespace
