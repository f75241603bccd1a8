// Fuzzing of the daemon's request decoding and dispatch: each input is a sequence of requests to
// one in-process daemon on a temporary store, so that configuration builds up within an input.
//
// A request is a selector byte, then the service and opcode where the selector asks for them, a
// u16 length and the request's bytes. Selector (low 3 bits): 0 configuration, 1 display,
// 2 simple display, 3 feature manager (opcode byte follows), 4 configuration framework (opcode
// byte follows), 5 any service and opcode (two u32 follow); bit 7 sets the record's length word to
// what follows its header, so that the fuzzer gets past the frame check at will.
//
// After every input, beyond "no crash": the running configuration's text, pasted through the
// shell into the emptied daemon, gives the same text again (stored credentials aside, and a time
// that has passed, which the shell refuses when typed; a text already pasted back is not pasted
// again); and once the configuration is emptied the daemon holds exactly the tracked blocks it
// held before the input.
#include <cstdio>
#include <ctime>
#include <functional>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "cli/request.h"
#include "fuzz_support.h"
#include "schedcli/db.h"
#include "schedcli/diag.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/wire.h"

namespace {

using fuzz::require;

constexpr size_t kMaxParts = 100000;

struct World {
  fuzz::LocalDaemon local{"daemon", true};
  std::unique_ptr<fuzz::ShellOnPeer> shell;
  std::string empty_text;  // the running text of an empty configuration
  // Texts (their hashes) already pasted back whole into the emptied daemon. Most inputs the fuzzer
  // makes end in a configuration that one before them ended in, and the paste (through the shell,
  // over the socket) costs more than the input: a text is pasted the first time it is seen.
  // Bounded, so that a long run keeps pasting what it has forgotten.
  std::unordered_set<size_t> pasted;
};
constexpr size_t kMaxPastedTexts = 1 << 20;
World *g_world;

// Drains a streamed reply as the server would send it, bounded so that a source that never ends
// shows up as a finding rather than a hang.
void drain(schedd::Reply &reply) {
  if (!reply.parts) return;
  size_t parts = 0;
  while (reply.parts()) require(++parts < kMaxParts, "a reply stream ends");
}

// The peer's answers: the daemon's own reply, sent as the socket server sends it.
void answer(int connection, const cmi_request &request) {
  const auto *bytes = static_cast<const uint8_t *>(request.payload);
  schedd::Reply reply = g_world->local.ask(request.service, request.opcode, schedd::RequestBytes(bytes, request.length));
  if (!reply.streamed) {
    cmi_server_reply(connection, request.token, reply.status, reply.payload.data(),
                     static_cast<uint32_t>(reply.payload.size()));
    return;
  }
  if (reply.parts) {
    while (auto part = reply.parts()) {
      cmi_server_stream_send(connection, request.token, part->data(), static_cast<uint32_t>(part->size()));
    }
  } else if (!reply.payload.empty()) {
    cmi_server_stream_send(connection, request.token, reply.payload.data(), static_cast<uint32_t>(reply.payload.size()));
  }
  cmi_server_stream_end(connection, request.token, reply.status);
}

uint32_t set_feature(uint32_t action) {
  std::vector<uint8_t> payload{static_cast<uint8_t>(action), 's', 'c', 'h', 'e', 'd', 'u', 'l', 'e', 'r', 0};
  return g_world->local.ask(FM_SERVICE, action, payload).status;
}

// Turning the feature off removes the whole configuration; on again, it is empty.
void empty_configuration() {
  set_feature(FM_FEATURE_DISABLE);
  require(scheduler_enabled == 0, "the feature turns off");
  require(set_feature(FM_FEATURE_ENABLE) == 0, "the feature turns on");
}

void paste(const std::string &text) {
  schedsh::Shell shell = g_world->shell->shell();
  shell.execute("configure terminal");
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) shell.execute(line);
  shell.execute("end");
  shell.finish();
}

// The text without its stored credentials: the shell takes a credential only after PAM accepts
// it for a remote user, which no user of a fuzzing machine is, so they cannot be pasted back.
std::string without_credentials(const std::string &text) {
  std::string kept;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    end = end == std::string::npos ? text.size() : end + 1;
    std::string_view line = std::string_view(text).substr(start, end - start);
    if (!line.starts_with("scheduler aaa-authentication ")) kept += line;
    start = end;
  }
  return kept;
}

