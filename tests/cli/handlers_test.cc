// The command handlers against a fake daemon: the requests they send, the credential gate in
// front of the changes, how each show reply prints, and the error lines of what only a failing or
// broken daemon can answer. Transcripts have what a real daemon answers.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cli/request.h"
#include "schedcli/cli.h"
#include "schedcli/platform/auth.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/cli_config.h"
#include "schedcli/status.h"
#include "schedcli/wire.h"
#include "support/temp_dir.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr const char *kLocalUser = "alice";
constexpr const char *kRemoteUser = "rita";

// An expected wire image: `size` zero bytes with big-endian words and strings placed.
Bytes image(size_t size, std::initializer_list<std::pair<size_t, uint32_t>> words,
            std::initializer_list<std::pair<size_t, std::string>> strings = {}) {
  Bytes bytes(size, 0);
  for (auto [offset, word] : words) sch_wire_put_u32(bytes.data() + offset, word);
  for (const auto &[offset, text] : strings) std::memcpy(bytes.data() + offset, text.data(), text.size());
  return bytes;
}

std::string error_line(const char *text, uint32_t code) { return std::string(text) + ": " + syserr2str(code) + "\n"; }

struct Output {
  std::string out, err;
};

template <typename Body>
Output capture(Body body) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  body();
  std::string out = ::testing::internal::GetCapturedStdout();
  return {out, ::testing::internal::GetCapturedStderr()};
}

// A parsed command. Parameters go in syntax order, all at once as strings (nullptr: no value) or
// one by one. The context points into the command itself, so it is not copied.
struct Command {
  Command(cmi_session *session, const std::vector<const char *> &values = {}, uint32_t code = 0, bool no_form = false,
          const char *user = kLocalUser) {
    context = {.no_flag = no_form, .session = session, .command_code = code};
    std::snprintf(context.user, sizeof context.user, "%s", user);
    for (const char *value : values) value ? text(value) : add(SCH_VALUE_STRING, nullptr);
  }
  Command(const Command &) = delete;
  Command &operator=(const Command &) = delete;

  Command &text(const char *value, uint32_t address_kind = 0) {
    texts[context.param_count] = value;
    return add(SCH_VALUE_STRING, texts[context.param_count].data(), address_kind);
  }
  Command &number(int32_t value) {
    numbers[context.param_count] = value;
    return add(SCH_VALUE_INTEGER, &numbers[context.param_count]);
  }
  Command &add(uint32_t value_type, void *value, uint32_t address_kind = 0) {
    params[context.param_count] = {0, value_type, value, address_kind};
    context.params[context.param_count] = &params[context.param_count];
    context.param_count++;
    return *this;
  }

  sch_cli_context context{};
  sch_cli_param params[SCH_CLI_MAX_PARAMS]{};
  std::string texts[SCH_CLI_MAX_PARAMS];
  int32_t numbers[SCH_CLI_MAX_PARAMS]{};
};

struct Received {
  uint32_t service, opcode;
  Bytes bytes;
};

