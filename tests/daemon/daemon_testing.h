// Test support: a real schedd on a temporary state and runtime directory, requests built with the
// wire codec, and the display replies read back.
#ifndef SCHEDCLI_TESTS_DAEMON_TESTING_H
#define SCHEDCLI_TESTS_DAEMON_TESTING_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "cli/request.h"
#include "support/temp_dir.h"
#include "support/wire_images.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/status.h"
#include "schedcli/wire.h"

namespace daemon_testing {

using namespace wire_images;

struct Answer {
  uint32_t status = 0;
  Bytes payload;
};

inline testing::AssertionResult answered(const Answer &answer, uint32_t expected) {
  if (answer.status == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure() << std::hex << "0x" << answer.status << " (" << syserr2str(answer.status)
                                     << ") instead of 0x" << expected << " (" << syserr2str(expected) << ")";
}

struct Exit {
  int code = -1;  // -1 when ended by a signal
  std::string error_output;
};

// A temporary state and runtime directory and the daemon started on them. The test process is a
// subreaper, so that a detached daemon becomes its child and its exit status can be had.
class DaemonTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    ASSERT_FALSE(root_.empty());
    state_dir_ = root_ + "/state";
    runtime_dir_ = root_ + "/run";
  }
  void TearDown() override {
    cmi_session_close(session_);
    if (daemon_pid_ > 0) {
      EXPECT_EQ(stop(), 0);
    }
  }

  std::vector<std::string> directories() const { return {"--state-dir", state_dir_, "--runtime-dir", runtime_dir_}; }
  std::string socket_path() const { return runtime_dir_ + "/" CMI_SOCKET_NAME; }

  // Runs schedd with exactly these arguments, its standard error into *error_fd.
  static pid_t spawn(const std::vector<std::string> &arguments, int *error_fd) {
    int pipe_fds[2];
    EXPECT_EQ(pipe2(pipe_fds, O_CLOEXEC), 0);
    pid_t child = fork();
    if (child == 0) {
      dup2(pipe_fds[1], STDERR_FILENO);
      std::vector<char *> argv{const_cast<char *>(SCHEDD_PATH)};
      for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
      argv.push_back(nullptr);
      execv(SCHEDD_PATH, argv.data());
      _exit(127);
    }
    close(pipe_fds[1]);
    *error_fd = pipe_fds[0];
    return child;
  }

  static std::string read_all(int fd) {
    std::string text;
    char buffer[512];
    for (ssize_t got; (got = read(fd, buffer, sizeof buffer)) != 0;) {
      if (got > 0) text.append(buffer, static_cast<size_t>(got));
      if (got < 0 && errno != EINTR) break;
    }
    close(fd);
    return text;
  }

  static Exit run_schedd(const std::vector<std::string> &arguments) {
    int error_fd = -1;
    pid_t child = spawn(arguments, &error_fd);
    Exit result{-1, read_all(error_fd)};
    result.code = wait_for_exit(child);
    return result;
  }

  // Starts the daemon detached; once the command returns 0, it serves.
  Exit start(std::vector<std::string> extra = {}) {
    std::vector<std::string> arguments = directories();
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    Exit result = run_schedd(arguments);
    if (result.code == 0) std::ifstream(runtime_dir_ + "/schedd.pid") >> daemon_pid_;
    return result;
  }

  void start_or_fail(std::vector<std::string> extra = {}) {
    Exit result = start(extra);
    ASSERT_EQ(result.code, 0) << result.error_output;
  }

  // Signals the daemon and returns its exit status.
  int stop(int signal_number = SIGTERM) {
    pid_t pid = daemon_pid_;
    daemon_pid_ = -1;
    return pid > 0 && kill(pid, signal_number) == 0 ? wait_for_exit(pid) : -3;
  }

  // The child's exit status, -1 after a signal, -2 when it had to be killed after 10 seconds.
  static int wait_for_exit(pid_t pid) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return -2;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  cmi_session *session() {
    if (!session_) {
      session_ = cmi_session_open(socket_path().c_str());
      cmi_session_timeout_set(session_, 5000);
    }
    return session_;
  }

  Answer call(uint32_t service, uint32_t opcode, const Bytes &request) {
    session();
    void *reply = nullptr;
    auto length = static_cast<uint32_t>(request.size());
    Answer answer;
    answer.status = cmi_req_resp(service, opcode, request.data(), &reply, &length, "", nullptr, SCH_CMI_FLAGS,
                                 session_, 0);
    if (reply) answer.payload.assign(static_cast<uint8_t *>(reply), static_cast<uint8_t *>(reply) + length);
    std::free(reply);
    return answer;
  }
  Answer configure(const Bytes &request) { return call(SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, request); }
  Answer display(const Bytes &request) { return call(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, request); }

  uint32_t feature(uint32_t action, const char *name = "scheduler") {
    return fm_cmi_set_feature_wait(session(), name, nullptr, nullptr, action);
  }
  // Scheduler requests are refused while the feature is off, and a fresh daemon has it off.
  void enable_feature() { ASSERT_TRUE(answered({feature(FM_FEATURE_ENABLE), {}}, 0)); }
  void start_enabled() {
    ASSERT_NO_FATAL_FAILURE(start_or_fail());
    ASSERT_NO_FATAL_FAILURE(enable_feature());
  }

  // The configuration text of that kind; a failed request fails the test and gives "".
  std::string config_text(uint32_t kind, uint32_t filter = 0) {
    char *text = nullptr;
    size_t length = 0;
    uint32_t status = acfg_request_config_text(session(), kind, filter, &text, &length);
    EXPECT_TRUE(answered({status, {}}, 0));
    std::string result = text ? std::string(text, length) : "";
    std::free(text);
    return result;
  }
  std::string running_config() { return config_text(ACFG_CFG_RUNNING); }

  // Every job the cursor walk hands out, as payloads, in order.
  std::vector<Bytes> walk_jobs() {
    std::vector<Bytes> entries;
    for (int32_t cursor = -1; entries.size() <= SCH_MAX_JOBS;) {
      Answer answer = display(display_request(SCH_REQ_GET_JOBS, "", cursor));
      EXPECT_TRUE(answered(answer, 0));
      if (answer.payload.empty()) break;
      cursor = static_cast<int32_t>(decode_job(answer.payload).cursor);
      entries.push_back(std::move(answer.payload));
    }
    return entries;
  }
  Names job_names() {
    Names names;
    for (const Bytes &entry : walk_jobs()) names.push_back(decode_job(entry).name);
    return names;
  }

  // The one entry of that name; the test fails when there is none.
  ScheduleEntry schedule(const std::string &name) {
    Answer answer = display(display_request(SCH_REQ_GET_SCHEDULES, name, -1));
    EXPECT_FALSE(answer.payload.empty()) << "no schedule " << name;
    return answer.payload.empty() ? ScheduleEntry{} : decode_schedule(answer.payload);
  }
  std::string job_text(const std::string &name) {
    Answer answer = display(display_request(SCH_REQ_GET_JOBS, name, -1));
    EXPECT_FALSE(answer.payload.empty()) << "no job " << name;
    return answer.payload.empty() ? "" : decode_job(answer.payload).text;
  }

  sch::testing::TempDir temp_;
  std::string root_ = temp_.path(), state_dir_, runtime_dir_;
  pid_t daemon_pid_ = -1;
  cmi_session *session_ = nullptr;
};

}  // namespace daemon_testing

#endif
