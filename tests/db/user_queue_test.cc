// The bounded copy of user names.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/traces.h"

namespace {

using sch::testing::DatabaseTest;

using UserQueue = DatabaseTest;

TEST(UserHelpers, BoundedCopyAlwaysTerminates) {
  char buffer[16];
  std::memset(buffer, 'x', sizeof buffer);
  sch_strcpy(buffer, "0123456789", 10);
  EXPECT_STREQ(buffer, "012345678");
  sch_strcpy(buffer, "0123456789", 11);
  EXPECT_STREQ(buffer, "0123456789");
  sch_strcpy(buffer, nullptr, 10);
  EXPECT_EQ(buffer[0], '\0');
  std::memset(buffer, 'x', sizeof buffer);
  sch_strcpy(buffer, "ab", 6);
  EXPECT_EQ(std::memcmp(buffer, "ab\0\0\0\0x", 7), 0) << "padded to the length, nothing beyond";
}

}  // namespace
