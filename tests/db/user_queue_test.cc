// User credential queues, the user-name hash and the bounded copy.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/traces.h"

namespace {

using sch::testing::DatabaseTest;

sch_user_element *user(const char *name) {
  auto *element = static_cast<sch_user_element *>(sch_malloc_check(sizeof(sch_user_element), 16, 0, "t"));
  std::strcpy(element->record.user, name);
  return element;
}

using UserQueue = DatabaseTest;

TEST_F(UserQueue, FindReturnsTheEarlierOfTwoSameNamesAndDeleteRemovesOnlyTheOneGiven) {
  sch_uname_q_init();
  sch_user_element *first = user("alice");
  sch_user_element *second = user("alice");
  sch_add_user_info(&sch_uname_q, user("bob"));
  sch_add_user_info(&sch_uname_q, first);
  sch_add_user_info(&sch_uname_q, second);
  EXPECT_EQ(sch_find_user_info(&sch_uname_q, "alice"), first);
  EXPECT_EQ(sch_find_user_info(&sch_uname_q, "alic"), nullptr);
  EXPECT_EQ(sch_find_user_info(&sch_uname_acfg_q, "alice"), nullptr);

  sch_delete_user_info(&sch_uname_q, first);
  EXPECT_EQ(sch_find_user_info(&sch_uname_q, "alice"), second);
  EXPECT_EQ(sch_uname_q.count, 2u);
  sch_free_user_config(&sch_uname_q);
  EXPECT_EQ(sch_uname_q.head, nullptr);
  EXPECT_EQ(sch_uname_q.tail, nullptr);
  EXPECT_EQ(sch_uname_q.count, 0u);
}

TEST(UserHelpers, ComparatorIsIdentityNotContent) {
  sch_user_element a{}, b{};
  EXPECT_EQ(sch_cmp_user_info(&a, &a), 0);
  EXPECT_EQ(sch_cmp_user_info(&a, &b), 1);
}

TEST(UserHelpers, HashWeightsEachPositionByItsIndex) {
  EXPECT_EQ(sch_uname_to_hash(""), 0u);
  EXPECT_EQ(sch_uname_to_hash("A"), 65u % 33);
  const char bytes[] = {1, 2, 3, 0};
  EXPECT_EQ(sch_uname_to_hash(bytes), 9u);
  // h = 0*0+'a' = 97, then 1*97+'b' = 195, then 2*195+'c' = 489; 489 % 33 = 27.
  EXPECT_EQ(sch_uname_to_hash("abc"), 27u);
  // Bytes above 127 count as unsigned.
  const char high[] = {static_cast<char>(0xFF), 0};
  EXPECT_EQ(sch_uname_to_hash(high), 255u % 33);
}

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
