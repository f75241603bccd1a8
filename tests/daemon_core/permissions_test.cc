// Who may do what, asked of the daemon in-process as root and as two users of its group; and the
// socket server's bounds: root keeps connections of its own, and a silent connection is closed.
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "daemon_core/in_process.h"
#include "ipc/server.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/status.h"
#include "support/wire_client.h"

namespace in_process {
namespace {

// Uids no test machine gives to its own account, so that neither counts as the daemon's.
const schedd::Caller kAlice{60001, "alice"};
const schedd::Caller kBob{60002, "bob"};
constexpr uint32_t kNo = SCH_STATUS_NOT_PERMITTED;

// A request of any service, who sends it and what it gets.
struct Asked {
  const schedd::Caller &who;
  Bytes request;
  uint32_t status;
  uint32_t service = SCH_SERVICE_CONFIG;
  uint32_t opcode = SCH_OPCODE_CONFIG;
};

std::string text_of(const schedd::Reply &reply) { return std::string(reply.payload.begin(), reply.payload.end()); }

class Permissions : public InProcessDaemon {
 protected:
  void SetUp() override {
    ASSERT_TRUE(start()) << error_;
    // Alice's schedule runs her job; root's schedule runs root's job.
    ASSERT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, "ajob"), kAlice), 0u);
    ASSERT_EQ(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "asched"), kAlice), 0u);
    ASSERT_EQ(configure(assign_request("asched", "ajob"), kAlice), 0u);
    ASSERT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, "rjob")), 0u);
    ASSERT_EQ(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "rsched")), 0u);
    ASSERT_EQ(configure(assign_request("rsched", "rjob")), 0u);
  }
  void expect_all(const std::vector<Asked> &steps) {
    for (size_t i = 0; i < steps.size(); i++) {
      const Asked &step = steps[i];
      EXPECT_EQ(call(step.service, step.opcode, step.request, step.who).status, step.status)
          << "step " << i << " as " << step.who.user;
    }
  }
  schedd::Reply secret(const schedd::Caller &caller, uint32_t opcode, const std::string &text) {
    return call(SECRETS_SERVICE, opcode, Bytes(text.begin(), text.end()), caller);
  }
};

TEST_F(Permissions, AUserChangesOnlyHerOwnAndRootAdministersEverything) {
  sch_email_transport_conf conf{};
  std::strcpy(conf.from, "sched@example.com");
  const Bytes scheduler = named(FM_FEATURE_DISABLE, "scheduler"), level = named(3, "scheduler");
  expect_all({
      // Bob may touch nothing of alice's or root's (her schedule's time, addresses, job text, deletions
      // and the scheduler's settings are tried by real users in e2e/users_test.cc).
      {kBob, assign_request("asched", "ajob", true), kNo},
      {kBob, job_request(SCH_REQ_DEFINE_JOB, "rjob", "id\n"), kNo},
      {kBob, modify_request("rsched", SCH_MODIFY_DAILY, daily(1, 0)), kNo},
      // Nor take alice's job onto a schedule of his own, which would take it out of her hands.
      {kBob, schedule_request(SCH_REQ_CREATE_SCHEDULE, "bsched"), 0},
      {kBob, assign_request("bsched", "ajob"), kNo},
      // Alice may not change the job root's schedule runs (it would run as root), nor put hers there,
      {kAlice, job_request(SCH_REQ_DEFINE_JOB, "rjob", "id\n"), kNo},
      {kAlice, assign_request("rsched", "ajob"), kNo},
      // nor administer the scheduler.
      {kAlice, transport_request(SCH_REQ_NO_EMAIL_SMTP, conf), kNo},
      {kAlice, log_file_request(SCH_REQ_LOG_CLEAR, false), kNo},
      {kAlice, log_file_request(SCH_REQ_LOG_NAME, true), kNo},
      {kAlice, level, kNo, ACFG_SERVICE, ACFG_OP_LOGGING_LEVEL},
      // Text the configuration could not carry back is refused from her too, not from root alone.
      {kAlice, email_request(SCH_EMAIL_ADD, "asched", "a@b.c\nno feature scheduler"), SCH_STATUS_BAD_ADDRESS},
      {kAlice, job_request(SCH_REQ_DEFINE_JOB, "ajob", "echo x\nend-job\n"), SCH_STATUS_BAD_TEXT},
      // Alice manages her own; a job on no schedule is anyone's to take.
      {kAlice, modify_request("asched", SCH_MODIFY_DAILY, daily(3, 15)), 0},
      {kAlice, email_request(SCH_EMAIL_ADD, "asched", "alice@example.com"), 0},
      {kAlice, job_request(SCH_REQ_DEFINE_JOB, "ajob", "echo hi\n"), 0},
      {kRoot, job_request(SCH_REQ_CREATE_JOB, "free"), 0},
      {kBob, assign_request("bsched", "free"), 0},
      // Once root runs alice's job too, only root may change it.
      {kRoot, assign_request("rsched", "ajob"), 0},
      {kAlice, job_request(SCH_REQ_DELETE_JOB, "ajob"), kNo},
      {kAlice, schedule_request(SCH_REQ_DELETE_SCHEDULE, "asched"), 0},
      // Root may do all of it. Unknown objects are reported as such, to anyone.
      {kRoot, job_request(SCH_REQ_DEFINE_JOB, "ajob", "id\n"), 0},
      {kRoot, assign_request("bsched", "ajob"), 0},
      {kRoot, schedule_request(SCH_REQ_DELETE_SCHEDULE, "bsched"), 0},
      {kRoot, job_request(SCH_REQ_DELETE_JOB, "ajob"), 0},
      {kBob, schedule_request(SCH_REQ_DELETE_SCHEDULE, "nothing"), SCH_STATUS_NO_SUCH_SCHEDULE},
      {kBob, job_request(SCH_REQ_DELETE_JOB, "nothing"), SCH_STATUS_NO_SUCH_JOB},
      {kRoot, transport_request(SCH_REQ_EMAIL_FROM, conf), 0},
      {kRoot, Bytes{0}, 0, ACFG_SERVICE, ACFG_OP_COPY_STARTUP},
      {kRoot, scheduler, 0, FM_SERVICE, FM_FEATURE_DISABLE},
  });
}