// A fake daemon: a thread serves one connection after another on a real socket, records each
// request and answers the next scripted status and payload (or stream of messages), status 0 once
// the script has run out. Encryption runs here, as in the daemon; the password file has kLocalUser.
class Commands : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
    ASSERT_EQ(cmi_server_listen((directory_ + "/" CMI_SOCKET_NAME).c_str(), &listen_fd_), 0u);
    session_ = cmi_session_open((directory_ + "/" CMI_SOCKET_NAME).c_str());
    server_ = std::thread([this] { serve(); });
    std::ofstream(directory_ + "/passwd") << kLocalUser << ":x:1000:1000::/home/alice:/bin/sh\n";
    ASSERT_EQ(auth_local_passwd_file_set((directory_ + "/passwd").c_str()), 0u);
    ASSERT_EQ(secrets_device_key_path_set((directory_ + "/device.key").c_str()), 0u);
    secrets_use_device_key(1);
  }
  void TearDown() override {
    stop_ = true;
    cmi_session_close(session_);  // ends a stream the client left unread
    if (server_.joinable()) server_.join();
    close(listen_fd_);
    secrets_use_device_key(0);
    auth_local_passwd_file_set(nullptr);
    secrets_device_key_path_set(nullptr);
  }

  void answer(uint32_t status, Bytes payload = {}) { script({status, {std::move(payload)}, false}); }
  void stream(std::vector<Bytes> messages) { script({0, std::move(messages), true}); }
  std::vector<Received> requests() const {
    std::lock_guard lock(mutex_);
    return received_;
  }
  Bytes sent(size_t index) const { return requests().at(index).bytes; }

  // Runs a handler on a command, keeping its output in output_.
  template <typename Result>
  Result run(Result (*handler)(sch_cli_context *), Command &command) {
    Result result{};
    output_ = capture([&] { result = handler(&command.context); });
    return result;
  }
  template <typename Result>
  Result run(Result (*handler)(sch_cli_context *), const std::vector<const char *> &values = {}, uint32_t code = 0,
             bool no_form = false, const char *user = kLocalUser) {
    Command command(session_, values, code, no_form, user);
    return run(handler, command);
  }

  cmi_session *session_ = nullptr;
  Output output_;

 private:
  struct Answer {
    uint32_t status;
    std::vector<Bytes> payloads;
    bool streamed;
  };

  void script(Answer answer) {
    std::lock_guard lock(mutex_);
    script_.push_back(std::move(answer));
  }

  void serve() {
    while (!stop_) {
      pollfd watch{listen_fd_, POLLIN, 0};
      int connection = -1;
      if (poll(&watch, 1, 20) <= 0 || cmi_server_accept(listen_fd_, &connection) != 0) continue;
      for (cmi_request request{}; cmi_server_receive(connection, &request) == 0; cmi_request_release(&request)) {
        Answer answer = take(request);
        for (const Bytes &message : answer.payloads) {
          if (answer.streamed) {
            cmi_server_stream_send(connection, request.token, message.data(), uint32_t(message.size()));
          } else {
            cmi_server_reply(connection, request.token, answer.status, message.data(), uint32_t(message.size()));
          }
        }
        if (answer.streamed) cmi_server_stream_end(connection, request.token, 0);
      }
      close(connection);
    }
  }

  Answer take(const cmi_request &request) {
    std::lock_guard lock(mutex_);
    const auto *bytes = static_cast<const uint8_t *>(request.payload);
    received_.push_back({request.service, request.opcode, Bytes(bytes, bytes + request.length)});
    if (script_.empty()) return {0, {{}}, false};
    Answer answer = std::move(script_.front());
    script_.pop_front();
    return answer;
  }

  sch::testing::TempDir temp_;
  std::string directory_ = temp_.path();
  int listen_fd_ = -1;
  std::atomic<bool> stop_{false};
  mutable std::mutex mutex_;
  std::deque<Answer> script_;
  std::vector<Received> received_;
  std::thread server_;
};

using Handler = uint32_t (*)(sch_cli_context *);
constexpr uint32_t kTimeout = CMI_ERR_TIMEOUT;

// The daemon's answer to a credential fetch: the user, then the encrypted password, 128 bytes each.
Bytes fetched(const std::string &password) { return image(256, {}, {{0, kRemoteUser}, {128, password}}); }

TEST(NameCheck, ConfigWordIsAsciiAndEndsInsideItsField) {
  for (const char *name : {"a", "9", "a_-9", "backup-2_daily"}) EXPECT_EQ(sch_name_is_config_word(name), 1) << name;
  for (const char *name : {"", "_a", "-a", "a.b", "a b", "a\n", "a;b", "caf\xc3\xa9", "\xe9t\xe9", "a{", "a`"}) {
    EXPECT_EQ(sch_name_is_config_word(name), 0) << name;
  }
  EXPECT_EQ(sch_name_is_config_word(nullptr), 0);
  // A 32-byte field: 31 characters and the terminator fit; 32 characters leave none.
  EXPECT_EQ(sch_name_is_config_word(std::string(SCH_NAME_SIZE - 1, 'x').c_str()), 1);
  EXPECT_EQ(sch_name_is_config_word(std::string(SCH_NAME_SIZE, 'x').c_str()), 0);
  EXPECT_EQ(sch_cli_dummy_cfg_gen(), 0);
}

