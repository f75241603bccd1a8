// Job runs and their mail: real daemons fire one-shot schedules at a whole minute a few seconds
// away on a shifted clock and the real shell shows what the runs left behind, across a restart and
// a kill during a run; mail goes to a real SMTP server (aiosmtpd) on loopback, or to one that is down.
//
// Every schedule of a test is due in the same minute, so one wait covers every case.
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "processes.h"
#include "support/smtp_server.h"

namespace e2e {
namespace {

// The real clock moved ahead by under a minute (libfaketime, in UTC) for the daemon, its shells,
// its jobs and this test alike, so that the next whole minute is `lead` away when it is made.
// The shift is fixed: every process sees the same running clock.
class ShiftedClock {
 public:
  explicit ShiftedClock(std::chrono::seconds lead) {
    // A second more: the real clock is part way through its current second.
    std::time_t real = std::time(nullptr) + 1;
    shift_ = (60 - (real + lead.count()) % 60) % 60;
    minute_ = real + shift_ + lead.count();
  }
  std::time_t now() const { return std::time(nullptr) + shift_; }
  // The whole minute ahead, at least `lead` from when the clock was made.
  std::time_t minute() const { return minute_; }
  // For the daemon and the shell; `base` adds to it (its LD_PRELOAD comes after the clock's).
  Environment environment(const Environment &base = {}) const {
    const std::string keep = std::string(":") + E2E_KEEP_CLOCK_LIBRARY;
    const auto more = base.find("LD_PRELOAD");
    Environment clock =
        fake_clock("+" + std::to_string(shift_), "", keep + (more == base.end() ? "" : ":" + more->second));
    clock["KEEP_CLOCK_PRELOAD"] = E2E_FAKETIME_LIBRARY + keep;
    clock.insert(base.begin(), base.end());  // the clock's own variables win
    return clock;
  }
  void sleep_until(std::time_t instant) const {
    std::this_thread::sleep_until(std::chrono::system_clock::from_time_t(instant - shift_));
  }
  // Polls `done` every 200 ms until it holds (true) or the clock passes `deadline` (false).
  bool wait_until(std::time_t deadline, const std::function<bool()> &done) const {
    while (!done()) {
      if (now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return true;
  }

 private:
  long shift_ = 0;
  std::time_t minute_ = 0;
};

// `instant` as the one-shot time of "time start" (UTC): YYYY:MM:DD:HH:MM.
std::string start_text(std::time_t instant) {
  tm utc{};
  gmtime_r(&instant, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y:%m:%d:%H:%M", &utc);
  return text;
}

const char *const kGroup = "schedrun";
const char *const kUser = "schedrun-job";

// The text of one log entry: from its "Job Name" line to the closing rule.
std::string log_entry(const std::string &log, const std::string &job) {
  std::size_t start = log.find("Job Name       : " + job + " ");
  if (start == std::string::npos) return "";
  std::size_t end = log.find(std::string(78, '=') + "\n", start);
  return log.substr(start, end == std::string::npos ? std::string::npos : end + 79 - start);
}

// True while the process whose pid `pid_file` holds exists and is not a zombie.
bool alive(const std::string &pid_file) {
  pid_t pid = static_cast<pid_t>(std::atol(read_file(pid_file).c_str()));
  char state = pid > 0 ? process_state(pid) : 0;
  return state != 0 && state != 'Z';
}

std::string job(const std::string &name, const std::string &text) {
  return "scheduler job name " + name + "\n" + text + "\nend-job\n";
}

std::string schedule(const std::string &name, const std::string &job_name, const std::string &when) {
  return "scheduler schedule name " + name + "\njob name " + job_name + "\ntime start " + when + "\nexit\n";
}

// Every substring of `texts` in the log entry of `job`.
void expect_entry(const std::string &log, const std::string &job, const std::vector<std::string> &texts) {
  std::string entry = log_entry(log, job);
  for (const std::string &text : texts) {
    EXPECT_NE(entry.find(text), std::string::npos) << job << ": " << text << "\n" << entry;
  }
}

TEST(Runs, JobsRunRecordAndSurviveARestartAndAKill) {
  // A job as another user, who makes the schedule through the daemon's group. The user is made
  // before the clock: useradd is slow on a loaded machine and must not eat the lead.
  const bool other_user = geteuid() == 0;
  if (other_user) {
    ASSERT_TRUE(make_users(kGroup, {kUser})) << "useradd or groupadd failed";
  }
  Daemon daemon;
  std::string why;
  const std::string dir = daemon.directory();
  const std::vector<std::string> options{"--job-time-limit", "2"};
  const ShiftedClock clock(std::chrono::seconds(8));
  const Environment shifted = clock.environment();
  ASSERT_TRUE(daemon.serve(&why, shifted, options)) << why;

  std::time_t due = clock.minute();
  std::string when = start_text(due);
  // The log must hold the large entry whole: its default size is 16 KB.
  std::string config = "configure terminal\nscheduler logfile size 1024\n" +
      job("j_print", "date +%s > " + dir + "/print.at\necho hello from $SCHEDULER_JOB\nsleep 300 &\necho $! > " +
                           dir + "/left.pid") +
      job("j_fail", "echo failing\nexit 3") +
      job("j_slow", "sleep 300 &\necho $! > " + dir + "/slow.pid\nsleep 100") +
      job("j_big", "head -c 150000 /dev/zero | tr '\\0' x") +
      job("j_cut", "trap '' TERM\necho $$ > " + dir + "/cut.pid\nsleep 100") +
      job("j_late", "echo before") + job("j_after", "echo after") + job("j_gone", "touch " + dir + "/gone.ran") +
      schedule("s_late", "j_late", when) + schedule("s_gone", "j_gone", when) +
      schedule("s_print", "j_print", when) + schedule("s_fail", "j_fail", when) +
      schedule("s_slow", "j_slow", when) + schedule("s_big", "j_big", when) + schedule("s_cut", "j_cut", when);
  ShellRun configured = daemon.shell(config, {}, shifted);
  ASSERT_EQ(configured.err, "");
  ASSERT_EQ(configured.status, 0);
  if (other_user) {
    ASSERT_TRUE(daemon.share_socket(kGroup));
    ShellRun made = daemon.shell("configure terminal\n" + job("j_user", "id -un") + schedule("s_user", "j_user", when),
                                 {}, shifted, kUser);
    ASSERT_EQ(made.err, "");
    ASSERT_EQ(made.status, 0);
  }

  // Armed and waiting: one header and one line per schedule.
  ShellRun timers = daemon.shell("show scheduler timers\n", {}, shifted);
  EXPECT_EQ(timers.err, "");
  EXPECT_EQ(timers.out.rfind("Schedule             State    Next run", 0), 0u) << timers.out;
  EXPECT_EQ(count(timers.out, "\n"), other_user ? 9u : 8u) << timers.out;
  EXPECT_EQ(count(timers.out, " armed "), other_user ? 8u : 7u) << timers.out;

  // Half a second after the first jobs were made ready (2 s ahead); a change now still counts.
  // The shell has 1.5 s to make it, which a loaded machine needs.
  clock.sleep_until(due - 2);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  ShellRun late = daemon.shell("configure terminal\nscheduler schedule name s_late\nno job name j_late\njob name j_after\n"
                               "exit\nno scheduler schedule name s_gone\n", {}, shifted);
  ASSERT_EQ(late.err, "");
  ASSERT_LT(clock.now(), due) << "the change came too late to test anything";

  // Every run but j_cut's ends: j_slow by its time limit of 2 s; j_cut ignores the SIGTERM of its
  // limit and has 5 s of grace before the SIGKILL, by when the daemon must have been killed: only
  // the two shells that must see the runs before the kill come between.
  std::size_t ending = other_user ? 6 : 5;
  std::string log;
  ASSERT_TRUE(clock.wait_until(due + 20, [&] {
    log = daemon.shell("show scheduler logfile\n", {}, shifted).out;
    return count(log, "Job Name       : ") >= ending;
  })) << log << daemon.log();
  // Read now: the restart starts the daemon's log afresh.
  EXPECT_NE(daemon.log().find("ended by its time limit"), std::string::npos) << daemon.log();
  // The one-shots that ran are done; s_cut still runs.
  timers = daemon.shell("show scheduler timers\n", {}, shifted);
  EXPECT_EQ(count(timers.out, " armed "), 0u) << timers.out;
  EXPECT_NE(timers.out.find("s_cut                running"), std::string::npos) << timers.out;
  const std::string failed = daemon.shell("show scheduler schedule name s_fail\n", {}, shifted).out;
  EXPECT_NE(failed.find("Execution count     : 1\n"), std::string::npos) << failed;
  EXPECT_NE(failed.find("j_fail                            Failed  (3)"), std::string::npos) << failed;

  // kill -9 during j_cut's run; the restart reports it cut short and keeps every result.
  ASSERT_TRUE(alive(dir + "/cut.pid")) << "j_cut ended before the kill";
  daemon.kill_now();
  ASSERT_TRUE(daemon.start(&why, shifted, options)) << why;
  EXPECT_TRUE(clock.wait_until(clock.now() + 5, [&] { return !alive(dir + "/cut.pid"); }))
      << "the killed daemon's job still runs";
  std::string after = daemon.shell("show scheduler logfile\n", {}, shifted).out;
  EXPECT_EQ(after.substr(0, log.size()), log);
  EXPECT_EQ(daemon.shell("show scheduler schedule name s_fail\n", {}, shifted).out, failed);
  std::string cut = daemon.shell("show scheduler schedule name s_cut\n", {}, shifted).out;
  EXPECT_NE(cut.find("Execution count     : 1\n"), std::string::npos) << cut;
  // The schedule's display reads only the exit code, so a run ended by a signal shows as 0 there.
  EXPECT_NE(cut.find("j_cut                             Success (0)"), std::string::npos) << cut;

  const std::string rule = std::string(33, '-') + "\n";
  expect_entry(log, "j_print", {"Job Status: Success (0)\n", "Schedule Name  : s_print",
                                " Job Output " + rule + "hello from j_print\n" + std::string(78, '=')});
  expect_entry(log, "j_fail", {"Job Status: Failed (3)\n", "\nfailing\n"});
  expect_entry(log, "j_after", {"\nafter\n"});
  expect_entry(after, "j_cut", {"Schedule Name  : s_cut", "Job Status: Failed (0)\n", "cut short"});
  if (other_user) {
    expect_entry(log, "j_user", {"Job Status: Success (0)\n", "User Name : " + std::string(kUser) + "\n",
                                 rule + kUser + "\n"});
  }
  EXPECT_EQ(log_entry(log, "j_late"), "");
  EXPECT_EQ(log_entry(log, "j_gone"), "");
  EXPECT_FALSE(std::filesystem::exists(dir + "/gone.ran"));
  // Made ready ahead, it started at its instant, on the daemon's clock.
  long started = std::atol(read_file(dir + "/print.at").c_str());
  EXPECT_GE(started, due);
  EXPECT_LE(started, due + 2);
  // Children left behind are gone, whether the job ended by itself or by its time limit.
  EXPECT_FALSE(alive(dir + "/left.pid"));
  EXPECT_FALSE(alive(dir + "/slow.pid"));

  // 150 KB of output: the run keeps its bound (64 KiB) and marks the cut; the log streams it whole
  // across several messages.
  std::string big = log_entry(log, "j_big");
  std::size_t output = big.find(rule);
  ASSERT_NE(output, std::string::npos) << big.substr(0, 400);
  std::string body = big.substr(output + 34, big.size() - output - 34 - 79);
  EXPECT_EQ(body.find_first_not_of('x'), 64u * 1024) << body.substr(64 * 1024);
  EXPECT_LT(body.size(), 64u * 1024 + 200);
  EXPECT_NE(body.substr(64 * 1024).find("truncated"), std::string::npos) << body.substr(64 * 1024);

  // A clean stop and start change nothing.
  ASSERT_EQ(daemon.stop(), 0) << daemon.log();
  ASSERT_TRUE(daemon.start(&why, shifted, options)) << why;
  EXPECT_EQ(daemon.shell("show scheduler logfile\n", {}, shifted).out, after);
  EXPECT_EQ(daemon.stop(), 0) << daemon.log();
  if (other_user) remove_users(kGroup, {kUser});
}

// The daemon and its shell know this process's user as the remote user alice (nss_wrapper), whom
// pam_matrix authenticates with the password wonderland; on the shifted clock.
Environment as_remote_user(const Daemon &daemon, const ShiftedClock &clock) {
  Environment environment = as_user(daemon.directory(), "alice");
  environment["LD_PRELOAD"] = std::string(E2E_PAM_WRAPPER_LIBRARY) + ":" + E2E_NSS_WRAPPER_LIBRARY;
  return clock.environment(environment);
}

TEST(Runs, ARemoteUserRunsOnlyWithAStoredCredential) {
  // Two daemons fire in the same minute: one keeps alice's credential, the other lost it after
  // the schedule was made.
  Daemon kept, lost;
  std::string why;
  const ShiftedClock clock(std::chrono::seconds(6));
  ASSERT_TRUE(kept.start(&why, as_remote_user(kept, clock))) << why;
  ASSERT_TRUE(lost.start(&why, as_remote_user(lost, clock))) << why;
  std::time_t due = clock.minute();
  std::string setup = "configure terminal\nfeature scheduler\nscheduler aaa-authentication password wonderland\n" +
                      job("j_remote", "echo remote ran") + schedule("s_remote", "j_remote", start_text(due));
  ShellRun made = kept.shell(setup, {}, as_remote_user(kept, clock));
  ASSERT_EQ(made.err, "");
  made = lost.shell(setup + "no scheduler aaa-authentication\n", {}, as_remote_user(lost, clock));
  ASSERT_EQ(made.err, "");

  std::string ran, refused;
  ASSERT_TRUE(clock.wait_until(due + 20, [&] {
    ran = kept.shell("show scheduler logfile\n", {}, as_remote_user(kept, clock)).out;
    refused = lost.shell("show scheduler logfile\n", {}, as_remote_user(lost, clock)).out;
    return count(ran, "Job Name") == 1 && count(refused, "Job Name") == 1;
  })) << kept.log() << lost.log();
  expect_entry(ran, "j_remote", {"Job Status: Success (0)\n", "User Name : alice\n", "\nremote ran\n"});
  expect_entry(refused, "j_remote", {"Job Status: Failed (", "\nno stored credential for remote user alice\n"});
  EXPECT_EQ(kept.stop(), 0) << kept.log();
  EXPECT_EQ(lost.stop(), 0) << lost.log();
}

TEST(Mail, OneMessagePerRunAndAServerDownDelaysNoRun) {
  Daemon up, down;
  std::string why;
  std::string spool = up.directory() + "/spool";
  std::filesystem::create_directory(spool);
  sch::testing::SmtpServer server(spool);
  ASSERT_GT(server.port(), 0) << "aiosmtpd did not start (Debian package python3-aiosmtpd)";

  const ShiftedClock clock(std::chrono::seconds(6));
  const Environment shifted = clock.environment();
  ASSERT_TRUE(up.start(&why, shifted)) << why;
  // Retries after 100 ms and 100 ms instead of minutes, so the giving up is seen here.
  ASSERT_TRUE(down.start(&why, shifted, {"--mail-retry-delays", "100,100"})) << why;
  std::time_t due = clock.minute();
  std::string when = start_text(due);

  auto configure = [&](const Daemon &daemon, int port, const std::string &jobs) {
    const std::string server = "scheduler transport email smtp-server 127.0.0.1 port " + std::to_string(port);
    ShellRun run = daemon.shell("configure terminal\nfeature scheduler\n" + server + "\n" + jobs, {}, shifted);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
  };
  configure(up, server.port(),
            "scheduler job name j_mail\necho mail body\nexit 3\nend-job\n"
            "scheduler schedule name s_mail\njob name j_mail\ntime start " + when + "\n"
            "email-addr a@example.com\nemail-addr b@example.com\n");
  // Two jobs, each mailed: the second runs right after the first though its mail cannot go.
  std::string stamp = down.directory() + "/second";
  configure(down, sch::testing::free_port(),
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
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  const std::string subject = "Subject: Scheduler job j_mail of schedule s_mail on " + std::string(host);
  EXPECT_NE(message.find(subject + ": Failed (3)\r\n"), std::string::npos) << message;
  EXPECT_NE(message.find("mail body"), std::string::npos) << message;

  // The server that is down: three attempts for each job's mail, then given up; the second job
  // did not wait for the first one's mail.
  ASSERT_TRUE(clock.wait_until(due + 20, [&] { return count(down.log(), "given up after 3 attempts") >= 2; }))
      << down.log();
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
