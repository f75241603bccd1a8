// Job-execution credentials end to end: nss_wrapper names the shell's user, and remote users
// are authenticated through the real PAM library with pam_wrapper and pam_matrix's users.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

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

// Steps in order on one daemon: each shell's user, its configuration lines, and the error, exit
// status and a piece of the output expected of it.
TEST_F(Credentials, LocalUsersNeedNoPasswordRemoteOnesOneThatPamAccepts) {
  std::string text = encrypted("wonderland");
  ASSERT_FALSE(text.empty());
  std::string tampered = text;
  tampered[text.size() / 2] = tampered[text.size() / 2] == 'A' ? 'B' : 'A';
  const std::string seven = "scheduler aaa-authentication username alice password 7 ";
  const std::string local = error_line(SCH_STATUS_LOCAL_USER), none = error_line(SCH_STATUS_NO_CREDENTIAL),
                    failed = error_line(SCH_STATUS_AUTH_FAILED);
  struct Step {
    std::string user, lines, err;
    int status;
    std::string shown;
  };
  for (const auto &[user, lines, err, status, shown] : std::vector<Step>{
           {kLocal, "scheduler job name j1\nls\nend-job\nscheduler schedule name s1\njob name j1\n", "", 0, ""},
           // A local user may store no password, nor may a remote user store one for a local user.
           {kLocal, "scheduler aaa-authentication password secret\n", local, 1, ""},
           {kRemote, "scheduler aaa-authentication username root password secret\n", local, 1, ""},
           {kRemote, "scheduler schedule name s2\n", none, 1, ""},
           {kRemote, "scheduler aaa-authentication password wonderlant\n", failed, 1, ""},
           {kRemote, "scheduler aaa-authentication password wonderland\nscheduler schedule name s2\nend\n"
                     "show scheduler schedule name s2\n", "", 0, "User Name           : alice\n"},
           // Deleting the password closes the gate again.
           {kRemote, "no scheduler aaa-authentication\nno scheduler schedule name s2\n", none, 1, ""},
           {kRemote, seven + tampered + "\n", failed, 1, ""},
           {kRemote, seven + encrypted("wonderlant") + "\n", failed, 1, ""},
           {kRemote, seven + text + "\nscheduler job name j2 ls\n", "", 0, ""}}) {
    ShellRun run = configure_as(user, lines);
    EXPECT_EQ(run.err, err) << lines;
    EXPECT_EQ(run.status, status) << lines;
    EXPECT_NE(run.out.find(shown), std::string::npos) << lines << run.out;
  }
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
