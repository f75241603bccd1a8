// File URIs: parsing, rendering and mapping to the scheduler's directories.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "schedcli/platform/sysmgr.h"
#include "schedcli/platform/uri.h"
#include "support/temp_dir.h"

namespace {

TEST(FileUri, ParsesKnownFileSystemsAndPlainPaths) {
  file_uri uri;
  ASSERT_EQ(uri_parse("logs:sched.log", &uri), 0);
  EXPECT_STREQ(uri.device, "logs");
  EXPECT_STREQ(uri.path, "sched.log");
  ASSERT_EQ(uri_parse("/var/tmp/x.dat", &uri), 0);
  EXPECT_STREQ(uri.device, "");
  EXPECT_STREQ(uri.path, "/var/tmp/x.dat");
  char text[64];
  EXPECT_EQ(snprintf_uri_len(text, &uri, sizeof text), 14);
  EXPECT_STREQ(text, "/var/tmp/x.dat");
  uri_parse("bootflash:a/b", &uri);
  EXPECT_EQ(snprintf_uri_len(text, &uri, 8), 13) << "the full length, like snprintf";
  EXPECT_STREQ(text, "bootfla");
}

TEST(FileUri, RefusesUnknownEmptyEscapingAndOverlongUris) {
  file_uri uri;
  EXPECT_EQ(uri_parse("floppy:x", &uri), -1);
  EXPECT_EQ(uri_parse("", &uri), -1);
  EXPECT_EQ(uri_parse("logs:", &uri), -1);
  EXPECT_EQ(uri_parse("logs:../../etc/passwd", &uri), -1);
  EXPECT_EQ(uri_parse("logs:a/../b", &uri), -1);
  EXPECT_EQ(uri_parse(std::string(300, 'p').c_str(), &uri), -1);
  EXPECT_EQ(uri_parse(nullptr, &uri), -1);
}

TEST(FileUri, MapsFileSystemsUnderTheStateAndRuntimeDirectories) {
  sch::testing::TempDir temp;
  std::string root = temp.path();
  ASSERT_EQ(sysmgr_dirs_set((root + "/state").c_str(), (root + "/run").c_str()), 0);
  EXPECT_EQ(std::string(uri_map_targetfs_path_get("logs", "a.dat")), root + "/state/logs/a.dat");
  EXPECT_TRUE(std::filesystem::is_directory(root + "/state/logs"));
  EXPECT_EQ(std::string(uri_map_targetfs_path_get("volatile", "/v.dat")), root + "/run/volatile/v.dat");
  EXPECT_EQ(std::string(uri_map_targetfs_path_get("", "rel.dat")), root + "/state/rel.dat");
  EXPECT_EQ(std::string(uri_map_targetfs_path_get(nullptr, "/abs.dat")), "/abs.dat");
  EXPECT_EQ(uri_map_targetfs_path_get("floppy", "x"), nullptr);
  sysmgr_dirs_clear();
  EXPECT_EQ(uri_map_targetfs_path_get("logs", "x"), nullptr);
}

}  // namespace
