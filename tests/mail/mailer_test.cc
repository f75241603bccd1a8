// Mail of job output: composing the message (the address rule, header safety, the body's lines),
// and the mailer against a real SMTP server on loopback: what arrives, refusals, retries, time
// limits, STARTTLS, the queue's bounds and shutdown.
#include "mailer.h"
#include "mail_message.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "schedcli/diag.h"
#include "schedcli/platform/syslog.h"
#include "support/smtp_server.h"
#include "support/temp_dir.h"

namespace {

using namespace schedd::mail;
using sch::testing::free_port;
using sch::testing::loopback_listener;
using sch::testing::SmtpServer;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

// Plain addresses up to the field width, and nothing that could reach the envelope or a header.
TEST(MailAddress, AcceptsPlainAddressesOnly) {
  const std::string longest = std::string(51, 'a') + "@example.com";
  ASSERT_EQ(longest.size(), kMaxAddressLength);
  const std::vector<std::string> good = {"ops@example.com", "first.last+tag@mail-1.example.org", "root@switch1",
                                         "Zz09@zone9.example.com", longest};  // Zz09: each end of each range
  for (const std::string &address : good) EXPECT_TRUE(valid_address(address)) << address;
  const std::vector<std::string> bad = {
      "", "ops", "@example.com", "ops@", "ops@@example.com", "a@b@example.com", "ops@example.com\r\nRCPT TO:<x@y>",
      "ops\n@example.com", "ops@exa mple.com", " ops@example.com", "ops@example.com>", "<ops@example.com",
      "ops@example.com> SIZE=1", "\"o p\"@example.com", ".ops@example.com", "ops.@example.com", "o..ps@example.com",
      "ops@-example.com", "ops@example..com", "ops@example.com.", "ops@exa_mple.com", "ops@ex\xC3\xA4mple.com",
      "o\tps@example.com", "a" + longest, std::string("ops\0x@example.com", 17)};
  for (const std::string &address : bad) EXPECT_FALSE(valid_address(address)) << address;
}

TEST(MailHeaders, UnsafeBytesNeverReachAHeader) {
  EXPECT_TRUE(valid_header_text("Scheduler job backup", 64));
  EXPECT_FALSE(valid_header_text("a\r\nBcc: x@y", 64));
  EXPECT_FALSE(valid_header_text(std::string("a\0b", 3), 64));
  EXPECT_FALSE(valid_header_text("abcdef", 5));
  EXPECT_EQ(header_safe("job\r\nBcc: x@y\xC3\xA4", 64), "job??Bcc: x@y??");
  EXPECT_EQ(header_safe("abcdef", 3), "abc");
}

// Success and a date with a two-digit day are pinned in the whole message of
// MailerTest.SuccessArrivesWithTheExactEnvelopeHeadersAndBody.
TEST(MailHeaders, ResultDateSenderAndMessageIdRenderAsPinned) {
  EXPECT_EQ(result_text(3 << 8), "Failed (3)");
  EXPECT_EQ(result_text(9), "Failed (0)");  // killed by a signal: no exit code
  EXPECT_EQ(rfc5322_date(0), "Thu, 1 Jan 1970 00:00:00 +0000");  // the test runs with TZ=UTC
  EXPECT_EQ(default_sender("switch1.example.net"), "scheduler@switch1.example.net");
  EXPECT_EQ(default_sender("bad host"), "scheduler@localhost");  // the host name is no domain
  EXPECT_EQ(make_message_id(5, 0xabc, "sw1"), "5.0000000000000abc@sw1");
}

// NUL and invalid UTF-8 become replacement characters; the output is bounded, with a marker where cut.
TEST(MailBody, InvalidBytesAreReplacedAndTheOutputBounded) {
  EXPECT_EQ(body_text(std::string("a\0b", 3), false, 100), "a\xEF\xBF\xBD" "b\r\n");
  EXPECT_EQ(body_text("\xC3\xA4 \xFF \xC0\x80 \xED\xA0\x80", false, 100),
            "\xC3\xA4 \xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\r\n");
  EXPECT_EQ(body_text("abcdef", false, 4), "abcd\r\n" + std::string(kOutputCutMarker) + "\r\n");
  EXPECT_EQ(body_text("abc\xE2\x82\xAC", false, 5), "abc\r\n" + std::string(kOutputCutMarker) + "\r\n");
  EXPECT_EQ(body_text("abc\xE2\x82\xAC", false, 6), "abc\xE2\x82\xAC\r\n");
  EXPECT_EQ(body_text("line\n", true, 100), "line\r\n" + std::string(kOutputCutMarker) + "\r\n");
}

// The message is left alone. A bad sender's refusal is seen through the mailer, in
// MailerTest.RefusedAddressesAreReportedAndTheOthersGetTheMail.
TEST(MailCompose, RefusesABadReplyToAndNoRecipients) {
  RunReport run;
  Addressing addressing{"ops@example.com", "r@example.com\n", {"a@example.com"}};
  std::string message = "unchanged", error;
  EXPECT_FALSE(compose(run, addressing, "sw1", "1.2@sw1", {}, &message, &error));
  EXPECT_EQ(error, "invalid reply-to address");
  addressing.reply_to = "";
  addressing.recipients.clear();
  EXPECT_FALSE(compose(run, addressing, "sw1", "1.2@sw1", {}, &message, &error));
  EXPECT_EQ(error, "no recipient");
  EXPECT_EQ(message, "unchanged");
}

TEST(MailCompose, AFailedRunNamesItsReasonOrTheSignalThatEndedIt) {
  RunReport run;
  run.schedule = "s";
  run.job = "j";
  run.failure_reason = "unknown user";
  std::string message, error;
  ASSERT_TRUE(compose(run, {"o@x.org", "", {"a@x.org"}}, "sw1", "1.2@sw1", {}, &message, &error));
  EXPECT_NE(message.find("Subject: Scheduler job j of schedule s on sw1: Failed (1)\r\n"), std::string::npos);
  EXPECT_NE(message.find("Reason   : unknown user\r\n"), std::string::npos);
  run.failure_reason.clear();
  run.wait_status = SIGKILL;  // ended by the signal, no exit code
  ASSERT_TRUE(compose(run, {"o@x.org", "", {"a@x.org"}}, "sw1", "1.2@sw1", {}, &message, &error));
  EXPECT_NE(message.find("Signal   : 9\r\n"), std::string::npos) << message;
}

std::string read_file(const fs::path &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::mutex syslog_mutex;
std::vector<std::string> syslog_lines;

void capture(int, const char *text, void *) {
  std::lock_guard lock(syslog_mutex);
  syslog_lines.push_back(text);
}

class MailerTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    certificates_ = fs::temp_directory_path() / ("mailer-certs-" + std::to_string(getpid()));
    fs::create_directories(certificates_);
    std::string command = "openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=127.0.0.1"
                          " -addext subjectAltName=IP:127.0.0.1 -keyout " + (certificates_ / "key.pem").string() +
                          " -out " + (certificates_ / "cert.pem").string() + " 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  static void TearDownTestSuite() { fs::remove_all(certificates_); }

  void SetUp() override {
    context_ = g_main_context_new();
    nost_syslog_set_sink(capture, nullptr);
    // Deliveries are informational (severity 6), below the facility's default level.
    saved_level_ = syslog_fac_LOG_SCHEDULER.current_level;
    syslog_fac_LOG_SCHEDULER.current_level = 7;
    std::lock_guard lock(syslog_mutex);
    syslog_lines.clear();
    settings_.host_name = "sw1.example.net";
    settings_.connect_timeout = 2s;
    settings_.transfer_timeout = 5s;
    settings_.retry_delays = {};
  }
  void TearDown() override {
    mailer_.reset();
    nost_syslog_set_sink(nullptr, nullptr);
    syslog_fac_LOG_SCHEDULER.current_level = saved_level_;
    g_main_context_unref(context_);
  }

  void start() {
    mailer_ = std::make_unique<Mailer>(settings_, context_, [this](const MailResult &result) {
      results_.push_back(result);
      on_loop_thread_ = on_loop_thread_ && std::this_thread::get_id() == test_thread_;
    });
  }
  // Submits `mail` (starting the mailer if need be) and runs the loop until its result came.
  MailResult deliver(const MailRequest &mail, bool taken = true) {
    if (!mailer_) start();
    EXPECT_EQ(mailer_->submit(mail), taken);
    std::size_t count = results_.size() + 1;
    EXPECT_TRUE(wait_results(count));
    return results_.size() >= count ? results_[count - 1] : MailResult{};
  }
  std::string envelope(int n) { return read_file(spool_ / (std::to_string(n) + ".env")); }
  // Runs the loop until `count` results came or the time is up.
  bool wait_results(std::size_t count, std::chrono::milliseconds limit = 15s) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (results_.size() < count && std::chrono::steady_clock::now() < deadline) {
      while (g_main_context_iteration(context_, FALSE)) {
      }
      std::this_thread::sleep_for(5ms);
    }
    return results_.size() >= count;
  }
  MailRequest request(int port, int wait_status = 0, std::string output = "line one\nline two\n") {
    MailRequest request;
    request.run = {"nightly", "backup", "admin", wait_status, "", 1795398000, 1795398919, std::move(output), false};
    request.recipients = {"ops@example.com"};
    request.transport.server = "127.0.0.1";
    request.transport.port = static_cast<uint32_t>(port);
    request.transport.sender = "sched@sw1.example.net";
    return request;
  }
  std::vector<std::string> log_matching(const std::string &part) {
    std::lock_guard lock(syslog_mutex);
    std::vector<std::string> found;
    for (const std::string &line : syslog_lines) {
      if (line.find(part) != std::string::npos) found.push_back(line);
    }
    return found;
  }

