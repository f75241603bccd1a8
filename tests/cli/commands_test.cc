// The commands that change something: the requests they send, the credential gate in front of
// them, and the error lines of what only a failing daemon can answer.
#include "schedcli/cli_config.h"
#include "support/fake_daemon.h"

namespace {

using namespace sch::testing;
using Handler = uint32_t (*)(sch_cli_context *);
constexpr uint32_t kTimeout = CMI_ERR_TIMEOUT;
const char *const kInvalidName = "Invalid name. Name should begin with alphanumeric and may have '_' or '-'.\n";

// The daemon's answer to a credential fetch: the user, then the encrypted password, 128 bytes each.
Bytes fetched(const std::string &password) { return image(256, {}, {{0, kRemoteUser}, {128, password}}); }

class Commands : public HandlerTest {
 protected:
  uint32_t gate(const char *user) {
    Command command(session_, {}, 0, false, "");
    return sch_validate_remote_user(&command.context, user);
  }
  int aaa(std::vector<uint32_t> kinds, const std::vector<const char *> &values) {
    Command command(session_, values, 0, true);
    for (size_t i = 0; i < kinds.size(); i++) command.params[i].kind = kinds[i];
    return run(sch_cli_aaa_auth_passwd, command);
  }
  // The command text that the one-line definition of `text` sends, its head checked.
  std::string split(const char *text) {
    EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"backup", text}), 0u) << text;
    Bytes sent = requests().back().bytes;
    auto n = uint32_t(sent.size() - 56);
    EXPECT_EQ(Bytes(sent.begin(), sent.begin() + 56), image(56, {{0, 1}, {4, n + 48}, {52, n}}, {{16, "backup"}}));
    return std::string(sent.begin() + 56, sent.end());
  }
};

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
  EXPECT_EQ(gate(kLocalUser), 0u);
  EXPECT_EQ(gate(nullptr), SCH_STATUS_NO_CREDENTIAL);
  EXPECT_EQ(gate(""), SCH_STATUS_NO_CREDENTIAL);
  EXPECT_TRUE(requests().empty());
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
  EXPECT_EQ(aaa({SCH_PARAM_CLEAR_PASSWORD}, {nullptr}), 9);
  EXPECT_EQ(aaa({SCH_PARAM_ENCRYPTED_PASSWORD}, {nullptr}), 9);
  EXPECT_EQ(aaa({SCH_PARAM_CLEAR_PASSWORD}, {std::string(SECRETS_MAX_CLEAR + 1, 'p').c_str()}), 1);
  Command integer(session_, {"x"});
  integer.params[0] = {SCH_PARAM_USER_NAME, SCH_VALUE_INTEGER, integer.params[0].value, 0};
  EXPECT_EQ(run(sch_cli_aaa_auth_passwd, integer), 9);
  EXPECT_EQ(requests().size(), 5u);
}