// A schedule's start line whose minute has passed by `now`. The daemon keeps such a time (its
// timers skip it), but the shell refuses it when typed, so the schedule comes back without it.
bool passed_start(const std::string &line, std::time_t now) {
  std::tm start{};
  if (std::sscanf(line.c_str(), "  time start %d:%d:%d:%d:%d", &start.tm_year, &start.tm_mon, &start.tm_mday,
                  &start.tm_hour, &start.tm_min) != 5) {
    return false;
  }
  start.tm_year -= 1900;
  start.tm_mon -= 1;
  start.tm_isdst = -1;
  return std::mktime(&start) < now;
}

// The text the original gives once the shell has refused its passed start times: each such
// schedule as one without a time, which prints the time line's two blanks and no line end.
std::string without_passed_starts(const std::string &text, std::time_t now) {
  std::string kept;
  std::istringstream lines(text);
  bool in_job = false, in_schedule = false;  // a job's text may hold any line
  for (std::string line; std::getline(lines, line);) {
    if (in_job) {
      in_job = line != "end-job";
    } else if (line.starts_with("scheduler job name ")) {
      in_job = true;
    } else if (line.starts_with("scheduler schedule name ")) {
      in_schedule = true;
    } else if (line.empty()) {
      in_schedule = false;
    } else if (in_schedule && passed_start(line, now)) {
      kept += "  ";
      continue;
    }
    kept += line + "\n";
  }
  return kept;
}

void send_requests(fuzz::Reader &input) {
  while (!input.empty()) {
    uint8_t selector = input.byte();
    // By the selector's low bits; 3 and 4 take their opcode, 5 its service and opcode, from the input.
    static constexpr uint32_t kServices[] = {SCH_SERVICE_CONFIG, SCH_SERVICE_DISPLAY, SCH_SERVICE_DISPLAY, FM_SERVICE,
                                             ACFG_SERVICE};
    static constexpr uint32_t kOpcodes[] = {SCH_OPCODE_CONFIG, SCH_OPCODE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE};
    size_t route = (selector & 7) > 5 ? 0 : selector & 7;
    uint32_t service = route == 5 ? input.u32() : kServices[route];
    uint32_t opcode = route == 5 ? input.u32() : route >= 3 ? input.byte() : kOpcodes[route];
    std::string_view body = input.bytes(input.u16());
    std::vector<uint8_t> bytes(body.begin(), body.end());
    if ((selector & 0x80) && bytes.size() >= sizeof(sch_request_header)) {
      sch_wire_put_u32(bytes.data() + 4, static_cast<uint32_t>(bytes.size() - sizeof(sch_request_header)));
    }
    schedd::Reply reply = g_world->local.ask(service, opcode, bytes);
    drain(reply);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
  fuzz::begin_run(argc, argv);
  g_world = new World;
  std::string error;
  require(g_world->local.start(&error), error.c_str());
  const schedd::Options &options = g_world->local.options;
  g_world->shell = std::make_unique<fuzz::ShellOnPeer>(answer, options.state_dir, options.runtime_dir);
  g_world->empty_text = g_world->local.running_text();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  uint64_t blocks_before = mtrack_live_blocks(SCH_MTRACK_IDENTITY);
  fuzz::Reader input(data, size);
  send_requests(input);

  if (!scheduler_enabled) require(set_feature(FM_FEATURE_ENABLE) == 0, "feature on again");
  std::string text = g_world->local.running_text();
  empty_configuration();
  size_t text_hash = std::hash<std::string>{}(text);
  if (text != g_world->empty_text && !g_world->pasted.contains(text_hash)) {
    paste(text);
    std::time_t pasted_at = std::time(nullptr);
    text = without_credentials(text);
    std::string pasted = without_credentials(g_world->local.running_text());
    bool same = pasted == without_passed_starts(text, pasted_at);
    if (!same) std::fprintf(fuzz::report(), "---- running text\n%s---- pasted back\n%s----\n", text.c_str(), pasted.c_str());
    require(same, "the running text pasted back gives the same configuration");
    empty_configuration();
    if (g_world->pasted.size() >= kMaxPastedTexts) g_world->pasted.clear();
    g_world->pasted.insert(text_hash);
  }
  require(mtrack_live_blocks(SCH_MTRACK_IDENTITY) == blocks_before, "tracked blocks back to their level");
  return 0;
}