// (The running text with passwords removed for users is checked with real users in e2e/users_test.cc.)
TEST_F(Permissions, AUserReachesHerOwnCredentialAloneAndTheDaemonDecryptsForItsOwnerAndRoot) {
  std::string stored = "STORED" + std::string(118, 'x');
  ASSERT_EQ(configure(credential_request(SCH_CREDENTIAL_STORE, "carol", stored)), 0u);
  expect_all({{kAlice, credential_request(SCH_CREDENTIAL_FETCH, "carol"), SCH_STATUS_PERMISSION},
              {kAlice, credential_request(SCH_CREDENTIAL_STORE, "carol", "7$x"), SCH_STATUS_PERMISSION},
              {kAlice, credential_request(SCH_CREDENTIAL_DELETE, "carol"), SCH_STATUS_PERMISSION},
              {kAlice, credential_request(SCH_CREDENTIAL_STORE, "alice", "7$mine"), 0}});
  EXPECT_EQ(password_of("alice", kAlice), "7$mine");
  const Bytes list = header_request(SCH_REQ_GET_USER_CONFIG);
  EXPECT_EQ(decode_credentials(call(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, list, kAlice).payload),
            Names{"alice=7$mine"});
  EXPECT_EQ(decode_credentials(call(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, list).payload),
            (Names{"carol=" + stored, "alice=7$mine"}));

  schedd::Reply made = secret(kAlice, SECRETS_OP_ENCRYPT, "wonderland");
  ASSERT_EQ(made.status, 0u) << syserr2str(made.status);
  const std::string alices = text_of(made);
  ASSERT_EQ(alices.size(), SECRETS_TYPE7_MAX_TEXT);
  // Alice may check what she just had made, and root may read it; bob may not.
  EXPECT_EQ(text_of(secret(kAlice, SECRETS_OP_DECRYPT, alices)), "wonderland");
  EXPECT_EQ(text_of(secret(kRoot, SECRETS_OP_DECRYPT, alices)), "wonderland");
  schedd::Reply refused = secret(kBob, SECRETS_OP_DECRYPT, alices);
  EXPECT_EQ(refused.status, kNo);
  EXPECT_TRUE(refused.payload.empty());
  // A stored credential is readable by its user: bob's, made by root, is his to read once stored.
  const std::string bobs = text_of(secret(kRoot, SECRETS_OP_ENCRYPT, "bobs-secret"));
  EXPECT_EQ(secret(kBob, SECRETS_OP_DECRYPT, bobs).status, kNo);
  ASSERT_EQ(configure(credential_request(SCH_CREDENTIAL_STORE, "bob", bobs)), 0u);
  EXPECT_EQ(text_of(secret(kBob, SECRETS_OP_DECRYPT, bobs)), "bobs-secret");
  EXPECT_EQ(secret(kAlice, SECRETS_OP_DECRYPT, bobs).status, kNo);
}

