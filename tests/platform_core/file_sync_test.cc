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

TEST(FileWriteAll, WritesEveryByteOrReportsTheError) {
  int pipe_fds[2];
  ASSERT_EQ(pipe2(pipe_fds, O_CLOEXEC), 0);
  // More than a pipe holds: the reader drains it while the write goes on.
  std::string sent(300 * 1024, 'x');
  for (size_t i = 0; i < sent.size(); i += 4093) sent[i] = static_cast<char>('a' + i % 26);
  std::string received;
  std::thread reader([&] {
    char chunk[8192];
    for (ssize_t got; (got = read(pipe_fds[0], chunk, sizeof chunk)) > 0;) received.append(chunk, static_cast<size_t>(got));
  });
  EXPECT_EQ(file_write_all(pipe_fds[1], sent.data(), sent.size()), 0);
  close(pipe_fds[1]);
  reader.join();
  close(pipe_fds[0]);
  EXPECT_EQ(received, sent);

  int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_EQ(file_write_all(full, "x", 1), ENOSPC);
  EXPECT_EQ(file_write_all(full, "", 0), 0) << "nothing to write is no write";
  close(full);
  EXPECT_EQ(file_write_all(-1, "x", 1), EBADF);
}

}  // namespace
