// File URIs: parsing, rendering and mapping to the scheduler's directories.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "schedcli/platform/sysmgr.h"
#include "schedcli/platform/uri.h"
#include "support/temp_dir.h"

namespace {

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

}  // namespace
