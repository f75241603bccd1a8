// Two real users of the daemon's group against a daemon run by root: what each may do, what is
// refused, what root sees, the password filter, decryption through the platform call, and root's
// reserve of connections. The users are made here (useradd) and removed afterwards. Then job
// credentials of users that nss_wrapper names, remote ones authenticated through the real PAM
// library with pam_wrapper and pam_matrix's users.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "processes.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/status.h"
#include "support/wire_client.h"

namespace e2e {
namespace {

using wire_images::Bytes;

const char *const kGroup = "schedsec";
const char *const kAlice = "schedsec-alice";
const char *const kBob = "schedsec-bob";

// While it lives this process acts as the local user `name`: the daemon takes a connection's user
// from the effective ids at its connect. Nothing in between may end the test early.
class ActingAs {
 public:
  explicit ActingAs(const char *name) {
    passwd *account = getpwnam(name);
    acting_ = account && setegid(account->pw_gid) == 0 && seteuid(account->pw_uid) == 0;
  }
  ~ActingAs() {
    if (seteuid(0) != 0 || setegid(0) != 0) std::abort();
  }
  bool acting() const { return acting_; }

 private:
  bool acting_ = false;
};

// A type-7 text made through the daemon at `path`, as the shell makes it; "" when refused.
std::string encrypt(const std::string &path, const char *clear) {
  secrets_daemon_socket_set(path.c_str());
  char *made = nullptr;
  uint32_t length = 0;
  std::string text = security_conf_encrypt(clear, SECRETS_TYPE7, 0, 0, &made, &length) == 0 && made ? made : "";
  std::free(made);
  return text;
}

// The status of decrypting `encrypted` through the daemon at `path`.
uint32_t decrypt(const std::string &path, const std::string &encrypted) {
  secrets_daemon_socket_set(path.c_str());
  char *clear = nullptr;
  uint32_t length = 0;
  uint32_t status = security_conf_decrypt(encrypted.c_str(), static_cast<uint32_t>(encrypted.size() + 1),
                                          SECRETS_TYPE7, 0, 0, &clear, &length);
  std::free(clear);
  return status;
}

class Users : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (geteuid() == 0) made_ = make_users(kGroup, {kAlice, kBob});
  }
  static void TearDownTestSuite() {
    if (geteuid() == 0) remove_users(kGroup, {kAlice, kBob});
  }

  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to create users (CI runs as root)";
    ASSERT_TRUE(made_) << "useradd or groupadd failed";
    ASSERT_TRUE(daemon_.serve(&why_)) << why_;
    // The daemon's group is the users' group: it may reach the socket, nothing else.
    ASSERT_TRUE(daemon_.share_socket(kGroup));
  }

  ShellRun shell_as(const char *user, const std::string &input) { return daemon_.shell(input, {}, {}, user); }
  // One request record straight to the socket, as `user`.
  uint32_t request_as(const char *user, const Bytes &request) {
    ActingAs acting(user);
    return acting.acting() ? wire_images::WireClient(path_).configure(request).status : ~0u;
  }

  static inline bool made_ = false;
  Daemon daemon_;
  const std::string path_ = daemon_.socket_path();
  std::string why_;
};

TEST_F(Users, EachManagesHisOwnAndRootAdministersEverything) {
  ShellRun alice = shell_as(kAlice,
                            "configure terminal\nscheduler job name aj\necho a\nend-job\n"
                            "scheduler schedule name as\njob name aj\ntime daily 02:00\nemail-addr alice@example.com\n");
  EXPECT_EQ(alice.err, "");
  EXPECT_EQ(alice.status, 0);

  // Bob can change nothing of hers: her schedule, her job, nor the scheduler (its feature off would
  // wipe every credential).
  for (std::string lines : {"scheduler schedule name as\ntime daily 03:00\n",
                            "scheduler schedule name as\nemail-addr bob@example.com\n",
                            "no scheduler schedule name as\n", "no scheduler job name aj\n",
                            "no feature scheduler\n", "scheduler transport email from bob@example.com\n",
                            "scheduler logfile size 64\n", "end\ncopy running-config startup-config\n"}) {
    ShellRun bob = shell_as(kBob, "configure terminal\n" + lines);
    EXPECT_NE(bob.err.find(syserr2str(SCH_STATUS_NOT_PERMITTED)), std::string::npos) << lines << bob.err;
    EXPECT_NE(bob.status, 0) << lines;
  }
  // Nor the job's text, straight to the socket.
  const Bytes define = wire_images::job_request(SCH_REQ_DEFINE_JOB, "aj", "id\n");
  EXPECT_EQ(request_as(kBob, define), SCH_STATUS_NOT_PERMITTED);

  // Bob manages his own.
  ShellRun bob = shell_as(kBob, "configure terminal\nscheduler job name bj\nid\nend-job\n"
                                "scheduler schedule name bs\njob name bj\ntime daily 04:00\n");
  EXPECT_EQ(bob.err, "");

  // Root sees and changes everything: it takes alice's job onto a schedule of its own.
  ShellRun root = daemon_.shell("configure terminal\nscheduler schedule name bs\ntime daily 05:00\n"
                                "scheduler schedule name rs\njob name aj\nend\nshow running-config\n");
  EXPECT_EQ(root.err, "");
  EXPECT_NE(root.out.find("scheduler schedule name as\n  job name aj\n"), std::string::npos) << root.out;
  EXPECT_NE(root.out.find("scheduler schedule name rs\n  job name aj\n"), std::string::npos) << root.out;
  EXPECT_EQ(shell_as(kAlice, "configure terminal\nno scheduler schedule name as\n").err, "");
}