TEST_F(Commands, LocalUsersPassAndRemoteUsersNeedAWorkingStoredPassword) {
  Command command(session_, {}, 0, false, "");
  auto gate = [&](const char *user) { return sch_validate_remote_user(&command.context, user); };
  EXPECT_EQ(gate(kLocalUser), 0u);
  EXPECT_EQ(gate(nullptr), SCH_STATUS_NO_CREDENTIAL);
  EXPECT_EQ(gate(""), SCH_STATUS_NO_CREDENTIAL);
  const std::tuple<uint32_t, Bytes, uint32_t> fetches[] = {
      {0, fetched(""), SCH_STATUS_NO_CREDENTIAL},
      {0, fetched("not-a-type-7-text"), SCH_STATUS_AUTH_FAILED},
      {0, fetched(std::string(128, 'p')), SCH_STATUS_AUTH_FAILED},  // fills its field, unterminated
      {0, Bytes(255, 'p'), SCH_STATUS_CREDENTIAL_FETCH},             // too short to hold the password
      {SCH_STATUS_EXISTS, fetched("not-a-type-7-text"), SCH_STATUS_NO_CREDENTIAL},  // refused: no password
  };
  for (const auto &[status, reply, code] : fetches) {
    answer(status, reply);
    EXPECT_EQ(gate(kRemoteUser), code);
  }
  EXPECT_EQ(sent(0), image(265, {{0, 22}, {4, 257}}, {{8, "\x01rita"}}));
  EXPECT_EQ(sch_validate_authentication_passwd(session_, kLocalUser, "x"), SCH_STATUS_LOCAL_USER);

  // Malformed parameters of the credential command are refused before anything is sent.
  std::string too_long(SECRETS_MAX_CLEAR + 1, 'p');
  const std::tuple<uint32_t, uint32_t, const char *, int> malformed[] = {  // kind, value type, value, result
      {SCH_PARAM_CLEAR_PASSWORD, SCH_VALUE_STRING, nullptr, 9},
      {SCH_PARAM_ENCRYPTED_PASSWORD, SCH_VALUE_STRING, nullptr, 9},
      {SCH_PARAM_CLEAR_PASSWORD, SCH_VALUE_STRING, too_long.c_str(), 1},
      {SCH_PARAM_USER_NAME, SCH_VALUE_INTEGER, "x", 9}};
  for (auto [kind, type, value, result] : malformed) {
    Command command(session_, {}, 0, true);
    command.add(type, const_cast<char *>(value)).params[0].kind = kind;
    EXPECT_EQ(run(sch_cli_aaa_auth_passwd, command), result) << kind;
  }
  EXPECT_EQ(requests().size(), 5u);
}

TEST_F(Commands, OneLineJobDefinition) {
  // The command text that the one-line definition of `text` sends, its head checked.
  auto split = [&](const char *text) {
    EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"backup", text}), 0u) << text;
    Bytes sent = requests().back().bytes;
    auto n = uint32_t(sent.size() - 56);
    EXPECT_EQ(Bytes(sent.begin(), sent.begin() + 56), image(56, {{0, 1}, {4, n + 48}, {52, n}}, {{16, "backup"}}));
    return std::string(sent.begin() + 56, sent.end());
  };
  // The transcript "jobs" has the common splits; these are the edges.
  EXPECT_EQ(split("a ; b ;"), "a\n b \n");
  EXPECT_EQ(split(""), "");
  // No credential is checked in this form, even for a remote user.
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"backup", "x"}, 0, false, kRemoteUser), 0u);
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {nullptr, "x"}), 255u);
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"backup", nullptr}), 255u);
  EXPECT_EQ(output_.err, "");
  // The shell creates the job first, so only this handler's own check refuses the name here.
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"a.b", "x"}), 255u);
  EXPECT_EQ(output_.err, "Invalid name. Name should begin with alphanumeric and may have '_' or '-'.\n");
  EXPECT_EQ(requests().size(), 3u);

  // Commands past the limit are dropped and the rest is sent. Appended: 1000 bytes for the first
  // command, 1000 (" " + 998 + " ") for each later one.
  std::string text = std::string(1000, 'a') + " ", expected = std::string(1000, 'a') + "\n";
  for (int i = 1; i <= 9; i++) {
    text += "; " + std::string(998, 'b') + " ";
    if (i <= 7) expected += " " + std::string(998, 'b') + " \n";
  }
  EXPECT_EQ(split((text + "; zz").c_str()), expected + " zz\n");
  EXPECT_EQ(output_.err, "Cannot add more lines, buffer size 8192\nCannot add more lines, buffer size 8192\n");
}

