// The mode table of the shell.
#include "modes.h"

#include <array>

namespace schedsh {

namespace {

// Job mode has no fall-back: a job's lines may look like commands and must stay job text. Its
// prompt says how it ends, since `exit` and `end` are job lines there.
// A schedule's block in the configuration text ends with a blank line (or with a time line that
// is only blanks, when the schedule has no time), so a blank line closes schedule mode.
constexpr std::array<ModeInfo, 4> kModes = {{
    {Mode::Exec, "exec", "schedsh# ", std::nullopt, std::nullopt, false, false},
    {Mode::Config, "configuration", "schedsh(config)# ", Mode::Exec, std::nullopt, false, false},
    {Mode::Job, "job", "schedsh(config-job, end-job ends)# ", Mode::Config, std::nullopt, true, false},
    {Mode::Schedule, "schedule", "schedsh(config-schedule)# ", Mode::Config, Mode::Config, false, true},
}};

}  // namespace

const ModeInfo &mode_info(Mode mode) {
  for (const ModeInfo &info : kModes) {
    if (info.mode == mode) return info;
  }
  return kModes[0];  // unreachable: every Mode is in the table
}

}  // namespace schedsh
