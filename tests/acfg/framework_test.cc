// The configuration framework's response: element order, indentation, groups and misuse.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "schedcli/platform/acfg.h"

namespace {

std::string respond(acfg_handle *handle) {
  acfg_message message{};
  EXPECT_EQ(acfg_respond(handle, nullptr, &message), 0u);
  std::string text(message.response, message.response_length);
  std::free(message.response);
  return text;
}

TEST(AcfgFramework, RendersBlocksByOrderAndIndentsFlaggedLines) {
  acfg_handle *handle = nullptr;
  ASSERT_EQ(acfg_hdl_init(&handle), 0u);
  ASSERT_EQ(acfg_elem_add(handle, 224, 1, 12), 0u);
  ASSERT_EQ(acfg_elem_add(handle, 224, 3, 2), 0u);
  ASSERT_EQ(acfg_elem_add(handle, 224, 2, 3), 0u);
  EXPECT_EQ(acfg_elem_str_add_indent(handle, 1, "scheduler schedule name s\n", 0), 0u);
  EXPECT_EQ(acfg_elem_str_add_indent(handle, 1, "job name a\njob name b\n", 1), 0u);
  EXPECT_EQ(acfg_elem_str_add_indent(handle, 3, "feature scheduler\n", 0), 0u);
  EXPECT_EQ(acfg_elem_dependency_add(handle, 2, 118, 1), 0u);
  EXPECT_EQ(acfg_elem_group_config_str_add(handle, 115, 0, 3, "logging level scheduler 3\n"), 0u);
  EXPECT_EQ(respond(handle),
            "feature scheduler\n"
            "logging level scheduler 3\n"
            "scheduler schedule name s\n"
            "  job name a\n"
            "  job name b\n");
}

TEST(AcfgFramework, RefusesMisuseWithAStatus) {
  acfg_handle *handle = nullptr;
  ASSERT_EQ(acfg_hdl_init(&handle), 0u);
  EXPECT_EQ(acfg_elem_str_add_indent(handle, 9, "orphan\n", 0), ACFG_ERR_NO_ELEMENT);
  EXPECT_EQ(acfg_elem_add(handle, 224, 1, 1), 0u);
  EXPECT_EQ(acfg_elem_add(handle, 224, 1, 5), ACFG_ERR_DUPLICATE);
  EXPECT_EQ(acfg_elem_str_add_indent(handle, 1, nullptr, 0), ACFG_ERR_BAD_ARGUMENT);
  EXPECT_EQ(acfg_elem_dependency_add(handle, 7, 118, 1), ACFG_ERR_NO_ELEMENT);
  EXPECT_EQ(respond(handle), "");
  EXPECT_EQ(acfg_hdl_init(nullptr), ACFG_ERR_BAD_ARGUMENT);
  EXPECT_EQ(acfg_uri_complete(nullptr, "", "x"), nullptr);
  EXPECT_STREQ(acfg_uri_complete("/a/", "", "b"), "/a/b");
}

}  // namespace