TEST_F(Commands, FailuresTheDaemonAnswers) {
  const uint32_t job = SCH_MODIFY_JOB, exists = SCH_STATUS_EXISTS, none = CMI_ERR_NO_DAEMON;
  const std::tuple<Handler, uint32_t, bool, uint32_t, uint32_t, const char *> cases[] = {
      // handler, command code, no form, the daemon's status, result, error line's text (nullptr: none)
      {sch_cli_create_delete_schedule, job, false, exists, exists, nullptr},  // entering an existing one is quiet
      {sch_cli_create_delete_schedule, job, false, kTimeout, 255, "Error: create schedule failed"},
      {sch_cli_create_delete_schedule, job, true, kTimeout, kTimeout, "Error: delete schedule failed"},
      {sch_cli_modify_schedule_emailaddr, job, false, kTimeout, kTimeout, "Error: could add email-id"},
      {sch_cli_modify_schedule_emailaddr, job, true, kTimeout, kTimeout, "Error: could not delete email-id"},
      {sch_cli_modify_schedule, job, false, kTimeout, kTimeout, "Error: could not assign job"},
      {sch_cli_modify_schedule, job, true, kTimeout, kTimeout, "Error: could not deassign job"},
      {sch_cli_modify_schedule, SCH_MODIFY_DAILY, false, kTimeout, kTimeout, "Error: modify schedule failed"},
      // The log-file and transport commands print a doubled colon: intended.
      {sch_cli_logfile_resize, 0, true, kTimeout, kTimeout, "Error: "},
      {sch_cli_logfile_clear, 0, false, kTimeout, kTimeout, "Error: "},
      {sch_cli_logfile_rename, 0, true, kTimeout, kTimeout, "Error: "},
      {sch_cli_config_email_transport, SCH_TRANSPORT_FROM, false, none, none, "Error: "},
  };
  for (const auto &[handler, code, no_form, status, result, text] : cases) {
    answer(status);
    EXPECT_EQ(run(handler, {"nightly", "02:30"}, code, no_form), result) << text;
    EXPECT_EQ(output_.err, text ? error_line(text, status) : "");
  }
  EXPECT_EQ(requests().size(), std::size(cases));
}

TEST_F(Commands, ScheduleJobRequestsCarryNamesAndNoTime) {
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "backup"}, SCH_MODIFY_JOB), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly"}, SCH_MODIFY_JOB_NO_NAME, true), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "02:30"}, 42), 0u);  // unknown codes: no time
  EXPECT_EQ(sent(0), image(128, {{0, 4}, {4, 120}, {16, 999}}, {{20, "nightly"}, {52, "backup"}}));
  EXPECT_EQ(sent(1), image(128, {{0, 4}, {4, 120}, {8, 1}, {16, 1000}}, {{20, "nightly"}}));
  EXPECT_EQ(sent(2), image(128, {{0, 4}, {4, 120}, {16, 42}}, {{20, "nightly"}}));
  // A time is replaced, never removed: its no form is refused before anything is sent.
  for (uint32_t code : {1u, 3u, 4u, 5u, 7u}) {
    EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "02:30"}, code, true), uint32_t(-1));
    EXPECT_EQ(output_.out, "Invalid command\n");
  }
  // A name the checker refuses ends the handler with its own code, before anything is sent.
  EXPECT_EQ(run(sch_cli_create_delete_schedule, {"night ly"}), 255u);
  EXPECT_EQ(requests().size(), 3u);
}

