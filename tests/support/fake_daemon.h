// Test support for the command handlers: a fake daemon on a real socket that records every
// request and answers from a script, parsed commands as the shell builds them, captured output,
// and a fixture with a local password file that lists kLocalUser only, a device key and UTC.
#ifndef SCHEDCLI_TESTS_SUPPORT_FAKE_DAEMON_H
#define SCHEDCLI_TESTS_SUPPORT_FAKE_DAEMON_H

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
#include "schedcli/status.h"
#include "schedcli/wire.h"
#include "support/temp_dir.h"

namespace sch::testing {

using Bytes = std::vector<uint8_t>;
constexpr const char *kLocalUser = "alice";
constexpr const char *kRemoteUser = "rita";

// An expected wire image: `size` zero bytes with big-endian words and strings placed.
inline Bytes image(size_t size, std::initializer_list<std::pair<size_t, uint32_t>> words,
                   std::initializer_list<std::pair<size_t, std::string>> strings = {}) {
  Bytes bytes(size, 0);
  for (auto [offset, word] : words) sch_wire_put_u32(bytes.data() + offset, word);
  for (const auto &[offset, text] : strings) std::memcpy(bytes.data() + offset, text.data(), text.size());
  return bytes;
}

inline std::string error_line(const char *text, uint32_t code) {
  return std::string(text) + ": " + syserr2str(code) + "\n";
}

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

// A parsed command. Parameters go in syntax order, either all at once as strings (nullptr for one
// without a value) or one by one.
struct Command {
  Command(cmi_session *session, const std::vector<const char *> &values = {}, uint32_t code = 0, bool no_form = false,
          const char *user = kLocalUser) {
    context = {.no_flag = no_form, .session = session, .command_code = code};
    std::snprintf(context.user, sizeof context.user, "%s", user);
    for (const char *value : values) value ? text(value) : add(SCH_VALUE_STRING, nullptr);
  }
  // The context points into the command itself.
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

// Handlers run against a fake daemon: a thread serves one connection after another on a real
// socket in a directory of its own, records each request and answers it with the next scripted
// answer (a status and payload, or a stream of messages closed by an end marker), or with status 0
// and no payload once the script has run out. The handlers' encryption runs here, as in the daemon.
class HandlerTest : public ::testing::Test {
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

  void answer(uint32_t status, Bytes payload = {}) {
    std::lock_guard lock(mutex_);
    script_.push_back({status, {std::move(payload)}, false});
  }
  void stream(std::vector<Bytes> messages) {
    std::lock_guard lock(mutex_);
    script_.push_back({0, std::move(messages), true});
  }
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

  void serve() {
    while (!stop_) {
      pollfd watch{listen_fd_, POLLIN, 0};
      int connection = -1;
      if (poll(&watch, 1, 20) <= 0 || cmi_server_accept(listen_fd_, &connection) != 0) continue;
      for (cmi_request request{}; cmi_server_receive(connection, &request) == 0; cmi_request_release(&request)) {
        Answer answer = take(request);
        if (!answer.streamed) {
          const Bytes &payload = answer.payloads.front();
          cmi_server_reply(connection, request.token, answer.status, payload.data(), uint32_t(payload.size()));
          continue;
        }
        for (const Bytes &message : answer.payloads) {
          cmi_server_stream_send(connection, request.token, message.data(), uint32_t(message.size()));
        }
        cmi_server_stream_end(connection, request.token, 0);
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

  TempDir temp_;
  std::string directory_ = temp_.path();
  int listen_fd_ = -1;
  std::atomic<bool> stop_{false};
  mutable std::mutex mutex_;
  std::deque<Answer> script_;
  std::vector<Received> received_;
  std::thread server_;
};

}  // namespace sch::testing

#endif
