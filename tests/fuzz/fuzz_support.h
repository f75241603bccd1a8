// What the harnesses share: reading an input as a sequence of fields, a peer on a real socket that
// answers the shell's requests, a shell on that peer, an in-process daemon, and silencing the
// handlers' printing.
#ifndef SCHEDCLI_TESTS_FUZZ_FUZZ_SUPPORT_H
#define SCHEDCLI_TESTS_FUZZ_FUZZ_SUPPORT_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "schedcli/platform/cmi.h"
#include "schedcli/platform/syslog.h"
#include "write_confinement.h"
#if __has_include("core/daemon.h")
#include "core/daemon.h"
#include "schedcli/platform/acfg.h"
#endif
#if __has_include("library_backend.h")
#include "commands.h"
#include "library_backend.h"
#include "shell.h"
#endif

namespace fuzz {

// Where the harness's own messages go: standard error as it was before silence_printing().
inline FILE *report() {
  static FILE *const original = stderr;
  return original;
}

// A finding: libFuzzer reports the abort with the input that caused it.
inline void require(bool holds, const char *what) {
  if (holds) return;
  std::fprintf(report(), "invariant broken: %s\n", what);
  std::abort();
}

// Takes fields off the front of an input; past its end every field reads as zero or empty.
class Reader {
 public:
  Reader(const uint8_t *data, size_t size) : data_(data), size_(size) {}
  bool empty() const { return at_ >= size_; }
  size_t left() const { return size_ - at_; }
  uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
  uint16_t u16() { return static_cast<uint16_t>(byte() << 8 | byte()); }
  uint32_t u32() { return static_cast<uint32_t>(u16()) << 16 | u16(); }
  std::string_view bytes(size_t count) {
    count = std::min(count, left());
    std::string_view taken(reinterpret_cast<const char *>(data_ + at_), count);
    at_ += count;
    return taken;
  }
  // The text up to the next newline (dropped) or the end.
  std::string_view line() {
    std::string_view all(reinterpret_cast<const char *>(data_ + at_), left());
    size_t end = all.find('\n');
    if (end == std::string_view::npos) end = all.size();
    at_ += std::min(end + 1, all.size());
    return all.substr(0, end);
  }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t at_ = 0;
};

// A new directory for a harness's files, in memory when the machine has a tmpfs there: the code
// under test syncs every write, and on a disk that, not the code, would set the pace. The name is
// short because store paths have a bound.
inline std::string scratch_directory(const char *purpose) {
  std::string base = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
  std::string pattern = base + "/sf-" + purpose + "-XXXXXX";
  require(mkdtemp(pattern.data()) != nullptr, "a scratch directory");
  // Gone again when the process exits normally; a crash leaves it for the finding's inspection.
  static struct Made {
    std::vector<std::string> paths;
    ~Made() {
      std::error_code ignored;
      for (const std::string &path : paths) std::filesystem::remove_all(path, ignored);
    }
  } made;
  made.paths.push_back(pattern);
  return pattern;
}

// Handlers print on standard output, the command library prints refusals on standard error, and
// the daemon logs each change; a harness that sends them nowhere runs many times faster, and its
// log shows only the fuzzer's lines. (Without a system logger, each log line costs a failed
// connect.) libFuzzer and the sanitizers keep writing to standard error: they hold its stream and
// descriptor from start-up, and only the stream the code under test uses is replaced.
inline void silence_printing() {
  report();
  nost_syslog_set_sink([](int, const char *, void *) {}, nullptr);
  int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null < 0) return;
  dup2(null, STDOUT_FILENO);
  close(null);
  if (FILE *sink = std::fopen("/dev/null", "we")) stderr = sink;
}

// Serves the daemon's socket in a directory of its own on a thread of its own, one connection
// after another; `answer` is called for each request received and answers it on the connection.
// The client blocks in its call meanwhile, so the two never touch shared state at the same time.
class Peer {
 public:
  using Answer = std::function<void(int connection, const cmi_request &request)>;

  explicit Peer(Answer answer) : answer_(std::move(answer)) {
    directory_ = scratch_directory("peer");
    std::string path = directory_ + "/" CMI_SOCKET_NAME;
    require(cmi_server_listen(path.c_str(), &listen_fd_) == 0, "the peer listens");
    session_ = cmi_session_open(path.c_str());
    require(session_ != nullptr, "a session with the peer");
    // A request the peer does not answer is a finding of its own; it must not stall the run.
    cmi_session_timeout_set(session_, 5000);
    thread_ = std::thread([this] { serve(); });
  }
  ~Peer() {
    stop_ = true;
    thread_.join();
    close(listen_fd_);
    cmi_session_close(session_);
    std::filesystem::remove_all(directory_);
  }
  Peer(const Peer &) = delete;
  Peer &operator=(const Peer &) = delete;

  cmi_session *session() const { return session_; }
  const std::string &directory() const { return directory_; }

