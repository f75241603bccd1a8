// The shell's command modes as data: prompt, parent, and where exit, end and stray commands go.
#ifndef SCHEDSH_MODES_H
#define SCHEDSH_MODES_H

#include <optional>
#include <string_view>

namespace schedsh {

enum class Mode { Exec, Config, Job, Schedule };

struct ModeInfo {
  Mode mode;
  std::string_view name;        // shown in diagnostics and tests
  std::string_view prompt;      // whole prompt, typed after
  std::optional<Mode> parent;   // where `exit` goes; none: `exit` leaves the shell
  std::optional<Mode> falls_back_to;  // a command unknown here is tried in this mode
  bool raw_lines;               // every line is text for the mode, not a command
  bool blank_line_leaves;       // an empty or blank line goes back to the parent
};

// The entry of a mode; every Mode has one.
const ModeInfo &mode_info(Mode mode);

}  // namespace schedsh

#endif
