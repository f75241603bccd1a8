// Two real users of the daemon's group against a daemon run by root: what each may do, what is
// refused, what root sees, the password filter, decryption through the platform call, and root's
// reserve of connections. The users are made here (useradd) and removed afterwards. Then job
// credentials of users that nss_wrapper names, remote ones authenticated through the real PAM
// library with pam_wrapper and pam_matrix's users.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
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

// Runs `work` in a child that has become `name` and hands back its 32-bit answer.
uint32_t in_account(const char *name, const std::function<uint32_t()> &work) {
  int answer[2];
  if (pipe(answer) != 0) return ~0u;
  pid_t child = fork();
  if (child == 0) {
    close(answer[0]);
    if (!become(name)) _exit(1);
    uint32_t result = work();
    (void)!write(answer[1], &result, sizeof result);
    _exit(0);
  }
  close(answer[1]);
  uint32_t result = ~0u;
  if (read(answer[0], &result, sizeof result) != sizeof result) result = ~0u;
  close(answer[0]);
  waitpid(child, nullptr, 0);
  return result;
}

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
    if (geteuid() != 0) return;
    made_ = make_users(kGroup, {kAlice, kBob});
  }
  static void TearDownTestSuite() {
    if (geteuid() != 0) return;
    remove_users(kGroup, {kAlice, kBob});
  }

  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to create users (CI runs as root)";
    ASSERT_TRUE(made_) << "useradd or groupadd failed";
    ASSERT_TRUE(daemon_.serve(&why_)) << why_;
    // The daemon's group is the users' group: it may reach the socket, nothing else.
    ASSERT_TRUE(daemon_.share_socket(kGroup));
  }

  std::string socket_path() const { return daemon_.socket_path(); }
  ShellRun shell_as(const char *user, const std::string &input) { return daemon_.shell(input, {}, {}, user); }

  // One request record straight to the socket, as `user`.
  uint32_t request_as(const char *user, uint32_t service, uint32_t opcode, const Bytes &request) {
    std::string path = socket_path();
    return in_account(user, [&] { return wire_images::WireClient(path).call(service, opcode, request).status; });
  }

  static std::string refusal(uint32_t code) { return syserr2str(code); }

  static inline bool made_ = false;
  Daemon daemon_;
  std::string why_;
};

TEST_F(Users, EachManagesHisOwnAndRootAdministersEverything) {
  ShellRun alice = shell_as(kAlice,
                            "configure terminal\nscheduler job name aj\necho a\nend-job\n"
                            "scheduler schedule name as\njob name aj\ntime daily 02:00\nemail-addr alice@example.com\n");
  EXPECT_EQ(alice.err, "");
  EXPECT_EQ(alice.status, 0);

  // Bob can change nothing of hers: her schedule, her job, nor the scheduler.
  for (std::string lines : {"scheduler schedule name as\ntime daily 03:00\n",
                                   "scheduler schedule name as\nemail-addr bob@example.com\n",
                                   "no scheduler schedule name as\n", "no scheduler job name aj\n",
                                   "no feature scheduler\n", "scheduler transport email from bob@example.com\n",
                                   "scheduler logfile size 64\n", "end\ncopy running-config startup-config\n"}) {
    ShellRun bob = shell_as(kBob, "configure terminal\n" + lines);
    EXPECT_NE(bob.err.find(refusal(SCH_STATUS_NOT_PERMITTED)), std::string::npos) << lines << bob.err;
    EXPECT_NE(bob.status, 0) << lines;
  }
  // Nor straight to the socket: the job's text, or the feature off (which would wipe every credential).
  EXPECT_EQ(request_as(kBob, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG,
                       wire_images::job_request(SCH_REQ_DEFINE_JOB, "aj", "id\n")),
            SCH_STATUS_NOT_PERMITTED);
  Bytes off{FM_FEATURE_DISABLE};
  for (char c : std::string("scheduler")) off.push_back(static_cast<uint8_t>(c));
  off.push_back(0);
  EXPECT_EQ(request_as(kBob, FM_SERVICE, FM_FEATURE_DISABLE, off), SCH_STATUS_NOT_PERMITTED);

  // Bob manages his own.
  ShellRun bob = shell_as(kBob, "configure terminal\nscheduler job name bj\nid\nend-job\n"
                                "scheduler schedule name bs\njob name bj\ntime daily 04:00\n");
  EXPECT_EQ(bob.err, "");

  // Root sees and changes everything: it takes alice's job onto a schedule of its own, after which
  // only root may change the job.
  ShellRun root = daemon_.shell("configure terminal\nscheduler schedule name bs\ntime daily 05:00\n"
                                "scheduler schedule name rs\njob name aj\nend\nshow running-config\n");
  EXPECT_EQ(root.err, "");
  EXPECT_NE(root.out.find("scheduler schedule name as\n  job name aj\n"), std::string::npos) << root.out;
  EXPECT_NE(root.out.find("scheduler schedule name rs\n  job name aj\n"), std::string::npos) << root.out;
  EXPECT_EQ(request_as(kAlice, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG,
                       wire_images::job_request(SCH_REQ_DEFINE_JOB, "aj", "id\n")),
            SCH_STATUS_NOT_PERMITTED);
  EXPECT_EQ(shell_as(kAlice, "configure terminal\nno scheduler schedule name as\n").err, "");
}