  static inline fs::path certificates_;
  sch::testing::TempDir spool_directory_;
  fs::path spool_ = spool_directory_.path();
  GMainContext *context_ = nullptr;
  MailerSettings settings_;
  std::unique_ptr<Mailer> mailer_;
  std::vector<MailResult> results_;
  std::thread::id test_thread_ = std::this_thread::get_id();
  bool on_loop_thread_ = true;
  uint8_t saved_level_ = 0;
};

TEST_F(MailerTest, SuccessArrivesWithTheExactEnvelopeHeadersAndBody) {
  SmtpServer server(spool_);
  ASSERT_NE(server.port(), 0);
  MailRequest mail = request(server.port());
  mail.transport.reply_to = "noc@example.com";
  MailResult result = deliver(mail);
  EXPECT_EQ(result.outcome, MailOutcome::delivered);
  EXPECT_EQ(result.detail, "250 2.0.0 queued as test-1");
  EXPECT_TRUE(on_loop_thread_);
  EXPECT_EQ(envelope(1), "from sched@sw1.example.net\nto ops@example.com\ntls no\n");

  // The Message-ID carries a random part of 16 hex digits: masked, the whole message is pinned.
  std::string message = read_file(spool_ / "1.eml");
  const std::string id = "Message-ID: <1795398919.";
  std::size_t at = message.find(id);
  ASSERT_NE(at, std::string::npos) << message;
  std::size_t random = at + id.size();
  std::string digits = message.substr(random, 16);
  EXPECT_EQ(digits.find_first_not_of("0123456789abcdef"), std::string::npos) << digits;
  message.replace(random, 16, "RANDOM");
  EXPECT_EQ(message,
            "Date: Mon, 23 Nov 2026 01:55:19 +0000\r\n"
            "From: sched@sw1.example.net\r\n"
            "To: ops@example.com\r\n"
            "Reply-To: noc@example.com\r\n"
            "Subject: Scheduler job backup of schedule nightly on sw1.example.net: Success (0)\r\n"
            "Message-ID: <1795398919.RANDOM@sw1.example.net>\r\n"
            "Auto-Submitted: auto-generated\r\n"
            "MIME-Version: 1.0\r\n"
            "Content-Type: text/plain; charset=utf-8\r\n"
            "Content-Transfer-Encoding: 8bit\r\n"
            "\r\n"
            "Schedule : nightly\r\n"
            "Job      : backup\r\n"
            "User     : admin\r\n"
            "Host     : sw1.example.net\r\n"
            "Started  : Mon, 23 Nov 2026 01:40:00 +0000\r\n"
            "Ended    : Mon, 23 Nov 2026 01:55:19 +0000\r\n"
            "Result   : Success (0)\r\n"
            "\r\n"
            "line one\r\n"
            "line two\r\n");
  EXPECT_EQ(log_matching("SCH_MSG"), std::vector<std::string>{"%SCHEDULER-6-SCH_MSG>> mail for job backup of schedule "
                                                              "nightly delivered to 1 of 1 recipients (attempt 1): 250 "
                                                              "2.0.0 queued as test-1"});
}

