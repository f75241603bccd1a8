// Test support for the job, schedule, credential and show handlers: the shared fake daemon with a
// local password file that lists kLocalUser only, a device key of the test's own, and UTC.
#ifndef SCHEDCLI_TESTS_CLI_CLI_TESTING_H
#define SCHEDCLI_TESTS_CLI_CLI_TESTING_H

#include <fstream>

#include "cli/request.h"
#include "schedcli/platform/auth.h"
#include "schedcli/platform/secrets.h"
#include "support/fake_daemon.h"

namespace cli_testing {

using namespace sch::testing;
constexpr const char *kRemoteUser = "rita";
constexpr uint32_t kRefused = static_cast<uint32_t>(-1);

inline std::string field(const Bytes &bytes, size_t offset, size_t width) {
  return std::string(bytes.begin() + offset, bytes.begin() + offset + width).c_str();
}

class CliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
    const std::string &directory = daemon_.directory();
    std::ofstream(directory + "/passwd") << kLocalUser << ":x:1000:1000::/home/alice:/bin/sh\n";
    ASSERT_EQ(auth_local_passwd_file_set((directory + "/passwd").c_str()), 0u);
    ASSERT_EQ(secrets_device_key_path_set((directory + "/device.key").c_str()), 0u);
    // The handlers' encryption runs here, as in the daemon, rather than against the stand-in daemon.
    secrets_use_device_key(1);
  }
  void TearDown() override {
    secrets_use_device_key(0);
    auth_local_passwd_file_set(nullptr);
    secrets_device_key_path_set(nullptr);
  }

  void answer(uint32_t status, Bytes payload = {}) { daemon_.answer(status, std::move(payload)); }
  // Every request so far, as received, and the service and opcode of each.
  std::vector<Bytes> requests() const {
    std::vector<Bytes> bytes;
    for (const Received &received : daemon_.requests()) bytes.push_back(received.bytes);
    return bytes;
  }
  std::vector<std::pair<uint32_t, uint32_t>> services() const {
    std::vector<std::pair<uint32_t, uint32_t>> pairs;
    for (const Received &received : daemon_.requests()) pairs.emplace_back(received.service, received.opcode);
    return pairs;
  }

  // Runs a handler on a command, keeping its output in output_.
  template <typename Result>
  Result run(Result (*handler)(sch_cli_context *), Command &command) {
    Result result{};
    output_ = capture([&] { result = handler(&command.context); });
    return result;
  }
  template <typename Result>
  Result run(Result (*handler)(sch_cli_context *), const std::vector<const char *> &values, uint32_t code = 0,
             bool no_form = false, const char *user = kLocalUser) {
    Command command(session_, user, values, code, no_form);
    return run(handler, command);
  }

  FakeDaemon daemon_;
  cmi_session *session_ = daemon_.session();
  Output output_;
};

}  // namespace cli_testing

#endif
