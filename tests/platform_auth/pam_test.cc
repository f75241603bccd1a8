// Authentication through the schedcli PAM service, against the test's pam_matrix users.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "schedcli/platform/auth.h"

namespace {

class PamAuthentication : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("PAM_WRAPPER")) GTEST_SKIP() << "needs pam_wrapper preloaded: run through ctest";
  }

  // Authenticates as the library does; the outcome's accepted word, or -1 when the call failed.
  int accepted(const char *user, const char *password, int32_t *pam_status = nullptr) {
    aaa_auth_result *result = nullptr;
    uint32_t status = aaa_scheduler_authenticate(user, password, "login", "default", "switch1", 0, &result);
    if (status != 0) {
      EXPECT_EQ(result, nullptr);
      return -1;
    }
    EXPECT_NE(result, nullptr);
    if (!result) return -1;
    int outcome = static_cast<int>(result->accepted);
    if (pam_status) *pam_status = result->pam_status;
    std::free(result);
    return outcome;
  }
};

TEST_F(PamAuthentication, RefusalsAreOutcomesNotFailures) {
  struct Case {
    const char *what, *user, *password;
  };
  for (const Case &c : {Case{"wrong password", "alice", "wonderlant"}, Case{"password prefix", "alice", "wonder"},
                        Case{"empty password", "alice", ""}, Case{"unknown user", "mallory", "wonderland"},
                        Case{"account not allowed this service", "bob", "builder"}}) {
    int32_t pam_status = 0;
    EXPECT_EQ(accepted(c.user, c.password, &pam_status), 0) << c.what;
    EXPECT_NE(pam_status, 0) << c.what;
  }
}

}  // namespace