TEST_F(Commands, SmtpServerKindsPortAndVrf) {
  const std::tuple<const char *, uint32_t, uint32_t, int32_t, const char *> cases[] = {
      // server, its address kind, the kind sent, port (0: none given), VRF
      {"192.0.2.1", SCH_ADDRESS_IPV4, 1, 2525, ""},
      {"2001:db8::1", SCH_ADDRESS_IPV6, 2, 0, "mgmt"},
      {"mail", SCH_ADDRESS_HOST_NAME, 16, 587, "mgmt"}};
  for (const auto &[server, address_kind, kind, port, vrf] : cases) {
    Command command(session_, {}, SCH_TRANSPORT_SMTP_SERVER);
    command.text(server, address_kind);
    if (port) command.number(port);
    if (*vrf) command.text(vrf);
    EXPECT_EQ(run(sch_cli_config_email_transport, command), 0u);
    EXPECT_EQ(requests().back().bytes, image(720, {{0, 17}, {4, 712}, {8 + 448, kind}, {8 + 452, port ? port : 25u}},
                                             {{8 + 192, server}, {8 + 456, vrf}}));
  }
  EXPECT_EQ(run(sch_cli_config_email_transport, {}, SCH_TRANSPORT_SMTP_SERVER, true), 0u);
  EXPECT_EQ(requests().back().bytes, image(720, {{0, 18}, {4, 712}, {8 + 452, 25}}));
  EXPECT_EQ(run(sch_cli_config_email_transport, {}, 112), 0u);
  EXPECT_EQ(requests().back().bytes, image(720, {{4, 712}}));  // unknown option: type 0, nothing filled

  Command broadcast(session_, {}, SCH_TRANSPORT_SMTP_SERVER);
  EXPECT_EQ(run(sch_cli_config_email_transport, broadcast.text("255.255.255.255", 0x40000001u)), 1u);
  EXPECT_EQ(output_.err, "Invalid host address");
  EXPECT_EQ(requests().size(), 5u);
}

using Show = Commands;

const std::string kRule = std::string(78, '=') + "\n", kDashes = std::string(47, '-') + "\n";
const std::string kHeading = kDashes + "     Job Name            Last Execution Status\n" + kDashes;
constexpr int32_t kJune15th2030 = 1907749800;  // 10:30 UTC

// A schedule reply: `head` with cursor 0x10 and user alice, and job entries (name and status);
// the job count is the entries' unless the head declares one.
Bytes schedule_reply(sch_schedule_reply head, std::vector<std::pair<std::string, uint32_t>> jobs = {}) {
  head.cursor = 0x10;
  std::snprintf(head.user, sizeof head.user, "%s", kLocalUser);
  if (!head.job_count) head.job_count = uint32_t(jobs.size());
  Bytes bytes(sizeof head);
  sch_wire_encode(SCH_WIRE_SCHEDULE_REPLY, &head, bytes.data());
  for (const auto &[job, status] : jobs) {
    Bytes entry = image(36, {{32, status}}, {{0, job}});
    bytes.insert(bytes.end(), entry.begin(), entry.end());
  }
  return bytes;
}

std::string column(const std::string &name) { return name + std::string(32 - name.size(), ' '); }

