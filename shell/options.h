// The command line of schedsh.
#ifndef SCHEDSH_OPTIONS_H
#define SCHEDSH_OPTIONS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace schedsh {

struct Options {
  std::vector<std::string> commands;        // -c, in order
  std::optional<std::string> script;        // a file of commands
  std::optional<std::string> runtime_dir;   // the daemon's socket is "<dir>/schedd.sock"
  std::optional<std::string> state_dir;     // holds the device key for type-7 passwords
  std::optional<uint32_t> timeout_seconds;  // how long one request may wait for the daemon
  bool debug = false;
  bool help = false;
  bool version = false;
};

struct ParsedOptions {
  Options options;
  std::string error;   // empty when the arguments were understood
};

// Parses the arguments after the program name.
ParsedOptions parse_options(std::span<const std::string> arguments);

extern const char kUsage[];

}  // namespace schedsh

#endif