 private:
  // Every open connection is watched: a client keeps a reply stream's connection open while it
  // makes its next call on a new one.
  void serve() {
    std::vector<int> connections;
    while (!stop_) {
      std::vector<pollfd> watches{{listen_fd_, POLLIN, 0}};
      for (int connection : connections) watches.push_back({connection, POLLIN, 0});
      if (poll(watches.data(), watches.size(), 20) <= 0) continue;
      int accepted = -1;
      if (watches[0].revents && cmi_server_accept(listen_fd_, &accepted) == 0) connections.push_back(accepted);
      for (size_t i = 1; i < watches.size(); i++) {
        if (!watches[i].revents) continue;
        int connection = watches[i].fd;
        cmi_request request{};
        uint32_t status = cmi_server_receive(connection, &request);
        if (status == 0) answer_(connection, request);
        cmi_request_release(&request);
        if (status == CMI_ERR_CLIENT_CLOSED || (status != 0 && (watches[i].revents & (POLLHUP | POLLERR)))) {
          close(connection);
          std::erase(connections, connection);
        }
      }
    }
    for (int connection : connections) close(connection);
  }

  Answer answer_;
  std::string directory_;
  int listen_fd_ = -1;
  cmi_session *session_ = nullptr;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// What each harness does first: in a libFuzzer run, before any thread starts (a mount namespace
// is the calling thread's alone), its writes are confined to its own places; then the code under
// test is silenced.
inline void begin_run(int *argc, char ***argv) {
  confine_writes(*argc, *argv);
  silence_printing();
  // The standard library names an exception nobody caught on the standard error silenced above.
  std::set_terminate([] {
    try {
      if (std::exception_ptr thrown = std::current_exception()) std::rethrow_exception(thrown);
    } catch (const std::exception &error) {
      std::fprintf(report(), "uncaught exception: %s\n", error.what());
    } catch (...) {
      std::fprintf(report(), "uncaught exception\n");
    }
    std::abort();
  });
}

#if __has_include("library_backend.h")
// The shell as an operator would have it, talking to a peer; the backend's stores lie in
// `directory` (the peer's own directory when none is given).
struct ShellOnPeer {
  Peer peer;
  schedsh::CommandTable table;
  schedsh::LibraryBackend backend;
  std::ostream null{nullptr};  // without a buffer, whatever is written to it is dropped
  ShellOnPeer(Peer::Answer answer, const std::string &state_dir = "", const std::string &runtime_dir = "")
      : peer(std::move(answer)),
        backend(state_dir.empty() ? peer.directory() : state_dir, runtime_dir.empty() ? peer.directory() : runtime_dir) {
    schedsh::register_commands(table);
  }
  schedsh::Shell shell() { return {table, backend, schedsh::SessionInfo{peer.session(), "root", false}, null, null}; }
};
#endif

#if __has_include("core/daemon.h")
inline const schedd::Caller kRoot{0, "root"};

// The whole text of a reply, its stream's parts included.
inline std::string text_of(schedd::Reply &reply) {
  std::string text(reply.payload.begin(), reply.payload.end());
  if (reply.parts) {
    while (auto part = reply.parts()) text.append(part->begin(), part->end());
  }
  return text;
}

// A daemon takes SIGINT and SIGTERM for its loop, which never runs here, and its last stop sets
// them back to the default. Around a daemon's start and stop the run's own handlers are kept:
// libFuzzer's, which end a run with its statistics, or the default before libFuzzer sets its own.
class RunSignalsKept {
 public:
  RunSignalsKept() {
    sigaction(SIGINT, nullptr, &interrupt_);
    sigaction(SIGTERM, nullptr, &terminate_);
  }
  ~RunSignalsKept() {
    sigaction(SIGINT, &interrupt_, nullptr);
    sigaction(SIGTERM, &terminate_, nullptr);
  }
  RunSignalsKept(const RunSignalsKept &) = delete;
  RunSignalsKept &operator=(const RunSignalsKept &) = delete;

 private:
  struct sigaction interrupt_ {};
  struct sigaction terminate_ {};
};

// An in-process daemon on directories of its own. Without a socket the loop never runs: no timer
// fires, so no job the fuzzer wrote is run; requests come through ask(). Its clock is the real
// one, as the shell checks times against it.
struct LocalDaemon {
  schedd::Options options;
  schedd::ManualClock clock{std::time(nullptr)};
  std::unique_ptr<schedd::Daemon> daemon;

  LocalDaemon(const char *purpose, bool enable_feature) {
    std::string directory = scratch_directory(purpose);
    options.state_dir = directory + "/s";
    options.runtime_dir = directory + "/r";
    options.enable_feature = enable_feature;
  }
  // A new daemon on the directories; false when it does not come up (`error` says why).
  bool start(std::string *error) {
    RunSignalsKept kept;
    daemon = std::make_unique<schedd::Daemon>(options, clock);
    return daemon->start(error, schedd::StartParts{.socket = false, .runner = false, .wall_timer = false});
  }
  void stop() {
    RunSignalsKept kept;
    daemon.reset();
  }
  schedd::Reply ask(uint32_t service, uint32_t opcode, schedd::RequestBytes bytes) {
    return daemon->handle(service, opcode, bytes, kRoot);
  }
  std::string running_text() {
    schedd::Reply reply = ask(ACFG_SERVICE, ACFG_OP_CONFIG_TEXT, std::vector<uint8_t>{ACFG_CFG_RUNNING, 0});
    require(reply.status == 0, "a daemon that serves gives its running text");
    return text_of(reply);
  }
};
#endif

}  // namespace fuzz

#endif
