// schedsh: the scheduler's command shell.
#include <unistd.h>

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "library_backend.h"
#include "line_editor.h"
#include "options.h"
#include "replay.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/platform/sysmgr.h"
#include "schedcli_version.h"
#include "shell.h"

namespace {

using schedsh::Shell;

// Runs every line of `input`; false when any failed.
bool run_lines(Shell &shell, std::istream &input) {
  bool ok = true;
  std::string line;
  while (!shell.finished() && std::getline(input, line)) {
    if (!shell.execute(line)) ok = false;
  }
  return ok;
}

// A feature that the daemon turned off takes its commands out of this shell.
void remove_feature_commands(const char *feature, void *shell) { static_cast<Shell *>(shell)->remove_feature(feature); }

std::string default_directory(int (*get)(char *, std::size_t)) {
  char buffer[512];
  return get(buffer, sizeof buffer) == 0 ? std::string(buffer) : std::string();
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  schedsh::ParsedOptions parsed = schedsh::parse_options(arguments);
  if (!parsed.error.empty()) {
    std::cerr << "schedsh: " << parsed.error << "\nTry 'schedsh --help'.\n";
    return 2;
  }
  const schedsh::Options &options = parsed.options;
  if (options.help) {
    std::cout << schedsh::kUsage;
    return 0;
  }
  if (options.version) {
    std::cout << "schedsh (schedcli) " SCHED_VERSION "\n";
    return 0;
  }

  std::string runtime_dir = options.runtime_dir.value_or(default_directory(sysmgr_default_runtime_dir));
  std::string state_dir = options.state_dir.value_or(default_directory(sysmgr_default_state_dir));
  if (runtime_dir.empty() || state_dir.empty()) {
    std::cerr << "schedsh: no default directory for the daemon: give --runtime-dir and --state-dir\n";
    return 1;
  }
  std::string socket_path = runtime_dir + "/" CMI_SOCKET_NAME;
  // Only the daemon reads the device key: it encrypts and decrypts passwords for this shell.
  secrets_daemon_socket_set(socket_path.c_str());
  cmi_session *session = cmi_session_open(socket_path.c_str());
  if (!session) {
    std::cerr << "schedsh: cannot use the daemon's socket path " << socket_path << "\n";
    return 1;
  }
  if (options.timeout_seconds) cmi_session_timeout_set(session, *options.timeout_seconds * 1000u);

  schedsh::CommandTable table;
  schedsh::register_commands(table);
  schedsh::LibraryBackend backend(state_dir, runtime_dir);
  Shell shell(table, backend, schedsh::SessionInfo{session, schedsh::process_user_name(), options.debug}, std::cout,
              std::cerr);
  vsh_parse_tree_hook_set(remove_feature_commands, &shell);
  struct HookRelease {
    ~HookRelease() { vsh_parse_tree_hook_set(nullptr, nullptr); }
  } hook_release;

  bool ok = true;
  if (!options.commands.empty()) {
    for (const std::string &command : options.commands) {
      if (shell.finished()) break;
      if (!shell.execute(command)) ok = false;
    }
  } else if (options.script) {
    std::string why;
    std::optional<std::string> text = schedsh::read_configuration_file(*options.script, &why);
    if (!text) {
      std::cerr << "schedsh: cannot read " << *options.script << "\n";
      cmi_session_close(session);
      return 1;
    }
    // A saved configuration is applied onto the running one; other files are run line by line.
    if (shell.reads_as_configuration(*text)) {
      ok = schedsh::replay_configuration(shell, *text, *options.script);
    } else {
      std::istringstream lines(*text);
      ok = run_lines(shell, lines);
    }
  } else if (isatty(STDIN_FILENO)) {
    ok = schedsh::run_interactive(shell, socket_path,
                                  "schedd --runtime-dir " + runtime_dir + " --state-dir " + state_dir);
  } else {
    ok = run_lines(shell, std::cin);
  }
  if (!shell.finish()) ok = false;
  std::cout.flush();
  cmi_session_close(session);
  return ok ? 0 : 1;
}