TEST_F(MailerTest, HostileOutputArrivesIntactAndCannotEndTheMessage) {
  SmtpServer server(spool_);
  std::string output = std::string("before\n.\n..\n.x\nbad\rcr\nnul\0here\n", 31) + std::string(3000, 'L') +
                       "\n\r\n.\r\nQUIT\r\nafter";
  ASSERT_EQ(deliver(request(server.port(), 0, output)).outcome, MailOutcome::delivered);
  std::string message = read_file(spool_ / "1.eml");
  std::string body = message.substr(message.find("Result   : Success (0)\r\n\r\n") + 26);
  EXPECT_EQ(body, "before\r\n.\r\n..\r\n.x\r\nbad\r\ncr\r\nnul\xEF\xBF\xBDhere\r\n" + std::string(998, 'L') + "\r\n" +
                      std::string(998, 'L') + "\r\n" + std::string(998, 'L') + "\r\n" + std::string(6, 'L') +
                      "\r\n\r\n.\r\nQUIT\r\nafter\r\n");
  EXPECT_FALSE(fs::exists(spool_ / "2.env"));
}

// Addresses that could inject commands never reach the server; one the server refuses is reported;
// the other recipients get the mail.
TEST_F(MailerTest, RefusedAddressesAreReportedAndTheOthersGetTheMail) {
  SmtpServer server(spool_, {"--refuse", "gone@example.com"});
  MailRequest mail = request(server.port());
  mail.transport.sender = "sched@sw1.example.net\r\nRCPT TO:<evil@example.com>";
  MailResult result = deliver(mail, false);
  EXPECT_EQ(result.outcome, MailOutcome::rejected);
  EXPECT_EQ(result.detail, "invalid sender address");
  mail = request(server.port());
  mail.recipients = {"ops@example.com>\r\nDATA", "ops@example.com", "gone@example.com", "noc@example.com"};
  result = deliver(mail);
  EXPECT_EQ(result.outcome, MailOutcome::partly_delivered);
  EXPECT_EQ(result.refused, (std::vector<std::string>{"ops@example.com>??DATA",
                                                      "gone@example.com (550 5.1.1 no such user here)"}));
  EXPECT_EQ(envelope(1), "from sched@sw1.example.net\nto ops@example.com\nto noc@example.com\ntls no\n");
  EXPECT_FALSE(fs::exists(spool_ / "2.env"));
  // The refused addresses are reported made safe: one log line stays one line.
  EXPECT_EQ(log_matching("SCH_WARN"),
            std::vector<std::string>{"%SCHEDULER-4-SCH_WARN>> mail for job backup of schedule nightly delivered to 2 of 4 "
                                     "recipients; refused: ops@example.com>??DATA, gone@example.com (550 5.1.1 no such "
                                     "user here) (attempt 1): 250 2.0.0 queued as test-1"});
  for (const std::string &line : log_matching("SCH_")) EXPECT_EQ(line.find_first_of("\r\n"), std::string::npos) << line;
}

