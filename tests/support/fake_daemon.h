// Test support for the command handlers: a fake daemon on a real socket that records every
// request and answers from a script, parsed commands as the shell builds them, captured output.
#ifndef SCHEDCLI_TESTS_SUPPORT_FAKE_DAEMON_H
#define SCHEDCLI_TESTS_SUPPORT_FAKE_DAEMON_H

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "schedcli/cli.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/platform/uri.h"
#include "schedcli/wire.h"
#include "support/temp_dir.h"

namespace sch::testing {

using Bytes = std::vector<uint8_t>;
constexpr const char *kLocalUser = "alice";

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

// A parsed command of kLocalUser unless named otherwise. Parameters go in syntax order, either
// all at once as strings (nullptr for one without a value) or one by one.
struct Command {
  explicit Command(cmi_session *session, uint32_t code = 0, bool no_form = false)
      : Command(session, kLocalUser, {}, code, no_form) {}
  Command(cmi_session *session, const char *user, const std::vector<const char *> &values, uint32_t code = 0,
          bool no_form = false) {
    context.session = session;
    std::snprintf(context.user, sizeof context.user, "%s", user);
    context.command_code = code;
    context.no_flag = no_form;
    for (const char *value : values) {
      texts[context.param_count] = value ? value : "";
      add(SCH_VALUE_STRING, value ? texts[context.param_count].data() : nullptr);
    }
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
  Command &file(const char *uri_text) {
    EXPECT_EQ(uri_parse(uri_text, &uri), 0);
    return add(SCH_VALUE_STRING, &uri);
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
  file_uri uri{};
};

struct Received {
  uint32_t service, opcode;
  Bytes bytes;
  uint32_t feature_action = 0;  // feature-manager requests only
  std::string feature;
};

// Serves one connection after another in a directory of its own; each request is recorded and
// answered with the next scripted status and payload, or with status 0 and no payload once the
// script has run out.
class FakeDaemon {
 public:
  FakeDaemon() {
    std::string path = directory_ + "/" CMI_SOCKET_NAME;
    EXPECT_EQ(cmi_server_listen(path.c_str(), &listen_fd_), 0u);
    session_ = cmi_session_open(path.c_str());
    thread_ = std::thread([this] { serve(); });
  }
  ~FakeDaemon() {
    stop_ = true;
    thread_.join();
    close(listen_fd_);
    cmi_session_close(session_);
  }
  FakeDaemon(const FakeDaemon &) = delete;
  FakeDaemon &operator=(const FakeDaemon &) = delete;

  void answer(uint32_t status, Bytes payload = {}) {
    std::lock_guard lock(mutex_);
    script_.emplace_back(status, std::move(payload));
  }
  std::vector<Received> requests() const {
    std::lock_guard lock(mutex_);
    return received_;
  }
  cmi_session *session() const { return session_; }
  const std::string &directory() const { return directory_; }

 private:
  void serve() {
    while (!stop_) {
      pollfd watch{listen_fd_, POLLIN, 0};
      int connection = -1;
      if (poll(&watch, 1, 20) <= 0 || cmi_server_accept(listen_fd_, &connection) != 0) continue;
      for (cmi_request request{}; cmi_server_receive(connection, &request) == 0; cmi_request_release(&request)) {
        auto [status, payload] = take(request);
        cmi_server_reply(connection, request.token, status, payload.data(), static_cast<uint32_t>(payload.size()));
      }
      close(connection);
    }
  }

  std::pair<uint32_t, Bytes> take(const cmi_request &request) {
    std::lock_guard lock(mutex_);
    const auto *bytes = static_cast<const uint8_t *>(request.payload);
    Received &received = received_.emplace_back(request.service, request.opcode, Bytes(bytes, bytes + request.length));
    if (request.service == FM_SERVICE) {
      char name[FM_FEATURE_NAME_SIZE] = {};
      EXPECT_EQ(fm_feature_request_parse(request.payload, request.length, &received.feature_action, name), 0u);
      received.feature = name;
    }
    if (script_.empty()) return {0, {}};
    auto answer = std::move(script_.front());
    script_.pop_front();
    return answer;
  }

  sch::testing::TempDir temp_;
  std::string directory_ = temp_.path();
  int listen_fd_ = -1;
  cmi_session *session_ = nullptr;
  std::atomic<bool> stop_{false};
  mutable std::mutex mutex_;
  std::deque<std::pair<uint32_t, Bytes>> script_;
  std::vector<Received> received_;
  std::thread thread_;
};

}  // namespace sch::testing

#endif
