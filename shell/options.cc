// Command-line options of schedsh.
#include "options.h"

#include <charconv>

namespace schedsh {

const char kUsage[] =
    "Usage: schedsh [options] [file]\n"
    "The scheduler's command shell. At a terminal it prompts for commands, with '?' for help\n"
    "and Tab to complete a word. Otherwise it runs the commands of the file or of standard\n"
    "input, one a line, printing only what they print; a line ending in '?' prints help.\n"
    "The exit status is 1 when any command failed.\n"
    "\n"
    "Options:\n"
    "  -c COMMAND          run COMMAND (may be repeated; the file and standard input are not read)\n"
    "  --runtime-dir DIR   the daemon's runtime directory, where its socket is\n"
    "  --state-dir DIR     the scheduler's state directory, where the device key is\n"
    "  --timeout SECONDS   how long a command waits for the daemon (default 30)\n"
    "  --debug             trace what the commands send (as the command 'debug scheduler')\n"
    "  -h, --help          print this help\n"
    "  --version           print the version\n";

namespace {

// The value of an option given as "--name value" or "--name=value".
bool option_value(std::span<const std::string> arguments, std::size_t &index, const std::string &name,
                  std::optional<std::string> &value, std::string &error) {
  const std::string &argument = arguments[index];
  if (argument == name) {
    if (index + 1 >= arguments.size()) {
      error = "option " + name + " needs a value";
      return true;
    }
    value = arguments[++index];
    return true;
  }
  if (argument.starts_with(name + "=")) {
    value = argument.substr(name.size() + 1);
    return true;
  }
  return false;
}

}  // namespace

ParsedOptions parse_options(std::span<const std::string> arguments) {
  ParsedOptions parsed;
  Options &options = parsed.options;
  bool only_files = false;
  for (std::size_t i = 0; i < arguments.size() && parsed.error.empty(); ++i) {
    const std::string &argument = arguments[i];
    std::optional<std::string> value;
    if (only_files || argument == "-" || !argument.starts_with("-")) {
      if (options.script) {
        parsed.error = "only one file of commands can be given";
      } else if (argument != "-") {
        options.script = argument;
      }
    } else if (argument == "--") {
      only_files = true;
    } else if (argument == "-h" || argument == "--help") {
      options.help = true;
    } else if (argument == "--version") {
      options.version = true;
    } else if (argument == "--debug") {
      options.debug = true;
    } else if (argument.starts_with("-c")) {
      if (argument.size() > 2) {
        options.commands.push_back(argument.substr(2));
      } else if (i + 1 < arguments.size()) {
        options.commands.push_back(arguments[++i]);
      } else {
        parsed.error = "option -c needs a command";
      }
    } else if (option_value(arguments, i, "--runtime-dir", value, parsed.error)) {
      if (value && value->empty()) parsed.error = "option --runtime-dir needs a directory";
      options.runtime_dir = value;
    } else if (option_value(arguments, i, "--state-dir", value, parsed.error)) {
      if (value && value->empty()) parsed.error = "option --state-dir needs a directory";
      options.state_dir = value;
    } else if (option_value(arguments, i, "--timeout", value, parsed.error)) {
      if (!value) continue;
      uint32_t seconds = 0;
      auto [end, problem] = std::from_chars(value->data(), value->data() + value->size(), seconds);
      if (problem != std::errc() || end != value->data() + value->size() || seconds == 0 || seconds > 3600) {
        parsed.error = "option --timeout needs a number of seconds from 1 to 3600";
      } else {
        options.timeout_seconds = seconds;
      }
    } else {
      parsed.error = "unknown option " + argument;
    }
  }
  if (parsed.error.empty() && options.script && !options.commands.empty()) {
    parsed.error = "give either commands with -c or a file, not both";
  }
  return parsed;
}

}  // namespace schedsh
