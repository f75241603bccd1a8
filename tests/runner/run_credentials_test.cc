// Run credentials: a remote user whose stored password is wrong, missing or damaged does not run;
// the verdict comes back on the loop.
#include "runner/run_credentials.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "schedcli/db.h"
#include "schedcli/platform/auth.h"
#include "schedcli/platform/secrets.h"
#include "support/temp_dir.h"

namespace {

using namespace schedd::runner;
using namespace std::chrono_literals;

class RunCredentialsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(directory_ + "/passwd") << "alice:x:1000:1000::/home/alice:/bin/sh\n";
    ASSERT_EQ(auth_local_passwd_file_set((directory_ + "/passwd").c_str()), 0u);
    ASSERT_EQ(secrets_device_key_path_set((directory_ + "/device.key").c_str()), 0u);
    secrets_use_device_key(1);
    context_ = g_main_context_new();
  }
  void TearDown() override {
    g_main_context_unref(context_);
    auth_local_passwd_file_set(nullptr);
    secrets_use_device_key(0);
    secrets_device_key_path_set(nullptr);
  }

  // Stores `password` for `user` as the credential command would: encrypted, type 7.
  void store(const char *user, const char *password) {
    sch_user_element &element = elements_.emplace_back();
    std::snprintf(element.record.user, sizeof element.record.user, "%s", user);
    char *encrypted = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(security_conf_encrypt(password, 7, 0, 0, &encrypted, &length), 0u);
    std::snprintf(element.record.password, sizeof element.record.password, "%s", encrypted);
    std::free(encrypted);
  }
  CredentialVerdict check(const char *user) {
    for (sch_user_element &element : elements_) enqueue_tail(&queue_, &element);
    std::optional<CredentialVerdict> verdict;
    std::thread::id reported_on;
    auto pending = RunCredentials::check(context_, &queue_, user, [&](const CredentialVerdict &v) {
      verdict = v;
      reported_on = std::this_thread::get_id();
    });
    EXPECT_NE(pending, nullptr);
    EXPECT_FALSE(verdict) << "never reported from within check()";
    for (auto deadline = std::chrono::steady_clock::now() + 10s; !verdict && std::chrono::steady_clock::now() < deadline;) {
      g_main_context_iteration(context_, TRUE);
    }
    EXPECT_TRUE(verdict);
    EXPECT_EQ(reported_on, std::this_thread::get_id());
    return verdict.value_or(CredentialVerdict{false, "no verdict"});
  }

  sch::testing::TempDir temp_;
  std::string directory_ = temp_.path();
  GMainContext *context_ = nullptr;
  std::deque<sch_user_element> elements_;  // stable addresses for the queue's links
  queue_header queue_{};
};

TEST_F(RunCredentialsTest, RemoteUserFailsWithAWrongMissingOrDamagedCredential) {
  store("rita", "wrong");
  EXPECT_EQ(check("rita").reason, "authentication of user rita failed\n");

  elements_.clear();
  queue_ = {};
  EXPECT_EQ(check("rita").reason, "no stored credential for remote user rita\n");

  store("rita", "rosebud");
  elements_.back().record.password[10] ^= 1;
  CredentialVerdict verdict = check("rita");
  EXPECT_FALSE(verdict.passed);
  EXPECT_EQ(verdict.reason.rfind("stored credential of user rita cannot be used: ", 0), 0u) << verdict.reason;
}

}  // namespace