// A server that cannot be reached is retried a bounded number of times; one that refuses the
// message for good is not retried.
TEST_F(MailerTest, RetriesAreBoundedAndARefusalForGoodIsNotRetried) {
  SmtpServer server(spool_, {"--refuse-data"});
  settings_.retry_delays = {50ms, 50ms};
  MailResult result = deliver(request(free_port()));
  EXPECT_EQ(result.outcome, MailOutcome::given_up);
  EXPECT_EQ(result.attempts, 3);
  EXPECT_EQ(mailer_->queued_messages(), 0u);
  EXPECT_EQ(mailer_->queued_bytes(), 0u);
  result = deliver(request(server.port()));
  EXPECT_EQ(result.outcome, MailOutcome::given_up);
  EXPECT_EQ(result.attempts, 1);
  auto lines = log_matching("SCH_ERR");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find("mail for job backup of schedule nightly given up after 3 attempts: "), std::string::npos);
  EXPECT_NE(lines[1].find(" given up after 1 attempt: "), std::string::npos) << lines[1];
  EXPECT_NE(lines[1].find("server: 554 5.7.1 message refused"), std::string::npos) << lines[1];
}

TEST_F(MailerTest, AServerThatNeverAnswersHitsTheTimeLimit) {
  SmtpServer server(spool_, {"--silent"});
  settings_.transfer_timeout = 1s;
  auto begun = std::chrono::steady_clock::now();
  MailResult result = deliver(request(server.port()));
  EXPECT_EQ(result.outcome, MailOutcome::given_up);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 4s);
  EXPECT_NE(result.detail.find("timed out"), std::string::npos) << result.detail;
}

