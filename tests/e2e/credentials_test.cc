// Job-execution credentials end to end: nss_wrapper names the shell's user, and remote users
// are authenticated through the real PAM library with pam_wrapper and pam_matrix's users.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "processes.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/status.h"

namespace e2e {
namespace {

// Local users are those the host's password file lists (root, everywhere); pam_matrix knows
// the remote user alice with the password wonderland.
const std::string kLocal = "root";
const std::string kRemote = "alice";

std::string error_line(uint32_t code) { return std::string("Error: ") + syserr2str(code) + "\n"; }

class Credentials : public ::testing::Test {
 protected:
  void SetUp() override {
    // The daemon knows the caller by the same name, or it would refuse alice's credential.
    ASSERT_TRUE(daemon.serve(&why, as(kRemote))) << why;
  }

  Environment as(const std::string &user) { return as_user(daemon.directory(), user); }

  ShellRun configure_as(const std::string &user, const std::string &lines) {
    return daemon.shell("configure terminal\n" + lines, {}, as(user));
  }

  // A type-7 text under the device key that the shell uses.
  std::string encrypted(const char *password) {
    secrets_device_key_path_set((daemon.directory() + "/state/" SECRETS_DEVICE_KEY_NAME).c_str());
    secrets_use_device_key(1);
    char *text = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(security_conf_encrypt(password, SECRETS_TYPE7, 0, 0, &text, &length), 0u);
    std::string result = text ? text : "";
    std::free(text);
    return result;
  }

  Daemon daemon;
  std::string why;
};

TEST_F(Credentials, ALocalUserNeedsNoStoredPasswordAndMayStoreNone) {
  ShellRun run = configure_as(kLocal, "scheduler job name j1\nls\nend-job\nscheduler schedule name s1\njob name j1\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
  ShellRun store = configure_as(kLocal, "scheduler aaa-authentication password secret\n");
  EXPECT_EQ(store.err, error_line(SCH_STATUS_LOCAL_USER));
  EXPECT_EQ(store.status, 1);
  // Nor may a remote user store a password for a local one.
  EXPECT_EQ(configure_as(kRemote, "scheduler aaa-authentication username root password secret\n").err,
            error_line(SCH_STATUS_LOCAL_USER));
}

TEST_F(Credentials, ARemoteUserNeedsAStoredPasswordThatPamAccepts) {
  ShellRun refused = configure_as(kRemote, "scheduler schedule name s1\n");
  EXPECT_EQ(refused.err, error_line(SCH_STATUS_NO_CREDENTIAL));
  EXPECT_EQ(refused.status, 1);
  ShellRun wrong = configure_as(kRemote, "scheduler aaa-authentication password wonderlant\n");
  EXPECT_EQ(wrong.err, error_line(SCH_STATUS_AUTH_FAILED));
  EXPECT_EQ(wrong.status, 1);

  ShellRun stored = configure_as(kRemote, "scheduler aaa-authentication password wonderland\n"
                                          "scheduler schedule name s1\nend\nshow scheduler schedule\n");
  EXPECT_EQ(stored.err, "");
  EXPECT_EQ(stored.status, 0);
  EXPECT_NE(stored.out.find("User Name           : alice\n"), std::string::npos) << stored.out;
  // Deleting the password closes the gate again.
  ShellRun deleted = configure_as(kRemote, "no scheduler aaa-authentication\nno scheduler schedule name s1\n");
  EXPECT_EQ(deleted.err, error_line(SCH_STATUS_NO_CREDENTIAL));
}

TEST_F(Credentials, AnEncryptedPasswordIsCheckedAndATamperedOneRefused) {
  std::string text = encrypted("wonderland");
  ASSERT_FALSE(text.empty());
  std::string tampered = text;
  tampered[text.size() / 2] = tampered[text.size() / 2] == 'A' ? 'B' : 'A';
  const std::string command = "scheduler aaa-authentication username alice password 7 ";
  ShellRun refused = configure_as(kRemote, command + tampered + "\n");
  EXPECT_EQ(refused.err, error_line(SCH_STATUS_AUTH_FAILED));
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(configure_as(kRemote, command + encrypted("wonderlant") + "\n").err, error_line(SCH_STATUS_AUTH_FAILED));
  ShellRun accepted = configure_as(kRemote, command + text + "\nscheduler job name j1 ls\n");
  EXPECT_EQ(accepted.err, "");
  EXPECT_EQ(accepted.status, 0);
}

// A standby refuses every change, and the credential handler reports success all the same: the
// shell reads the credential back, so the operator learns that nothing was stored.
TEST(CredentialsOnAStandby, AStoreTheDaemonRefusedIsAnError) {
  Daemon standby;
  std::string why;
  ASSERT_TRUE(standby.start(&why, as_user(standby.directory(), kRemote), {"--standby"})) << why;
  ShellRun store = standby.shell("configure terminal\nscheduler aaa-authentication password wonderland\n", {},
                                 as_user(standby.directory(), kRemote));
  EXPECT_EQ(store.err, "% The daemon did not store the credential of user alice\n");
  EXPECT_EQ(store.status, 1);
}

}  // namespace
}  // namespace e2e
