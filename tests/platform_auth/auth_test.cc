// Users and secrets: local users, PAM authentication through the schedcli service against the
// test's pam_matrix users, and type-7 passwords with the device key file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <string>

#include "schedcli/platform/auth.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/sysmgr.h"
#include "support/temp_dir.h"

namespace {

// Exactly the names the configured password file lists.
TEST(LocalUsers, MatchesWholeNamesOnly) {
  sch::testing::TempDir dir;
  std::ofstream(dir.file("passwd")) << "root:x:0:0:root:/root:/bin/bash\n"
                                       "alice:x:1000:1000:Alice:/home/alice:/bin/sh\n"
                                       "carol\n"
                                       "\n"
                                       "dave:x:1002:1002::/home/dave:/bin/sh";  // no newline at the end
  ASSERT_EQ(auth_local_passwd_file_set(dir.file("passwd").c_str()), 0u);
  EXPECT_NE(check_if_user_local(nullptr, "alice"), 0);
  EXPECT_NE(check_if_user_local(nullptr, "dave"), 0) << "last line without its newline";
  for (const char *stranger : {"ali", "alicea", "alice:x", "carol", "x", "", "Alice"}) {
    EXPECT_EQ(check_if_user_local(nullptr, stranger), 0) << stranger;
  }
  EXPECT_EQ(check_if_user_local(nullptr, nullptr), 0);
  auth_local_passwd_file_set(nullptr);
}

TEST(PamAuthentication, RefusalsAreOutcomesNotFailures) {
  if (!std::getenv("PAM_WRAPPER")) GTEST_SKIP() << "needs pam_wrapper preloaded: run through ctest";
  struct Case {
    const char *what, *user, *password;
  };
  for (const Case &c : {Case{"wrong password", "alice", "wonderlant"}, Case{"password prefix", "alice", "wonder"},
                        Case{"empty password", "alice", ""}, Case{"unknown user", "mallory", "wonderland"},
                        Case{"account not allowed this service", "bob", "builder"}}) {
    aaa_auth_result *result = nullptr;
    ASSERT_EQ(aaa_scheduler_authenticate(c.user, c.password, "login", "default", "switch1", 0, &result), 0u) << c.what;
    ASSERT_NE(result, nullptr) << c.what;
    EXPECT_EQ(result->accepted, 0u) << c.what;
    EXPECT_NE(result->pam_status, 0) << c.what;
    std::free(result);
  }
}

class Type7 : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(secrets_device_key_path_set(key_.c_str()), 0u);
    secrets_use_device_key(1);
  }
  void TearDown() override {
    secrets_use_device_key(0);
    secrets_device_key_path_set(nullptr);
  }

  std::string encrypt(const std::string &clear, uint32_t expected = 0) {
    char *text = nullptr;
    uint32_t length = 99;
    EXPECT_EQ(security_conf_encrypt(clear.c_str(), SECRETS_TYPE7, 0, 0, &text, &length), expected);
    std::string result = text ? std::string(text) : std::string();
    EXPECT_EQ(length, result.size());
    std::free(text);
    return result;
  }

  // The status, and the clear text when there is one (the outputs are checked empty when not).
  uint32_t decrypt(const std::string &text, std::string *clear_out = nullptr, size_t length = std::string::npos) {
    char *clear = reinterpret_cast<char *>(1);
    uint32_t clear_length = 99;
    uint32_t status = security_conf_decrypt(text.c_str(), static_cast<uint32_t>(std::min(length, text.size() + 1)),
                                            SECRETS_TYPE7, 0, 0, &clear, &clear_length);
    if (status != 0) {
      EXPECT_EQ(clear, nullptr);
      EXPECT_EQ(clear_length, 0u);
      return status;
    }
    EXPECT_EQ(clear[clear_length], '\0');
    if (clear_out) clear_out->assign(clear, clear_length);
    std::free(clear);
    return status;
  }

  sch::testing::TempDir temp_;
  std::string directory_ = temp_.path();
  std::string key_ = temp_.file("device.key");
};

