// Replay of a saved configuration text onto the running scheduler: only what does not hold
// already is sent, through the shell's own commands, and the jobs and schedules go to the daemon
// as one change that holds whole or not at all.
#ifndef SCHEDSH_REPLAY_H
#define SCHEDSH_REPLAY_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "configuration.h"
#include "shell.h"

namespace schedsh {

struct ReplayCounts {
  std::size_t settings = 0;
  std::size_t settings_removed = 0;
  std::size_t jobs_added = 0;
  std::size_t jobs_redefined = 0;
  std::size_t schedules_added = 0;
  std::size_t schedules_changed = 0;
  std::size_t jobs_removed = 0;
  std::size_t schedules_removed = 0;
  std::size_t failed = 0;      // changes the daemon or the grammar refused (each said why)
  std::size_t unchanged = 0;
  bool applied = true;         // false: none of the jobs and schedules changed
};

// Runs `changes` from configuration mode, as if typed, and returns to the mode the shell was in.
// The settings go first, each on its own; then the removals, jobs and schedules are gathered and
// sent as one apply, all or nothing; settings to take away follow once that holds. Failures are printed (by the commands, or a line naming the
// object the daemon refused) and counted.
ReplayCounts apply_changes(Shell &shell, const ConfigurationChanges &changes);

// "3 jobs added, 1 schedule changed; 12 unchanged", or "nothing to change; 12 unchanged"; when
// the apply failed, "...; no job or schedule changed" follows.
std::string describe(const ReplayCounts &counts);

// The changes as the lines a replace sends, one object a line, each marked: "+" added, "-"
// removed, "~" changed, with the commands sent inside a changed schedule indented beneath it.
std::string describe_difference(const ConfigurationChanges &changes);

// Makes the running configuration equal to `text`: the difference is printed first and, at a
// terminal, the operator is asked; then it is applied as one change. Ends with one line naming
// `source`. False when nothing was replaced.
bool replace_configuration(Shell &shell, std::string_view text, std::string_view source);

// Makes the configuration `text` hold on the running scheduler and ends with one line naming
// `source` and what was changed. False when the running configuration could not be read, the
// text is not whole, or any change failed.
bool replay_configuration(Shell &shell, std::string_view text, std::string_view source);

// The whole of a file of commands or configuration; nothing, with `why`, when it cannot be read,
// holds a NUL byte or is far larger than any configuration.
std::optional<std::string> read_configuration_file(const std::string &path, std::string *why);

}  // namespace schedsh

#endif
