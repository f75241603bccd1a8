// Stored credentials over the socket: a caller without privilege, known by its peer credentials,
// reaches only its own.
#include <sys/stat.h>

#include "daemon_testing.h"

namespace {

using namespace daemon_testing;

class DaemonCredentials : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_enabled();
  }
  Answer request(uint8_t operation, const std::string &user, const std::string &password = "") {
    return configure(credential_request(operation, user, password));
  }

  // The answers to `requests` (configuration requests, or the list when empty) sent by a caller
  // without privilege: `uid` from a child process when the tests run as root, else the tests.
  std::vector<Answer> as_unprivileged(uid_t uid, const std::vector<Bytes> &requests) {
    auto send_all = [&] {
      std::vector<Answer> answers;
      for (const Bytes &request : requests) answers.push_back(request.empty() ? credential_list() : configure(request));
      return answers;
    };
    if (geteuid() != 0) return send_all();
    int pipe_fds[2];
    EXPECT_EQ(pipe(pipe_fds), 0);
    if (pid_t child = fork(); child == 0) {
      // The group stays root's, so that the socket (mode 0660) can still be reached.
      if (setuid(uid) != 0) _exit(1);
      for (const Answer &answer : send_all()) {
        uint32_t head[2] = {answer.status, static_cast<uint32_t>(answer.payload.size())};
        if (write(pipe_fds[1], head, sizeof head) < 0 || write(pipe_fds[1], answer.payload.data(), head[1]) < 0) _exit(1);
      }
      _exit(0);
    } else {
      close(pipe_fds[1]);
      std::string bytes = read_all(pipe_fds[0]);
      EXPECT_EQ(wait_for_exit(child), 0);
      std::vector<Answer> answers;
      for (size_t at = 0; at + 8 <= bytes.size(); at += 8 + answers.back().payload.size()) {
        uint32_t head[2];
        std::memcpy(head, bytes.data() + at, sizeof head);
        answers.push_back({head[0], Bytes(bytes.begin() + at + 8, bytes.begin() + at + 8 + head[1])});
      }
      return answers;
    }
  }
};

// The password of a fetch reply: user (128 bytes), then the encrypted password (128).
std::string password_of(const Answer &fetched) {
  EXPECT_EQ(fetched.payload.size(), 256u);
  if (fetched.payload.size() != 256) return "?";
  const char *password = reinterpret_cast<const char *>(fetched.payload.data()) + 128;
  return std::string(password, strnlen(password, 128));
}

TEST_F(DaemonCredentials, AnUnprivilegedCallerReachesOnlyItsOwn) {
  bool root = geteuid() == 0;
  passwd *nobody = getpwnam("nobody");
  if (root && !nobody) GTEST_SKIP() << "no account to drop to";
  std::string me = root ? nobody->pw_name : own_user();
  if (root) {
    ASSERT_EQ(chmod(root_.c_str(), 0750), 0);
    ASSERT_TRUE(answered(request(SCH_CREDENTIAL_STORE, "alice", "7$alice"), 0));
  }
  ASSERT_TRUE(answered(request(SCH_CREDENTIAL_STORE, me, "7$mine"), 0));

  std::vector<Answer> answers = as_unprivileged(
      root ? nobody->pw_uid : geteuid(),
      {credential_request(SCH_CREDENTIAL_FETCH, "alice"), credential_request(SCH_CREDENTIAL_STORE, "alice", "7$x"),
       credential_request(SCH_CREDENTIAL_DELETE, "alice"), credential_request(SCH_CREDENTIAL_FETCH, me),
       credential_request(SCH_CREDENTIAL_STORE, me, "7$new"), Bytes{}});
  ASSERT_EQ(answers.size(), 6u);
  for (int i = 0; i < 3; i++) EXPECT_TRUE(answered(answers[i], SCH_STATUS_PERMISSION)) << i;
  EXPECT_EQ(password_of(answers[3]), "7$mine");
  EXPECT_TRUE(answered(answers[4], 0));
  EXPECT_EQ(decode_credentials(answers[5].payload), Names{me + "=7$new"}) << "nobody else's in the list";
  if (root) {
    EXPECT_EQ(decode_credentials(credential_list().payload), (Names{"alice=7$alice", me + "=7$new"}));
  }
}

}  // namespace
