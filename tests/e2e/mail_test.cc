// Mail of job output end to end: real daemons fire in the same minute of a shifted clock, one mailing a real SMTP
// server (aiosmtpd) on loopback, one configured for a server that is down.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "gtest/gtest.h"
#include "processes.h"
#include "runs_support.h"
#include "support/smtp_server.h"

namespace e2e {
namespace {

using sch::testing::free_port;
using sch::testing::SmtpServer;

std::string host_name() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

TEST(Mail, OneMessagePerRunAndAServerDownDelaysNoRun) {
  Daemon up, down;
  std::string why;
  std::string spool = up.directory() + "/spool";
  std::filesystem::create_directory(spool);
  SmtpServer server(spool);
  ASSERT_GT(server.port(), 0) << "aiosmtpd did not start (Debian package python3-aiosmtpd)";

  const ShiftedClock clock(std::chrono::seconds(6));
  const Environment shifted = clock.environment();
  ASSERT_TRUE(up.start(&why, shifted)) << why;
  // Retries after 100 ms and 100 ms instead of minutes, so the giving up is seen here.
  ASSERT_TRUE(down.start(&why, shifted, {"--mail-retry-delays", "100,100"})) << why;
  std::time_t due = clock.minute();
  std::string when = start_text(due);

  auto configure = [&](const Daemon &daemon, int port, const std::string &jobs) {
    ShellRun run = daemon.shell("configure terminal\nfeature scheduler\n"
                                "scheduler transport email smtp-server 127.0.0.1 port " + std::to_string(port) + "\n" +
                                    jobs,
                                {}, shifted);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
  };
  configure(up, server.port(),
            "scheduler job name j_mail\necho mail body\nexit 3\nend-job\n"
            "scheduler schedule name s_mail\njob name j_mail\ntime start " + when + "\n"
            "email-addr a@example.com\nemail-addr b@example.com\n");
  // Two jobs, each mailed: the second runs right after the first though its mail cannot go.
  std::string stamp = down.directory() + "/second";
  configure(down, free_port(),
            "scheduler job name j_first\nexit 3\nend-job\n"
            "scheduler job name j_second\ndate +%s > " + stamp + "\nend-job\n"
            "scheduler schedule name s_down\njob name j_first\njob name j_second\ntime start " + when + "\n"
            "email-addr ops@example.com\n");

  // One message for the run, to both addresses.
  ASSERT_TRUE(clock.wait_until(due + 20, [&] { return std::filesystem::exists(spool + "/1.env"); })) << up.log();
  std::string envelope = read_file(spool + "/1.env");
  EXPECT_NE(envelope.find("to a@example.com\n"), std::string::npos) << envelope;
  EXPECT_NE(envelope.find("to b@example.com\n"), std::string::npos) << envelope;
  std::string message = read_file(spool + "/1.eml");
  EXPECT_NE(message.find("Subject: Scheduler job j_mail of schedule s_mail on " + host_name() + ": Failed (3)\r\n"),
            std::string::npos)
      << message;
  EXPECT_NE(message.find("mail body"), std::string::npos) << message;

  // The server that is down: three attempts for each job's mail, then given up; the second job
  // did not wait for the first one's mail.
  ASSERT_TRUE(clock.wait_until(due + 20, [&] { return count(down.log(), "given up after 3 attempts") >= 2; })) << down.log();
  std::string second = read_file(stamp);
  ASSERT_FALSE(second.empty()) << down.log();
  EXPECT_GE(std::atol(second.c_str()), due) << down.log();
  EXPECT_LE(std::atol(second.c_str()), due + 3) << down.log();

  // Still one message: nothing was sent twice.
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_FALSE(std::filesystem::exists(spool + "/2.eml"));
  EXPECT_EQ(up.stop(), 0) << up.log();
  EXPECT_EQ(down.stop(), 0) << down.log();
}

}  // namespace
}  // namespace e2e