int connect_to(const std::string &path) {
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
  if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

// True once the daemon's side has closed the connection.
bool closed_by_server(int fd) {
  char byte;
  return recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
}

// The server alone, with a table of 4 connections of which 1 is kept for root, and a second of silence allowed.
class ServerLimits : public testing::Test {
 protected:
  void SetUp() override {
    chmod(directory_.path().c_str(), 0755);  // users other than root must reach the socket
    server_ = std::make_unique<schedd::Server>(
        loop_, [this](uint32_t, uint32_t, schedd::RequestBytes, const schedd::Caller &caller) {
          answered_for_.push_back(caller.uid);
          return schedd::status_reply(0);
        },
        schedd::ServerLimits{4, 1, 1000});
    ASSERT_EQ(server_->listen(path_), 0u);
    chmod(path_.c_str(), 0666);
  }

  // Runs the loop for `duration`, or until `done`.
  void serve_for(int milliseconds, const std::function<bool()> &done = [] { return false; }) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (std::chrono::steady_clock::now() < deadline && !done()) {
      if (!loop_.iterate()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  // One request as the test's own user (root), answered while the loop runs here.
  uint32_t ask() {
    std::atomic<uint32_t> status = CMI_ERR_TIMEOUT;
    std::atomic<bool> finished = false;
    std::thread client([&] {
      status = wire_images::WireClient(path_).call(1, 1, Bytes{0}).status;
      finished = true;
    });
    serve_for(3000, [&] { return finished.load(); });
    client.join();
    return status;
  }

  sch::testing::TempDir directory_;
  std::string path_ = directory_.file("schedd.sock");
  schedd::EventLoop loop_;
  std::unique_ptr<schedd::Server> server_;
  std::vector<uint32_t> answered_for_;
};

TEST_F(ServerLimits, ASilentConnectionIsClosedAfterItsTimeAndAnActiveOneServed) {
  int silent = connect_to(path_);
  ASSERT_GE(silent, 0);
  serve_for(500);
  EXPECT_FALSE(closed_by_server(silent)) << "closed before its time";
  serve_for(2000, [&] { return closed_by_server(silent); });
  EXPECT_TRUE(closed_by_server(silent));
  close(silent);
  EXPECT_EQ(ask(), 0u);
}

TEST_F(ServerLimits, UsersFillingEverySlotLeaveRootItsReserve) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to connect as another user";
  passwd *nobody = getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  // Root's own connection takes a slot but not one of the users' share.
  int root_held = connect_to(path_);
  serve_for(50);
  // More connections of a user than there are slots, held without a word (the peer's credentials
  // are those of the connect).
  ASSERT_EQ(setegid(nobody->pw_gid), 0);
  ASSERT_EQ(seteuid(nobody->pw_uid), 0);
  std::vector<int> held;
  for (int i = 0; i < 8; i++) held.push_back(connect_to(path_));
  ASSERT_EQ(seteuid(0), 0);
  ASSERT_EQ(setegid(0), 0);
  EXPECT_EQ(std::count(held.begin(), held.end(), -1), 0);
  serve_for(100);
  EXPECT_EQ(std::count_if(held.begin(), held.end(), closed_by_server), 0)
      << "three users beside root fill the table; the rest wait unrefused";
  // Once root's connection goes, root still gets the slot kept for it, well within the idle time.
  close(root_held);
  serve_for(50);
  auto asked = std::chrono::steady_clock::now();
  EXPECT_EQ(ask(), 0u);
  EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::milliseconds(700)) << "root waited for users to go idle";
  EXPECT_EQ(answered_for_, std::vector<uint32_t>{0});
  for (int fd : held) close(fd);
}

}  // namespace
}  // namespace in_process