TEST_F(Show, SchedulesThatHaveRun) {
  answer(0, schedule_reply({.name = "w", .time = {.type = 4, .hour = 23, .day_of_week = 7, .minute = 59},
                             .last_completion = 1700003600, .last_execution = 1700000000, .execution_count = 3},
                            {{"backup", 0x0100}, {"cleanup", 0x0009}, {"c", 0xff00}}));
  answer(0, schedule_reply(
                {.name = "m", .time = {.type = 5, .hour = 10, .day_of_month = 28}, .last_execution = 1700000000,
                 .execution_count = 3}));
  EXPECT_EQ(run(sch_cli_show_schedules), 0);
  const std::string head = std::string(23, '-') + "\nUser Name           : alice\nSchedule Type       : ";
  const std::string ran = "Last Execution Time : Tue Nov 14 22:13:20 2023\n";
  EXPECT_EQ(output_.out,
            "Schedule Name       : w\n" + head + "Run on every Saturday at 23 Hrs 59 Mins\n" + ran +
                "Last Completion Time: Tue Nov 14 23:13:20 2023\nExecution count     : 3\n" + kHeading +
                column("backup") + "  Failed  (1)\n" + column("cleanup") + "  Success (0)\n" + column("c") +
                "  Failed  (255)\n" + kRule +  // 0x0009: a signal reads as success, intended
                "Schedule Name       : m\n" + head + "Run on every 28 of every month at 10 Hrs 0 Mins\n" + ran +
                "Execution count     : 3\n" + kHeading + "              No jobs assigned to schedule\n" +
                kRule);  // fourteen blanks
  EXPECT_EQ(sent(1), image(48, {{0, 6}, {4, 40}, {44, 0x10}}));

  // A failure or a broken reply ends the walk; what was shown stays.
  answer(0, schedule_reply({.name = "a", .time = {.type = 3}}));
  answer(CMI_ERR_DAEMON_CLOSED);
  EXPECT_EQ(run(sch_cli_show_schedules), 1);
  EXPECT_NE(output_.out.find("Schedule Name       : a\n"), std::string::npos);
  EXPECT_EQ(output_.err, error_line("Error", CMI_ERR_DAEMON_CLOSED));
  Bytes overcounted = schedule_reply({.name = "a", .time = {.type = 3}, .job_count = 2}, {{"backup", 0}});
  for (const Bytes &broken : {Bytes(819, 0), overcounted}) {
    answer(0, broken);
    EXPECT_EQ(run(sch_cli_show_schedules), 1);
    EXPECT_EQ(output_.out + output_.err, error_line("Error", CMI_ERR_LENGTH));
  }
}

