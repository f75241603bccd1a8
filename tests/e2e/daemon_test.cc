// The real daemon: detached start, refused starts, its socket under requests and frames that do not
// hold up, the largest configuration streamed back, and a kill during a configure replace.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "processes.h"
#include "support/wire_client.h"

namespace e2e {
namespace {

using namespace wire_images;

class WithDaemon : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(daemon.serve(&why)) << why; }
  void TearDown() override {
    if (raw >= 0) close(raw);
    EXPECT_EQ(daemon.stop(), 0) << daemon.log();
  }

  // A message as the transport frames it: version, kind, 0, service, opcode, status, token, length.
  static Bytes frame(uint8_t version, uint8_t kind, uint32_t token, const Bytes &payload) {
    Bytes bytes(CMI_HEADER_SIZE);
    bytes[0] = version;
    bytes[1] = kind;
    sch_wire_put_u32(&bytes[4], SCH_SERVICE_CONFIG);
    sch_wire_put_u32(&bytes[8], SCH_OPCODE_CONFIG);
    sch_wire_put_u32(&bytes[16], token);
    sch_wire_put_u32(&bytes[20], static_cast<uint32_t>(payload.size()));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
  }
  // A connection of our own in `raw`, past the platform's client.
  void connect_raw() {
    ASSERT_GE(raw = connect_to(daemon.socket_path()), 0) << std::strerror(errno);
    int buffer = 4 * CMI_MAX_MESSAGE;
    timeval timeout{5, 0};
    setsockopt(raw, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    setsockopt(raw, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  }
  // Sends raw bytes; the reply's status and token.
  std::pair<uint32_t, uint32_t> exchange(const Bytes &bytes) {
    EXPECT_EQ(send(raw, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    uint8_t reply[CMI_HEADER_SIZE];
    EXPECT_EQ(recv(raw, reply, sizeof reply, 0), static_cast<ssize_t>(sizeof reply)) << std::strerror(errno);
    return {sch_wire_get_u32(reply + 12), sch_wire_get_u32(reply + 16)};
  }

  Daemon daemon;
  WireClient client{daemon.socket_path()};
  std::string why;
  int raw = -1;
};

// Records that do not hold up get an error through the platform's client, nothing of them is
// applied, and the daemon goes on serving.
TEST_F(WithDaemon, RecordsThatDisagreeWithTheirTypeAreRefused) {
  Bytes create = job_request(SCH_REQ_CREATE_JOB, "j");
  Bytes longer = create, shorter(create.begin(), create.end() - 1), wrong_length_word = create;
  longer.push_back(0);
  sch_wire_put_u32(&longer[4], static_cast<uint32_t>(longer.size() - 8));
  sch_wire_put_u32(&shorter[4], static_cast<uint32_t>(shorter.size() - 8));
  sch_wire_put_u32(&wrong_length_word[4], 40);
  Bytes text_length_disagrees = job_request(SCH_REQ_DEFINE_JOB, "j", "abc");
  sch_wire_put_u32(&text_length_disagrees[52], 4);
  const uint32_t config = SCH_SERVICE_CONFIG, display = SCH_SERVICE_DISPLAY;

  struct Case {
    uint32_t service;
    Bytes request;
    uint32_t status;
  };
  for (const auto &[service, request, status] : std::vector<Case>{
           {config, {}, SCH_STATUS_BAD_REQUEST},
           {config, Bytes(7, 0), SCH_STATUS_BAD_REQUEST},
           {config, header_request(99), SCH_STATUS_UNKNOWN_REQUEST},
           {config, header_request(21), SCH_STATUS_UNKNOWN_REQUEST},
           {config, header_request(SCH_REQ_LOG_SIZE), SCH_STATUS_BAD_REQUEST},
           {config, longer, SCH_STATUS_BAD_REQUEST},
           {config, shorter, SCH_STATUS_BAD_REQUEST},
           {config, wrong_length_word, SCH_STATUS_BAD_REQUEST},
           {config, text_length_disagrees, SCH_STATUS_BAD_REQUEST},
           // Names that fill their field leave no room for the terminator.
           {config, job_request(SCH_REQ_CREATE_JOB, std::string(32, 'a')), SCH_STATUS_BAD_REQUEST},
           {config, schedule_request(SCH_REQ_CREATE_SCHEDULE, std::string(32, 's')), SCH_STATUS_BAD_REQUEST},
           {config, email_request(SCH_EMAIL_ADD, "s", std::string(64, 'e')), SCH_STATUS_BAD_REQUEST},
           {config, credential_request(SCH_CREDENTIAL_FETCH, std::string(128, 'u')), SCH_STATUS_BAD_REQUEST},
           {display, display_request(SCH_REQ_GET_JOBS, std::string(32, 'j'), -1), SCH_STATUS_BAD_REQUEST},
           // The right record on the wrong service or opcode.
           {display, create, SCH_STATUS_BAD_REQUEST},
           {config, display_request(SCH_REQ_GET_JOBS, "", -1), SCH_STATUS_BAD_REQUEST},
           {display, header_request(SCH_REQ_GET_USER_CONFIG), SCH_STATUS_BAD_REQUEST}}) {
    Answer answer = service == config ? client.configure(request) : client.display(request);
    EXPECT_TRUE(answered(answer, status)) << service << ": " << request.size() << " bytes";
    EXPECT_TRUE(answer.payload.empty());
  }
  EXPECT_TRUE(client.job_names().empty());
  EXPECT_TRUE(answered(client.configure(create), 0));
}

TEST_F(WithDaemon, BrokenMessagesOnOneConnectionAreAnsweredAndItStaysUsable) {
  connect_raw();
  Bytes request = job_request(SCH_REQ_CREATE_JOB, "raw");
  Bytes cut_short = frame(1, 1, 12, request);
  cut_short.pop_back();
  EXPECT_EQ(exchange(Bytes(5, 0xff)), std::make_pair(CMI_ERR_SHORT, 0u));
  EXPECT_EQ(exchange(frame(9, 1, 11, request)).first, CMI_ERR_VERSION);
  EXPECT_EQ(exchange(cut_short), std::make_pair(CMI_ERR_LENGTH, 12u));
  EXPECT_EQ(exchange(frame(1, 2, 13, request)), std::make_pair(CMI_ERR_KIND, 13u)) << "a reply sent to the daemon";
  EXPECT_EQ(exchange(Bytes(CMI_MAX_MESSAGE + 1, 1)).first, CMI_ERR_TOO_LARGE);
  EXPECT_EQ(exchange(frame(1, 1, 14, request)), std::make_pair(0u, 14u));
  EXPECT_EQ(exchange(frame(1, 1, 15, request)), std::make_pair(SCH_STATUS_EXISTS, 15u));
}

TEST_F(WithDaemon, ClientsThatGoAwayEarlyAreForgotten) {
  // More than the daemon keeps open at once: the rest wait their turn rather than being turned away.
  for (int i = 0; i < 100; i++) {
    connect_raw();
    Bytes request = frame(1, 1, 1, job_request(SCH_REQ_CREATE_JOB, "x" + std::to_string(i)));
    if (i % 2) {
      ASSERT_EQ(send(raw, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    }
    close(raw);
    raw = -1;
  }
  EXPECT_TRUE(answered(client.configure(job_request(SCH_REQ_CREATE_JOB, "alive")), 0));
  EXPECT_EQ(client.job_names().size(), 51u) << "every request sent was served, though nobody read the reply";
}

TEST_F(WithDaemon, LargestConfigurationStreamsBackWholeWhileOthersAreServed) {
  std::string expected = "feature scheduler\n\n";
  for (int id = 0; id < SCH_MAX_JOBS; id++) {
    std::string name = "job" + std::to_string(id);
    std::string text;
    while (text.size() < SCH_JOB_TEXT_MAX) text += "echo " + name + " " + std::to_string(text.size()) + "\n";
    text.resize(SCH_JOB_TEXT_MAX - 1);
    text += "\n";
    ASSERT_TRUE(answered(client.configure(job_request(SCH_REQ_CREATE_JOB, name)), 0));
    ASSERT_TRUE(answered(client.configure(job_request(SCH_REQ_DEFINE_JOB, name, text)), 0));
    expected += "scheduler job name " + name + "\n" + text + "end-job\n\n";
  }
  ASSERT_GT(expected.size(), 2u * 1024 * 1024);

  // A second client asks and does not read yet: the daemon goes on serving the first.
  cmi_session *slow = cmi_session_open(daemon.socket_path().c_str());
  cmi_session_timeout_set(slow, 5000);
  const uint8_t request[2] = {ACFG_CFG_RUNNING, 0};
  cmi_token_source source{};
  ASSERT_EQ(cmi_send_request(ACFG_SERVICE, ACFG_OP_CONFIG_TEXT, request, sizeof request, nullptr, nullptr, nullptr,
                             slow, &source),
            0u);
  Answer last_job = client.display(display_request(SCH_REQ_GET_JOBS, "job255", -1));
  ASSERT_TRUE(answered(last_job, 0));
  EXPECT_EQ(decode_job(last_job.payload).text.size(), size_t{SCH_JOB_TEXT_MAX});
  EXPECT_EQ(client.running_config(), expected);

  mts_stream_context context{};
  context.mode = 1;
  context.token = mts_rr_token_get(&source);
  std::string gathered;
  cmi_message message{};
  uint32_t status;
  while ((status = mts_recv(slow, &message, &context)) == 0) {
    gathered.append(static_cast<const char *>(message.payload), message.length);
    cmi_message_release(&message);
  }
  EXPECT_EQ(status, CMI_STREAM_END);
  EXPECT_EQ(gathered, expected);
  cmi_session_close(slow);
}

TEST(DaemonStart, DetachedStartServesAtOnceRefusesASecondDaemonAndStopsCleanly) {
  Daemon daemon;
  ShellRun started = daemon.start_detached({"--enable-feature", "--debug", "100", "--debug", "103"});
  ASSERT_EQ(started.status, 0) << started.err;
  EXPECT_EQ(started.err, "");
  // No waiting, and the feature on without a request: the command returned only when the socket
  // could answer.
  WireClient client(daemon.socket_path());
  for (const Bytes &request :
       {job_request(SCH_REQ_CREATE_JOB, "backup"), job_request(SCH_REQ_DEFINE_JOB, "backup", std::string(1499, 'x') + "\n"),
        schedule_request(SCH_REQ_CREATE_SCHEDULE, "nightly"), modify_request("nightly", SCH_MODIFY_DAILY, daily(2, 30)),
        assign_request("nightly", "backup"), email_request(SCH_EMAIL_ADD, "nightly", "ops@example.com"),
        credential_request(SCH_CREDENTIAL_STORE, "alice", "7$secret")}) {
    ASSERT_TRUE(answered(client.configure(request), 0));
  }
  ShellRun second = Daemon::schedd(daemon.directories());
  EXPECT_EQ(second.status, 1);
  EXPECT_NE(second.err.find("(pid " + std::to_string(daemon.pid()) + ") is already running"), std::string::npos)
      << second.err;
  EXPECT_TRUE(answered(client.configure(job_request(SCH_REQ_CREATE_JOB, "still-served")), 0));

  EXPECT_EQ(daemon.stop(), 0);
  EXPECT_FALSE(std::filesystem::exists(daemon.socket_path()));
  // A detached daemon's debug output goes to the state directory.
  std::string log = read_file(daemon.directory() + "/state/schedd-debug.log");
  EXPECT_NE(log.find("opcode 3, 56 bytes"), std::string::npos) << log;
  EXPECT_NE(log.find("stopped with 0 tracked blocks in use"), std::string::npos) << log;
}

TEST(DaemonStart, StartsThatCannotWorkAreRefusedWithTheReason) {
  Daemon daemon;
  const std::string run = daemon.directory() + "/run", long_run = daemon.directory() + "/" + std::string(40, 'r');
  // Stores that cannot be opened also keep an option wrongly taken from starting a daemon; and
  // every start is on the test's directories, so that none can start on the host's.
  std::filesystem::create_directories(run + "/scheduler_runtime");
  write_file(run + "/running-stores-whole", "");
  const std::vector<std::string> directories = daemon.directories();
  auto with = [&](std::vector<std::string> options) {
    options.insert(options.begin(), directories.begin(), directories.end());
    return options;
  };

  struct Case {
    std::vector<std::string> arguments;
    int status;
    std::vector<std::string> says;
  };
  for (const auto &[arguments, status, says] : std::vector<Case>{
           {{"--state-dir", directories[1], "--runtime-dir", long_run}, 1, {"63 at most"}},
           {with({}), 1, {"SCH_SYSLOG_PSS_ERR", "cannot open the stores"}},
           {with({"--help"}), 0, {}},
           {with({"--bogus"}), 2, {"--help"}},
           {with({"--debug", "256"}), 2, {"--help"}},
           {with({"--mail-retry-delays", "5,3600001"}), 2, {"--help"}},
           {with({"x"}), 2, {"--help"}}}) {
    ShellRun refused = Daemon::schedd(arguments);
    EXPECT_EQ(refused.status, status) << arguments.back();
    for (const std::string &text : says) EXPECT_NE(refused.err.find(text), std::string::npos) << refused.err;
  }
  EXPECT_FALSE(std::filesystem::exists(long_run + "/schedd.pid")) << "refused before anything was opened";
}

// A configuration of `jobs` jobs and `schedules` schedules; every object differs between the
// two variants.
std::string configuration(char variant, int jobs, int schedules) {
  std::string text = "feature scheduler\n";
  for (int job = 0; job < jobs; job++) {
    text += "scheduler job name j" + std::to_string(job) + "\necho " + variant + std::to_string(job) + "\nend-job\n";
  }
  for (int schedule = 0; schedule < schedules; schedule++) {
    text += "scheduler schedule name s" + std::to_string(schedule) + "\n  job name j" +
            std::to_string((schedule + (variant == 'a' ? 0 : 1)) % jobs) + "\n  time daily " +
            (variant == 'a' ? "02:" : "03:") + std::to_string(10 + schedule % 50) + "\n\n";
  }
  return text;
}

// A daemon killed (SIGKILL) while a large configure replace goes on comes back with the old or
// the new configuration, never a mix of the two.
TEST(ReplaceKilled, TheDaemonComesBackWithTheOldOrTheNewConfiguration) {
  Daemon daemon;
  std::string why;
  ASSERT_TRUE(daemon.start(&why)) << why;
  const std::string old_file = daemon.directory() + "/old.cfg";
  const std::string new_file = daemon.directory() + "/new.cfg";
  write_file(old_file, configuration('a', 200, 600));
  write_file(new_file, configuration('b', 200, 600));
  ASSERT_EQ(daemon.shell("copy " + old_file + " running-config\n").status, 0);
  const std::string old_text = daemon.shell("show running-config\n").out;
  auto started = std::chrono::steady_clock::now();
  ASSERT_EQ(daemon.shell("configure replace " + new_file + "\n").status, 0);
  auto took = std::chrono::steady_clock::now() - started;
  const std::string new_text = daemon.shell("show running-config\n").out;
  ASSERT_NE(old_text, new_text);

  // Kills spread over the time a replace takes, each from the old configuration.
  int olds = 0, news = 0;
  for (int step = 1; step <= 8; step++) {
    SCOPED_TRACE("kill " + std::to_string(step));
    ASSERT_EQ(daemon.shell("configure replace " + old_file + "\n").status, 0);
    ShellRun replace;
    std::thread shell([&] { replace = daemon.shell("configure replace " + new_file + "\n"); });
    std::this_thread::sleep_for(took * step / 8);
    daemon.kill_now();
    shell.join();
    ASSERT_TRUE(daemon.start(&why)) << why;
    std::string after = daemon.shell("show running-config\n").out;
    EXPECT_TRUE(after == old_text || after == new_text) << "a mix after the kill:\n" << after;
    olds += after == old_text;
    news += after == new_text;
  }
  // Whichever it was, each kill found one of the two whole.
  EXPECT_EQ(olds + news, 8);
  EXPECT_EQ(daemon.stop(), 0) << daemon.log();
}

}  // namespace
}  // namespace e2e