TEST_F(Users, PasswordsAreRemovedForUsersAndTheirDecryptionRefused) {
  // Root stores a credential for another user (alice's name does not matter to the daemon).
  const std::string path = socket_path();
  const std::string text = encrypt(path, "root-only");
  ASSERT_FALSE(text.empty());
  ASSERT_EQ(request_as("root", SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG,
                       wire_images::credential_request(SCH_CREDENTIAL_STORE, "carol", text)),
            0u);
  EXPECT_NE(daemon_.shell("show running-config\n").out.find("password 7 " + text), std::string::npos);
  ShellRun shown = shell_as(kAlice, "show running-config\n");
  EXPECT_NE(shown.out.find("scheduler aaa-authentication username carol password 7 <removed>\n"), std::string::npos)
      << shown.out;
  EXPECT_EQ(shown.out.find(text), std::string::npos);

  // Through the platform call, as the shell makes it: alice's own text reads back, root's does not.
  EXPECT_EQ(in_account(kAlice, [&] { return decrypt(path, text); }), SCH_STATUS_NOT_PERMITTED);
  EXPECT_EQ(in_account(kAlice, [&] {
              std::string mine = encrypt(path, "mine");
              return mine.empty() ? ~0u : decrypt(path, mine);
            }),
            0u);
  // The key and the stores are the daemon's alone.
  struct stat key;
  ASSERT_EQ(stat((daemon_.directory() + "/state/" SECRETS_DEVICE_KEY_NAME).c_str(), &key), 0);
  EXPECT_EQ(key.st_mode & 0777, 0600u);
  struct stat store;
  ASSERT_EQ(stat((daemon_.directory() + "/run/scheduler_runtime").c_str(), &store), 0);
  EXPECT_EQ(store.st_mode & 0777, 0600u);
}

TEST_F(Users, SixtyFourSilentConnectionsLeaveRootServed) {
  std::string path = socket_path();
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t holder = fork();
  if (holder == 0) {
    if (!become(kBob)) _exit(1);
    for (int i = 0; i < 64; i++) {
      int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
      if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) _exit(2);
    }
    (void)!write(ready[1], "x", 1);
    pause();
    _exit(0);
  }
  close(ready[1]);
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1) << "bob could not open his connections";
  close(ready[0]);
  ShellRun root = daemon_.shell("show running-config\n", {"--timeout", "5"});
  EXPECT_EQ(root.status, 0) << root.err;
  EXPECT_NE(root.out.find("feature scheduler"), std::string::npos) << root.out;
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
}

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

  Daemon daemon;
  std::string why;
};

// Steps in order on one daemon: each shell's user, its configuration lines, and the error, exit
// status and a piece of the output expected of it.
TEST_F(Credentials, LocalUsersNeedNoPasswordRemoteOnesOneThatPamAccepts) {
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