TEST_F(Users, PasswordsAreRemovedForUsersAndTheirDecryptionRefused) {
  // Root stores a credential for another user (alice's name does not matter to the daemon).
  const std::string text = encrypt(path_, "root-only");
  ASSERT_FALSE(text.empty());
  ASSERT_TRUE(answered(wire_images::WireClient(path_).configure(
                           wire_images::credential_request(SCH_CREDENTIAL_STORE, "carol", text)), 0));
  EXPECT_NE(daemon_.shell("show running-config\n").out.find("password 7 " + text), std::string::npos);
  ShellRun shown = shell_as(kAlice, "show running-config\n");
  EXPECT_NE(shown.out.find("scheduler aaa-authentication username carol password 7 <removed>\n"), std::string::npos)
      << shown.out;
  EXPECT_EQ(shown.out.find(text), std::string::npos);

  // Through the platform call, as the shell makes it: alice's own text reads back, root's does not.
  {
    ActingAs acting(kAlice);
    ASSERT_TRUE(acting.acting());
    EXPECT_EQ(decrypt(path_, text), SCH_STATUS_NOT_PERMITTED);
    std::string mine = encrypt(path_, "mine");
    EXPECT_EQ(mine.empty() ? ~0u : decrypt(path_, mine), 0u);
  }
  // The key and the stores are the daemon's alone.
  for (const char *file : {"/state/" SECRETS_DEVICE_KEY_NAME, "/run/scheduler_runtime"}) {
    struct stat status;
    ASSERT_EQ(stat((daemon_.directory() + file).c_str(), &status), 0) << file;
    EXPECT_EQ(status.st_mode & 0777, 0600u) << file;
  }
}

TEST_F(Users, SixtyFourSilentConnectionsLeaveRootServed) {
  std::vector<int> held;
  {
    ActingAs acting(kBob);
    ASSERT_TRUE(acting.acting());
    for (int i = 0; i < 64; i++) held.push_back(connect_to(path_));
  }
  EXPECT_EQ(std::count(held.begin(), held.end(), -1), 0) << "bob could not open his connections";
  ShellRun root = daemon_.shell("show running-config\n", {"--timeout", "5"});
  EXPECT_EQ(root.status, 0) << root.err;
  EXPECT_NE(root.out.find("feature scheduler"), std::string::npos) << root.out;
  for (int fd : held) close(fd);
}

// Local users are those the host's password file lists (root, everywhere); pam_matrix knows
// the remote user alice with the password wonderland.
const std::string kLocal = "root";
const std::string kRemote = "alice";

std::string error_line(uint32_t code) { return std::string("Error: ") + syserr2str(code) + "\n"; }

// Steps in order on one daemon: each shell's user, its configuration lines, and the error, exit
// status and a piece of the output expected of it.
TEST(Credentials, LocalUsersNeedNoPasswordRemoteOnesOneThatPamAccepts) {
  Daemon daemon;
  std::string why;
  auto as = [&](const std::string &user) { return as_user(daemon.directory(), user); };
  // The daemon knows the caller by the same name, or it would refuse alice's credential.
  ASSERT_TRUE(daemon.serve(&why, as(kRemote))) << why;
  std::string text = encrypt(daemon.socket_path(), "wonderland");
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
           {kRemote, seven + encrypt(daemon.socket_path(), "wonderlant") + "\n", failed, 1, ""},
           {kRemote, seven + text + "\nscheduler job name j2 ls\n", "", 0, ""}}) {
    ShellRun run = daemon.shell("configure terminal\n" + lines, {}, as(user));
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
  const Environment alice = as_user(standby.directory(), kRemote);
  ASSERT_TRUE(standby.start(&why, alice, {"--standby"})) << why;
  ShellRun store = standby.shell("configure terminal\nscheduler aaa-authentication password wonderland\n", {}, alice);
  EXPECT_EQ(store.err, "% The daemon did not store the credential of user alice\n");
  EXPECT_EQ(store.status, 1);
}

}  // namespace
}  // namespace e2e
