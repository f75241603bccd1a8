// The mode table of the shell.
#include "modes.h"

#include <array>

namespace schedsh {

namespace {

// Job mode has no fall-back: a job's lines may look like commands and must stay job text.
constexpr std::array<ModeInfo, 4> kModes = {{
    {Mode::Exec, "exec", "schedsh# ", std::nullopt, std::nullopt, false},
    {Mode::Config, "configuration", "schedsh(config)# ", Mode::Exec, std::nullopt, false},
    {Mode::Job, "job", "schedsh(config-job)# ", Mode::Config, std::nullopt, true},
    {Mode::Schedule, "schedule", "schedsh(config-schedule)# ", Mode::Config, Mode::Config, false},
}};

}  // namespace

const ModeInfo &mode_info(Mode mode) {
  for (const ModeInfo &info : kModes) {
    if (info.mode == mode) return info;
  }
  return kModes[0];  // unreachable: every Mode is in the table
}

}  // namespace schedsh
