// Fuzzing of the shell's line handling: tokenizing, matching against the command table in every
// mode, help and completion, job text gathering, and the handlers the matched commands call,
// against a peer on the daemon's socket that accepts every request.
//
// Input: lines of text, run one after another in one shell (so that modes and job text build up).
// A line ending in a tab also asks for completion of the text before the tab, as the key does at
// a terminal; one ending in '?' runs as the help request it is. Asking only where the input does
// keeps the run fast: help and completion walk the whole command table.
#include <strings.h>

#include <optional>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "schedcli/platform/acfg.h"
#include "tokenizer.h"

namespace {

using fuzz::require;

constexpr size_t kMaxLines = 200;

fuzz::ShellOnPeer *g_world;

// Every request succeeds; the configuration text is an empty stream.
void answer(int connection, const cmi_request &request) {
  if (request.service == ACFG_SERVICE && request.opcode == ACFG_OP_CONFIG_TEXT) {
    cmi_server_stream_end(connection, request.token, 0);
    return;
  }
  cmi_server_reply(connection, request.token, 0, nullptr, 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
  fuzz::begin_run(argc, argv);
  g_world = new fuzz::ShellOnPeer(answer);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader input(data, size);
  schedsh::Shell shell = g_world->shell();
  for (size_t lines = 0; !input.empty() && lines < kMaxLines && !shell.finished(); lines++) {
    std::string line(input.line());
    if (line.ends_with('\t')) {
      std::string_view typed = std::string_view(line).substr(0, line.size() - 1);
      schedsh::Shell::Completion completion = shell.complete(typed);
      for (const std::string &candidate : completion.candidates) {
        // Keywords match in any case.
        require(strncasecmp(candidate.c_str(), completion.partial.c_str(), completion.partial.size()) == 0,
                "a completion begins with the word being completed");
      }
    }
    std::optional<std::string_view> help_text = schedsh::help_request(line);
    require(!shell.prompt().empty(), "every mode has a prompt");
    // Job mode takes lines as they are, and a NUL byte is refused before anything else.
    bool asks_help = help_text.has_value() && shell.mode() != schedsh::Mode::Job && line.find('\0') == std::string::npos;
    bool done = shell.execute(line);
    require(done || !asks_help, "a request for help never fails");
  }
  shell.finish();
  return 0;
}
