// Feature requests to the daemon and the shell's hook for removing a feature's commands.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "schedcli/platform/feature.h"
#include "support/temp_dir.h"

namespace {

TEST(FeatureManager, SendsTheActionAndNameAndReturnsTheDaemonsStatus) {
  sch::testing::TempDir temp;
  std::string socket_path = temp.file("fm.sock");
  int listen_fd = -1;
  ASSERT_EQ(cmi_server_listen(socket_path.c_str(), &listen_fd), 0u);

  uint32_t seen_action = 0, seen_service = 0;
  std::string seen_name;
  std::thread daemon([&] {
    for (uint32_t answer : {0u, FM_ERR_ALREADY_DISABLED}) {
      int connection = -1;
      if (cmi_server_accept(listen_fd, &connection) != 0) return;
      cmi_request request{};
      if (cmi_server_receive(connection, &request) == 0) {
        char name[FM_FEATURE_NAME_SIZE];
        if (fm_feature_request_parse(request.payload, request.length, &seen_action, name) == 0) seen_name = name;
        seen_service = request.service;
        cmi_server_reply(connection, request.token, answer, nullptr, 0);
        cmi_request_release(&request);
      }
      close(connection);
    }
  });

  cmi_session *session = cmi_session_open(socket_path.c_str());
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(fm_cmi_set_feature_wait(session, "scheduler", "admin", nullptr, FM_FEATURE_ENABLE), 0u);
  EXPECT_EQ(fm_cmi_set_feature_wait(session, "scheduler", "admin", nullptr, FM_FEATURE_DISABLE), FM_ERR_ALREADY_DISABLED);
  daemon.join();
  EXPECT_EQ(seen_service, FM_SERVICE);
  EXPECT_EQ(seen_action, FM_FEATURE_DISABLE);
  EXPECT_EQ(seen_name, "scheduler");
  EXPECT_EQ(fm_cmi_set_feature_wait(session, "scheduler", "admin", nullptr, 9), FM_ERR_BAD_ARGUMENT);
  EXPECT_EQ(fm_cmi_set_feature_wait(session, std::string(40, 'f').c_str(), "admin", nullptr, 3), FM_ERR_BAD_ARGUMENT);
  cmi_session_close(session);
  close(listen_fd);
}

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

TEST(FeatureManager, DeregisteringCallsTheShellsHook) {
  std::string removed;
  vsh_parse_tree_hook_set([](const char *feature, void *context) { *static_cast<std::string *>(context) = feature; },
                          &removed);
  EXPECT_EQ(vsh_deregister_parse_tree(nullptr, "scheduler"), 0u);
  EXPECT_EQ(removed, "scheduler");
  vsh_parse_tree_hook_set(nullptr, nullptr);
  EXPECT_EQ(vsh_deregister_parse_tree(nullptr, "scheduler"), 0u);
  EXPECT_EQ(vsh_deregister_parse_tree(nullptr, nullptr), FM_ERR_BAD_ARGUMENT);
}

}  // namespace