TEST_F(Commands, OneLineJobDefinition) {
  // The transcript "jobs" shows the common splits; these are the edges.
  EXPECT_EQ(split("a ; b ;"), "a\n b \n");
  EXPECT_EQ(split(""), "");
  // No credential is checked in this form, even for a remote user.
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"backup", "x"}, 0, false, kRemoteUser), 0u);
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {nullptr, "x"}), 255u);
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"backup", nullptr}), 255u);
  EXPECT_EQ(output_.err, "");
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"a.b", "x"}), 255u);
  EXPECT_EQ(output_.err, kInvalidName);
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
  EXPECT_EQ(run(sch_cli_create_delete_schedule, {"night ly"}), 255u);
  EXPECT_EQ(output_.err, kInvalidName);
  const uint32_t job = SCH_MODIFY_JOB, exists = SCH_STATUS_EXISTS;
  const std::tuple<Handler, uint32_t, bool, uint32_t, uint32_t, std::string> cases[] = {
      // handler, command code, no form, the daemon's status, result, error line
      {sch_cli_create_delete_schedule, job, false, exists, exists, ""},  // entering an existing one is quiet
      {sch_cli_create_delete_schedule, job, false, kTimeout, 255, error_line("Error: create schedule failed", kTimeout)},
      {sch_cli_create_delete_schedule, job, true, kTimeout, kTimeout, error_line("Error: delete schedule failed", kTimeout)},
      {sch_cli_modify_schedule_emailaddr, job, false, kTimeout, kTimeout, error_line("Error: could add email-id", kTimeout)},
      {sch_cli_modify_schedule_emailaddr, job, true, kTimeout, kTimeout,
       error_line("Error: could not delete email-id", kTimeout)},
      {sch_cli_modify_schedule, job, false, kTimeout, kTimeout, error_line("Error: could not assign job", kTimeout)},
      {sch_cli_modify_schedule, job, true, kTimeout, kTimeout, error_line("Error: could not deassign job", kTimeout)},
      {sch_cli_modify_schedule, SCH_MODIFY_DAILY, false, kTimeout, kTimeout,
       error_line("Error: modify schedule failed", kTimeout)},
      // The log-file and transport commands print a doubled colon: intended.
      {sch_cli_logfile_resize, 0, true, kTimeout, kTimeout, error_line("Error: ", kTimeout)},
      {sch_cli_logfile_clear, 0, false, kTimeout, kTimeout, error_line("Error: ", kTimeout)},
      {sch_cli_logfile_rename, 0, true, kTimeout, kTimeout, error_line("Error: ", kTimeout)},
      {sch_cli_config_email_transport, SCH_TRANSPORT_FROM, false, CMI_ERR_NO_DAEMON, CMI_ERR_NO_DAEMON,
       error_line("Error: ", CMI_ERR_NO_DAEMON)},
  };
  for (const auto &[handler, code, no_form, status, result, err] : cases) {
    answer(status);
    EXPECT_EQ(run(handler, {"nightly", "02:30"}, code, no_form), result) << err;
    EXPECT_EQ(output_.err, err);
  }
  EXPECT_EQ(requests().size(), std::size(cases));
}

TEST_F(Commands, ScheduleJobRequestsCarryNamesAndNoTime) {
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "backup"}, SCH_MODIFY_JOB), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "backup"}, SCH_MODIFY_JOB, true), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly"}, SCH_MODIFY_JOB_NO_NAME, true), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "02:30"}, 42), 0u);  // unknown codes: no time
  EXPECT_EQ(sent(0), image(128, {{0, 4}, {4, 120}, {16, 999}}, {{20, "nightly"}, {52, "backup"}}));
  EXPECT_EQ(sent(1), image(128, {{0, 4}, {4, 120}, {8, 1}, {16, 999}}, {{20, "nightly"}, {52, "backup"}}));
  EXPECT_EQ(sent(2), image(128, {{0, 4}, {4, 120}, {8, 1}, {16, 1000}}, {{20, "nightly"}}));
  EXPECT_EQ(sent(3), image(128, {{0, 4}, {4, 120}, {16, 42}}, {{20, "nightly"}}));
  // A time is replaced, never removed: its no form is refused before anything is sent.
  for (uint32_t code : {1u, 3u, 4u, 5u, 7u}) {
    EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "02:30"}, code, true), uint32_t(-1));
    EXPECT_EQ(output_.out, "Invalid command\n");
  }
  EXPECT_EQ(requests().size(), 4u);
}

TEST_F(Commands, SmtpServerKindsPortAndVrf) {
  const std::tuple<const char *, uint32_t, uint32_t, int32_t, const char *> cases[] = {
      // server, its address kind, the kind sent, port (0: none given), VRF
      {"mail.example.com", SCH_ADDRESS_HOST_NAME, 16, 0, ""},
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
  EXPECT_EQ(requests().size(), 6u);
}

}  // namespace