TEST_F(Type7, RoundTripsAnyPasswordUpTo64BytesInPrintableFixedText) {
  for (const std::string &clear : {std::string("s3cret"), std::string(""), std::string(64, '~'),
                                   std::string("with blank and \xc3\xa9")}) {
    std::string text = encrypt(clear);
    EXPECT_EQ(text.size(), SECRETS_TYPE7_MAX_TEXT) << "fits the 128-byte field, tells no length";
    for (char c : text) EXPECT_TRUE(std::isgraph(static_cast<unsigned char>(c))) << text;
    std::string back;
    EXPECT_EQ(decrypt(text, &back), 0u);
    EXPECT_EQ(back, clear);
  }
  EXPECT_NE(encrypt("same"), encrypt("same")) << "a fresh nonce each time";
  EXPECT_EQ(encrypt(std::string(65, 'x'), SECRETS_ERR_TOO_LONG), "");
}

TEST_F(Type7, RefusesChangedCutForeignAndGarbledText) {
  std::string text = encrypt("s3cret");
  std::string changed = text;
  changed[60] = changed[60] == 'A' ? 'B' : 'A';
  EXPECT_EQ(decrypt(changed), SECRETS_ERR_DECRYPT);
  EXPECT_EQ(decrypt(text.substr(0, text.size() - 4)), SECRETS_ERR_FORMAT);
  EXPECT_EQ(decrypt(text, nullptr, text.size() - 1), SECRETS_ERR_FORMAT) << "a length that cuts the text";
  EXPECT_EQ(decrypt(text + "AAAA"), SECRETS_ERR_FORMAT);
  EXPECT_EQ(decrypt(""), SECRETS_ERR_FORMAT);
  EXPECT_EQ(decrypt(std::string(SECRETS_TYPE7_MAX_TEXT, '*')), SECRETS_ERR_FORMAT);
  EXPECT_EQ(decrypt(std::string(SECRETS_TYPE7_MAX_TEXT - 1, 'A') + "="), SECRETS_ERR_FORMAT);

  ASSERT_EQ(secrets_device_key_path_set((directory_ + "/other.key").c_str()), 0u);
  encrypt("makes the other key");
  EXPECT_EQ(decrypt(text), SECRETS_ERR_DECRYPT) << "another device's key";
}

TEST_F(Type7, RefusesWhatCannotBeUsed) {
  char *out = nullptr;
  uint32_t length = 0;
  EXPECT_EQ(security_conf_encrypt("x", 0, 0, 0, &out, &length), SECRETS_ERR_TYPE);
  EXPECT_EQ(security_conf_decrypt("x", 2, 5, 0, 0, &out, &length), SECRETS_ERR_TYPE);
  EXPECT_EQ(security_conf_encrypt(nullptr, 7, 0, 0, &out, &length), SECRETS_ERR_BAD_ARGUMENT);
  EXPECT_EQ(out, nullptr);

  std::ofstream(key_) << "short";
  EXPECT_EQ(encrypt("x", SECRETS_ERR_KEY_DAMAGED), "");
  ASSERT_EQ(secrets_device_key_path_set((directory_ + "/missing/device.key").c_str()), 0u);
  EXPECT_EQ(encrypt("x", SECRETS_ERR_KEY_ACCESS), "");
}

TEST_F(Type7, DefaultKeyLivesInTheStateDirectory) {
  ASSERT_EQ(secrets_device_key_path_set(nullptr), 0u);
  EXPECT_EQ(encrypt("x", SECRETS_ERR_NO_KEY_PATH), "");
  ASSERT_EQ(sysmgr_dirs_set((directory_ + "/state").c_str(), (directory_ + "/run").c_str()), 0);
  std::string text = encrypt("x");
  sysmgr_dirs_clear();
  EXPECT_EQ(access((directory_ + "/state/" SECRETS_DEVICE_KEY_NAME).c_str(), R_OK), 0);
}

}  // namespace
