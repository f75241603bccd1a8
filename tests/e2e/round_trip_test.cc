// Whatever the daemon accepts straight from its socket, its configuration text pasted into a fresh
// daemon through the shell gives the same configuration: random names, addresses and job texts,
// hostile ones among them, under fixed seeds.
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "cli/request.h"
#include "gtest/gtest.h"
#include "processes.h"
#include "schedcli/platform/cmi.h"
#include "support/wire_images.h"

namespace e2e {
namespace {

using wire_images::Bytes;

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  size_t below(size_t bound) { return std::uniform_int_distribution<size_t>(0, bound - 1)(engine_); }
  template <typename T>
  const T &pick(const std::vector<T> &from) { return from[below(from.size())]; }

  std::string name() {
    static const std::string kCharacters = "abcxyzABZ0189_-";
    static const std::vector<std::string> kHostile = {" ", "\n", ";", "?", "\"", "!", "\t", "."};
    std::string name;
    size_t length = 1 + below(below(4) == 0 ? 31 : 8);
    for (size_t i = 0; i < length; i++) name += kCharacters[below(kCharacters.size())];
    if (below(6) == 0) name.insert(below(name.size() + 1), pick(kHostile));
    return name;
  }

  std::string address() {
    static const std::vector<std::string> kLocal = {"ops", "x.y", "o'k", "q?", "a+b", "x y", "a\nno feature scheduler",
                                                    "\"q\"", "", ".a", "a..b", "z~"};
    static const std::vector<std::string> kDomain = {"example.com", "b", "ex-ample.org", "-bad.com", "a..b", "c.d ",
                                                     "e.f\n", "g?"};
    return pick(kLocal) + (below(8) == 0 ? "" : "@") + pick(kDomain);
  }

  std::string job_text() {
    static const std::vector<std::string> kLines = {
        "echo hi", "end-job", "  end-job ", "", " ; ", "exit", "end", "!", "?", "# note", "scheduler schedule name s",
        "\tindented", "a\rb", "bell\x07", "quote \"x\"", "end-jobs", "echo end-job", "feature scheduler",
        "no feature scheduler", "  job name x", "email-addr a@b.c"};
    std::string text;
    size_t lines = below(6);
    for (size_t i = 0; i < lines; i++) text += pick(kLines) + (i + 1 < lines || below(10) != 0 ? "\n" : "");
    return text;
  }

 private:
  std::mt19937 engine_;
};

class RoundTrip : public testing::TestWithParam<unsigned> {
 protected:
  uint32_t configure(const Daemon &daemon, const Bytes &request) {
    cmi_session *session = cmi_session_open((daemon.directory() + "/run/" CMI_SOCKET_NAME).c_str());
    void *reply = nullptr;
    auto length = static_cast<uint32_t>(request.size());
    uint32_t status = cmi_req_resp(SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, request.data(), &reply, &length, nullptr,
                                   nullptr, 0, session, 0);
    std::free(reply);
    cmi_session_close(session);
    return status;
  }

  std::string running(const Daemon &daemon) {
    ShellRun run = daemon.shell("show running-config\n");
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out;
  }
};

TEST_P(RoundTrip, AcceptedConfigurationComesBackFromItsText) {
  Random random(GetParam());
  Daemon first;
  std::string why;
  ASSERT_TRUE(first.start(&why)) << why;
  ASSERT_TRUE(first.enable_feature(&why)) << why;

  std::vector<std::string> jobs, schedules;
  size_t accepted = 0;
  for (size_t i = 0, count = 2 + random.below(5); i < count; i++) {
    std::string name = random.name();
    if (configure(first, wire_images::job_request(SCH_REQ_CREATE_JOB, name)) != 0) continue;
    jobs.push_back(name);
    for (int attempt = 0; attempt < 3; attempt++) {
      accepted += configure(first, wire_images::job_request(SCH_REQ_DEFINE_JOB, name, random.job_text())) == 0;
    }
  }
  for (size_t i = 0, count = 1 + random.below(4); i < count; i++) {
    std::string name = random.name();
    if (configure(first, wire_images::schedule_request(SCH_REQ_CREATE_SCHEDULE, name)) != 0) continue;
    schedules.push_back(name);
    int hour = static_cast<int>(random.below(24)), minute = static_cast<int>(random.below(60));
    configure(first, wire_images::modify_request(name, SCH_MODIFY_DAILY, wire_images::daily(hour, minute)));
    for (const std::string &job : jobs) {
      if (random.below(2) == 0) configure(first, wire_images::assign_request(name, job));
    }
    for (size_t e = 0, emails = random.below(5); e < emails; e++) {
      accepted += configure(first, wire_images::email_request(SCH_EMAIL_ADD, name, random.address())) == 0;
    }
  }
  ASSERT_FALSE(jobs.empty() && schedules.empty()) << "the seed made nothing to compare";
  std::string text = running(first);

  Daemon second;
  ASSERT_TRUE(second.start(&why)) << why;
  // The text's own "feature scheduler" turns the feature on.
  ShellRun paste = second.shell("configure terminal\n" + text);
  EXPECT_EQ(paste.err, "") << text;
  EXPECT_EQ(running(second), text) << accepted << " texts accepted";
}

INSTANTIATE_TEST_SUITE_P(Seeds, RoundTrip, testing::Values(1u, 2u, 3u, 5u, 8u, 13u, 21u, 34u));

}  // namespace
}  // namespace e2e
