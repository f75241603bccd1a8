// Feature requests as the daemon parses them.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "schedcli/platform/feature.h"
#include "support/temp_dir.h"

namespace {

TEST(FeatureManager, RequestParsingRefusesMalformedPayloads) {
  uint32_t action = 0;
  char name[FM_FEATURE_NAME_SIZE];
  const uint8_t good[] = {3, 's', 'c', 'h', 0};
  EXPECT_EQ(fm_feature_request_parse(good, sizeof good, &action, name), 0u);
  EXPECT_STREQ(name, "sch");
  const uint8_t unterminated[] = {4, 's', 'c', 'h'};
  EXPECT_EQ(fm_feature_request_parse(unterminated, sizeof unterminated, &action, name), 0u) << "ends at the payload";
  EXPECT_STREQ(name, "sch");
  const uint8_t bad_action[] = {7, 'x', 0};
  EXPECT_EQ(fm_feature_request_parse(bad_action, sizeof bad_action, &action, name), FM_ERR_BAD_ARGUMENT);
  const uint8_t empty_name[] = {3, 0};
  EXPECT_EQ(fm_feature_request_parse(empty_name, sizeof empty_name, &action, name), FM_ERR_BAD_ARGUMENT);
  EXPECT_EQ(fm_feature_request_parse(good, 1, &action, name), FM_ERR_BAD_ARGUMENT);
}

}  // namespace