TEST_F(MailerTest, StartTlsIsUsedAndTheCertificateIsVerified) {
  SmtpServer server(spool_, {"--cert", (certificates_ / "cert.pem").string(), "--key",
                             (certificates_ / "key.pem").string()});
  // The system's CA store does not know the test certificate.
  EXPECT_EQ(deliver(request(server.port())).outcome, MailOutcome::given_up);
  EXPECT_FALSE(fs::exists(spool_ / "1.env"));
  settings_.ca_file = (certificates_ / "cert.pem").string();
  start();
  EXPECT_EQ(deliver(request(server.port())).outcome, MailOutcome::delivered);
  EXPECT_EQ(envelope(1), "from sched@sw1.example.net\nto ops@example.com\ntls yes\n");
}

TEST_F(MailerTest, AFullQueueDropsTheOldestAndStopDoesNotWaitForRetries) {
  settings_.retry_delays = {std::chrono::hours(1)};
  settings_.max_queued_messages = 3;
  start();
  // The first message is held in flight by a server that accepts and says nothing, so which
  // waiting messages make room does not depend on how fast the worker is.
  int held_port = 0;
  int listener = loopback_listener(&held_port);
  MailRequest held = request(held_port);
  held.run.job = "job0";
  ASSERT_TRUE(mailer_->submit(held));
  int in_flight = accept(listener, nullptr, nullptr);
  ASSERT_GE(in_flight, 0);

  int port = free_port();
  for (int i = 1; i < 6; i++) {
    MailRequest mail = request(port);
    mail.run.job = "job" + std::to_string(i);
    ASSERT_TRUE(mailer_->submit(mail));
  }
  EXPECT_LE(mailer_->queued_messages(), 3u);
  ASSERT_TRUE(wait_results(3));
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(results_[i].outcome, MailOutcome::dropped);
    EXPECT_EQ(results_[i].job, "job" + std::to_string(i + 1));
  }
  EXPECT_EQ(log_matching("dropped: the mail queue is full").size(), 3u);
  close(in_flight);  // the held message fails and waits for its retry
  close(listener);

  settings_.max_queued_bytes = 1;  // nothing fits: the new message itself is dropped
  MailerSettings tight = settings_;
  Mailer small(tight, context_, nullptr);
  EXPECT_FALSE(small.submit(request(port)));

  auto begun = std::chrono::steady_clock::now();
  mailer_->stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 2s);
  EXPECT_EQ(log_matching("waiting messages dropped at shutdown").size(), 1u);
  EXPECT_FALSE(mailer_->submit(request(port)));
}

TEST_F(MailerTest, StopDuringADeliveryAbortsItAndSaysSo) {
  start();
  int port = 0;
  int listener = loopback_listener(&port);
  ASSERT_TRUE(mailer_->submit(request(port)));
  int in_flight = accept(listener, nullptr, nullptr);
  ASSERT_GE(in_flight, 0);
  auto begun = std::chrono::steady_clock::now();
  mailer_->stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 2s);
  EXPECT_EQ(log_matching("job backup of schedule nightly dropped: the mailer stopped during delivery").size(), 1u);
  close(in_flight);
  close(listener);
}

}  // namespace
