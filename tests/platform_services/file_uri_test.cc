// File URIs: parsing and rendering.
#include <gtest/gtest.h>

#include <string>

#include "schedcli/platform/uri.h"

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

}  // namespace
