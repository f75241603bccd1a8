// Job-execution credentials: the gate in front of job and schedule changes, the fetch from the
// daemon, and the command that stores or deletes a remote user's password.
#include <cstdlib>

#include "cli_testing.h"
#include "schedcli/status.h"

namespace {

using namespace cli_testing;

constexpr uint32_t kUser = SCH_PARAM_USER_NAME, kClear = SCH_PARAM_CLEAR_PASSWORD,
                   kEncrypted = SCH_PARAM_ENCRYPTED_PASSWORD;

// The daemon's answer to a fetch: the user, then the encrypted password, 128 bytes each.
Bytes fetched(const std::string &password) { return image(256, {}, {{0, kRemoteUser}, {128, password}}); }

class Credentials : public CliTest {
 protected:
  uint32_t gate(const char *user) {
    Command command(session_, "", {});
    return sch_validate_remote_user(&command.context, user);
  }
  int aaa(const std::vector<uint32_t> &kinds, const std::vector<const char *> &values, bool no_form,
          const char *user = kLocalUser) {
    Command command(session_, user, values, 0, no_form);
    for (size_t i = 0; i < kinds.size(); i++) command.params[i].kind = kinds[i];
    return run(sch_cli_aaa_auth_passwd, command);
  }
};

TEST_F(Credentials, LocalUsersPassAndRemoteUsersNeedAWorkingStoredPassword) {
  EXPECT_EQ(gate(kLocalUser), 0u);
  EXPECT_EQ(gate(nullptr), SCH_STATUS_NO_CREDENTIAL);
  EXPECT_EQ(gate(""), SCH_STATUS_NO_CREDENTIAL);
  EXPECT_TRUE(requests().empty());

  const std::pair<Bytes, uint32_t> fetches[] = {
      {fetched(""), SCH_STATUS_NO_CREDENTIAL},
      {fetched("not-a-type-7-text"), SCH_STATUS_AUTH_FAILED},
      {fetched(std::string(128, 'p')), SCH_STATUS_AUTH_FAILED},  // fills its field, unterminated
      {Bytes(255, 'p'), SCH_STATUS_CREDENTIAL_FETCH},             // too short to hold the password
  };
  for (const auto &[reply, code] : fetches) {
    answer(0, reply);
    EXPECT_EQ(gate(kRemoteUser), code);
  }
  answer(SCH_STATUS_EXISTS, fetched("not-a-type-7-text"));  // a refused fetch gives no password
  EXPECT_EQ(gate(kRemoteUser), SCH_STATUS_NO_CREDENTIAL);
  EXPECT_EQ(requests().at(0), image(265, {{0, 22}, {4, 257}}, {{8, "\x01rita"}}));
  EXPECT_EQ(sch_validate_authentication_passwd(session_, kLocalUser, "x"), SCH_STATUS_LOCAL_USER);
}

TEST_F(Credentials, MalformedParametersAreRefused) {
  EXPECT_EQ(aaa({kClear}, {nullptr}, true), 9);
  EXPECT_EQ(aaa({kEncrypted}, {nullptr}, true), 9);
  EXPECT_EQ(aaa({kClear}, {std::string(SECRETS_MAX_CLEAR + 1, 'p').c_str()}, true), 1);
  Command integer(session_, kLocalUser, {"x"});
  integer.params[0] = {kUser, SCH_VALUE_INTEGER, integer.params[0].value, 0};
  EXPECT_EQ(run(sch_cli_aaa_auth_passwd, integer), 9);
  EXPECT_TRUE(requests().empty());
}

}  // namespace