// One log message: the header of an entry and a part of its output.
Bytes log_message(int32_t count, int32_t number, int32_t total, const std::string &part) {
  Bytes bytes = image(128, {{0, uint32_t(count)}, {4, uint32_t(number)}, {116, 86400}, {120, uint32_t(total)},
                            {124, uint32_t(part.size())}},
                      {{8, "backup"}, {40, "nightly"}, {72, "alice"}});
  bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

std::string log_entry(const std::string &output) {
  return "Job Name       : " + column("backup") + "  Job Status: Success (0)\nSchedule Name  : " + column("nightly") +
         "  User Name : alice\nCompletion time: Fri Jan  2 00:00:00 1970\n" + std::string(33, '-') + " Job Output " +
         std::string(33, '-') + "\n" + output + kRule;
}

TEST_F(Show, LogfileJoinsEachEntrysPartsAndRefusesBrokenOnes) {
  Bytes lying = log_message(2, 1, 6, "abc");
  sch_wire_put_u32(lying.data() + 124, 50);  // declares more than it carries
  const std::pair<std::vector<Bytes>, std::string> cases[] = {
      {{log_message(0, 0, 0, "")}, ""},  // an empty log prints nothing
      {{log_message(1, 1, 7, "ab"), log_message(1, 1, 7, "cde"), log_message(1, 1, 7, "fg")}, log_entry("abcdefg")},
      // The stream ends early: a receive error, and the command still succeeds.
      {{log_message(2, 1, 3, "ok\n")}, log_entry("ok\n") + "Error on recv\n"},
      // An entry cut short inside is not printed; it was the last, so the listing ends too.
      {{log_message(1, 1, 10, "12345")}, "Error on recv\n"},
      // A part that overruns the total drops its entry; one beyond its message ends the listing.
      {{log_message(2, 1, 4, "ab"), log_message(2, 1, 6, "abc"), lying, log_message(2, 2, 2, "ok")},
       "Error cmi parsing\nError cmi parsing\n"},
      // A total no log file can hold is refused, and the next entry prints.
      {{log_message(2, 1, (65536 << 10) + 1, "ab"), log_message(2, 2, 3, "ok\n")},
       "Error cmi parsing\n" + log_entry("ok\n")},
  };
  for (const auto &[messages, out] : cases) {
    stream(messages);
    EXPECT_EQ(run(sch_cli_show_logfile, {"nightly"}), 0);
    EXPECT_EQ(output_.out, out);
    EXPECT_EQ(output_.err, "");
  }
  EXPECT_EQ(sent(0), image(48, {{0, 8}, {4, 40}, {44, 0xffffffffu}}, {{12, "nightly"}}));

  cmi_session *nobody = cmi_session_open("/tmp/schedcli-no-such-dir/schedd.sock");
  Command command(nobody);
  EXPECT_EQ(uint32_t(run(sch_cli_show_logfile, command)), CMI_ERR_NO_DAEMON);
  cmi_session_close(nobody);
  EXPECT_EQ(output_.out, "");
  EXPECT_EQ(output_.err, error_line("Error", CMI_ERR_NO_DAEMON));
}

Bytes users(std::vector<std::pair<std::string, std::string>> entries) {
  Bytes reply(2);
  sch_wire_put_u16(reply.data(), static_cast<uint16_t>(entries.size()));
  for (const auto &[user, password] : entries) {
    Bytes entry = image(264, {}, {{0, user}, {128, password}});
    reply.insert(reply.end(), entry.begin(), entry.end());
  }
  return reply;
}

Bytes job(const std::string &name, uint32_t cursor, const std::string &text, uint32_t extra_declared = 0) {
  Bytes reply = image(44, {{32, cursor}, {40, uint32_t(text.size()) + extra_declared}}, {{0, name}});
  reply.insert(reply.end(), text.begin(), text.end());
  return reply;
}

// The transcript "show_config" has each piece as a real daemon answers it; these are the pieces
// only a fake one gives: users, a name that fills its field, an unused address slot, and failures.
TEST_F(Show, ConfigurationPiecesInOrderEachReportingItsOwnFailure) {
  answer(0, Bytes(3, 0));
  answer(0, Bytes(711, 0));
  answer(0, users({{"rita", "ENC-RITA"}, {"remo", "ENC-REMO"}}));
  answer(0, job(std::string(32, 'j'), 7, ""));
  answer(0, job("a", 1, "0123456789", 1));  // declares more text than it carries
  answer(0, schedule_reply({.name = "nightly", .time = {.type = 3, .hour = 2, .minute = 30}, .any_email = 1,
                             .emails = {{"a@example.com", 1}, {"unused@example.com", 0}, {"b@example.com", 1}}},
                            {{"backup", 0}}));
  answer(0, schedule_reply({.name = "s", .time = {.type = 3}, .job_count = 2}, {{"a", 0}}));
  EXPECT_EQ(run(sch_cli_show_config), 0);
  EXPECT_EQ(output_.out,
            "end\n\n"
            "config terminal\nscheduler aaa-authentication username rita password 7 ENC-RITA\nend\n"
            "config terminal\nscheduler aaa-authentication username remo password 7 ENC-REMO\nend\n\n"
            "config terminal\n scheduler job name " + std::string(32, 'j') + "\nend\n\n"
            "config terminal\n  scheduler schedule name nightly\n    time daily 02:30\n    job name backup\n"
            "    email-addr a@example.com\n    email-addr b@example.com\nend\n\n");
  std::string short_reply = error_line("Error", CMI_ERR_LENGTH);
  EXPECT_EQ(output_.err, short_reply + short_reply + short_reply + short_reply);
  auto sent = requests();
  std::vector<std::pair<uint32_t, uint32_t>> kinds;  // service and opcode as one number, request type
  for (const Received &r : sent) kinds.emplace_back(r.service * 10 + r.opcode, sch_wire_get_u32(r.bytes.data()));
  ASSERT_EQ(kinds,
            (decltype(kinds){{59512, 12}, {59511, 19}, {59511, 23}, {59512, 7}, {59512, 7}, {59512, 6}, {59512, 6}}));
  for (size_t i = 0; i < 3; i++) EXPECT_EQ(sent[i].bytes, image(8, {{0, kinds[i].second}}));
  EXPECT_EQ(sent[4].bytes, image(48, {{0, 7}, {4, 40}, {44, 7}}));  // the cursor echoed
  EXPECT_EQ(sent[5].bytes, image(48, {{0, 6}, {4, 40}, {44, ~0u}}));
  EXPECT_EQ(sent[6].bytes, image(48, {{0, 6}, {4, 40}, {44, 0x10}}));

  answer(CMI_ERR_TIMEOUT);
  EXPECT_EQ(run(get_log_file_config), 1);
  EXPECT_EQ(output_.err, error_line("Error", CMI_ERR_TIMEOUT));
  Bytes users_cut = users({{"rita", "ENC"}, {"remo", "ENC"}});
  users_cut.pop_back();
  for (auto [status, reply] : {std::pair{CMI_ERR_DAEMON_CLOSED, Bytes{}}, {0u, users_cut}}) {
    answer(status, reply);
    EXPECT_EQ(run(get_user_config), status ? status : CMI_ERR_LENGTH);
    EXPECT_EQ(output_.out + output_.err, error_line("Error: ", status ? status : CMI_ERR_LENGTH));
  }
}

TEST_F(Show, ScheduleKindsTimeLinesAndTimeErrors) {
  // What the transcript "schedules" does not reach: three suffixes and weekdays out of range.
  for (auto [day, text] : {std::pair{20, "20th"}, {24, "24th"}, {29, "29th"}}) {
    tminfo t{.type = 5, .hour = 10, .day_of_month = day};
    EXPECT_EQ(capture([&] { print_monthly_schedule(&t); }).out,
              std::string("Run on every ") + text + " of every month at 10 Hrs 0 Mins\n");
  }
  for (int day : {0, 8}) {
    tminfo t{.type = 4, .day_of_week = day};
    EXPECT_EQ(capture([&] { print_weekly_schedule(&t); }).out, "Run on every ** at 0 Hrs 0 Mins\n");
  }

  const std::string repeat = "time start 2030:06:15:10:30 repeat ";
  const std::tuple<tminfo, std::string, const char *> lines[] = {  // printed; appended to "x"
      {{.type = 1, .hour = 9, .day_of_month = 5, .minute = 7, .year = 124}, "time start 2024:01:05:09:07\n", "xtime"},
      {{.type = 3, .hour = 2, .minute = 30}, "time daily 02:30\n", "xtime02:30\n"},
      {{.type = 3, .hour = -1, .minute = 5}, "time daily 05\n", "xtime05\n"},
      {{.type = 4, .hour = 9, .minute = 5}, "time weekly 09:05\n", "xtime09:05\n"},
      {{.type = 4, .hour = 9, .day_of_week = 7, .minute = 5}, "time weekly 07:09:05\n", "xtime07:09:05\n"},
      {{.type = 5, .hour = 10, .day_of_month = 28}, "time monthly 28:10:00\n", "xtime28:10:00\n"},
      {{.type = 7, .minute = 30, .start_time = kJune15th2030}, repeat + "30\n", "xtime30\n"},
      {{.type = 7, .hour = 2, .minute = 5, .start_time = kJune15th2030}, repeat + "2:5\n", "xtime2:5\n"},
      {{.type = 7, .day_of_week = 1, .minute = 3, .start_time = kJune15th2030}, repeat + "1:0:3\n", "xtime1:0:3\n"},
      {{.type = 6, .hour = 1}, "", "x"}};
  for (const auto &[time, printed, appended] : lines) {
    EXPECT_EQ(capture([&] { print_config_schedule_type(&time, nullptr); }).out, printed);
    char destination[32] = "x";
    print_config_schedule_type(&time, destination);
    EXPECT_STREQ(destination, appended);
  }

  // The transcript "schedules" has the out-of-range lines of forms 1, 3, 4 and 5 and the past.
  const std::string format = "Incorrect time format. Should be ";
  const std::tuple<uint32_t, int, std::string> errors[] = {
      {0x40bd000b, 1, format + "yyyy:mmm:dd:HH:MM or +dd:HH:MM\n"}, {0x40bd000c, 3, format + "HH:MM\n"},
      {0x40bd000b, 4, format + "dow:HH:MM\n"}, {0x40bd000b, 5, format + "dm:HH:MM\n"},
      {0x40bd000c, 7, format + "dd:HH:MM\n"},
      {0x40bd000c, 2, "Incorrect time format. Error 1086128140. Format unknown\n"},
      {0x40bd000d, 7, "Value out of range\nShould be dd:HH:MM.\n    dd,HH,MM = {1..99}\n"},
      {0x40bd000d, 0, "Value out of range\nError 1086128141. Format unknown.\n"},
      {0x40bd000f, 3, "Error 1086128143.\n"},
  };
  for (const auto &[code, kind, text] : errors) {
    EXPECT_EQ(capture([&] { sch_cli_disp_error(code, kind); }).err, text) << code << " " << kind;
  }
}

}  // namespace
