// Fuzzing of what the shell decodes from the daemon: the replies of the display and configuration
// requests, and the reply stream of the log file, as a daemon of another build or a broken one
// might send them.
//
// Input: a command byte (which command the shell runs, below), then the peer's answers in order,
// each a flags byte (bit 0: a message of a reply stream rather than the reply itself; bit 1: a
// status word follows, else the status is 0), the status, a u16 length and the payload. A stream's
// messages are followed by its end with the next reply's status; once the answers run out, every
// request gets status 0 and no payload (or a stream's end).
#include <cstring>
#include <deque>
#include <mutex>
#include <string>

#include "fuzz_support.h"
#include "schedcli/cli.h"

namespace {

constexpr size_t kMaxAnswers = 4096;

struct Answer {
  bool stream_part;
  uint32_t status;
  std::string payload;
};

struct World {
  std::unique_ptr<fuzz::ShellOnPeer> shell;
  std::mutex mutex;
  std::deque<Answer> script;
};
World *g_world;

void answer(int connection, const cmi_request &request) {
  std::lock_guard lock(g_world->mutex);
  std::deque<Answer> &script = g_world->script;
  bool streamed = false;
  while (!script.empty() && script.front().stream_part) {
    const std::string &part = script.front().payload;
    cmi_server_stream_send(connection, request.token, part.data(), static_cast<uint32_t>(part.size()));
    script.pop_front();
    streamed = true;
  }
  Answer last = script.empty() ? Answer{false, 0, {}} : std::move(script.front());
  if (!script.empty()) script.pop_front();
  if (streamed) {
    cmi_server_stream_end(connection, request.token, last.status);
  } else {
    cmi_server_reply(connection, request.token, last.status, last.payload.data(),
                     static_cast<uint32_t>(last.payload.size()));
  }
}

// `show scheduler logfile` has no shell command of its own: its handler is called as the shell
// would call it, with the name as its one parameter when given.
void show_logfile(const char *name) {
  sch_cli_context context{};
  context.session = g_world->shell->peer.session();
  std::strcpy(context.user, "root");
  sch_cli_param param{0, SCH_VALUE_STRING, const_cast<char *>(name), 0};
  if (name) {
    context.params[0] = &param;
    context.param_count = 1;
  }
  sch_cli_show_logfile(&context);
}

constexpr const char *kCommands[] = {
    "show scheduler job",
    "show scheduler job name backup",
    "show scheduler schedule",
    "show scheduler schedule name alpha",
    "show scheduler config",
    "show scheduler memory-statistics",
    "show running-config",
    "show startup-config",
};
constexpr size_t kCommandCount = std::size(kCommands);

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
  fuzz::begin_run(argc, argv);
  g_world = new World;
  g_world->shell = std::make_unique<fuzz::ShellOnPeer>(answer);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader input(data, size);
  size_t command = input.byte() % (kCommandCount + 3);
  {
    std::lock_guard lock(g_world->mutex);
    g_world->script.clear();
    while (!input.empty() && g_world->script.size() < kMaxAnswers) {
      uint8_t flags = input.byte();
      uint32_t status = (flags & 2) ? input.u32() : 0;
      g_world->script.push_back({(flags & 1) != 0, status, std::string(input.bytes(input.u16()))});
    }
  }
  if (command == kCommandCount) {
    show_logfile(nullptr);
  } else if (command == kCommandCount + 1) {
    show_logfile("backup");
  } else {
    schedsh::Shell shell = g_world->shell->shell();
    if (command < kCommandCount) {
      shell.execute(kCommands[command]);
    } else {
      // A configuration command: the shell reads only a status from its reply.
      shell.execute("configure terminal");
      shell.execute("scheduler schedule name alpha");
    }
  }
  return 0;
}
