// Replay of configuration text.
#include "replay.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "schedcli/platform/acfg.h"
#include "schedcli/platform/syserr.h"
#include "words.h"

namespace schedsh {

namespace {

// A configuration text is small; anything far larger is not one.
constexpr std::size_t kFileLimit = 16u << 20;

void count(std::string &text, std::size_t number, std::string_view one, std::string_view many,
           std::string_view what) {
  if (number == 0) return;
  if (!text.empty()) text += ", ";
  text += std::to_string(number) + " " + std::string(number == 1 ? one : many) + " " + std::string(what);
}

bool redefine_job(Shell &shell, const JobChange &job) {
  for (const std::string &line : job.lines) {
    if (std::optional<std::string_view> problem = job_line_problem(line)) {
      shell.err() << "% Job " << printable_word(job.name) << " not redefined: " << *problem << "\n";
      return false;
    }
  }
  CommandContext context(shell.session(), false);
  return shell.backend().define_job(*context.get(), job.name, JobBlock{job.name, job.lines}.text()) == 0;
}

bool add_job(Shell &shell, const JobChange &job) {
  bool ok = shell.execute("scheduler job name " + job.name);
  for (const std::string &line : job.lines) {
    if (shell.mode() != Mode::Job) break;
    ok = shell.execute(line) && ok;
  }
  if (shell.mode() == Mode::Job) ok = shell.execute("end-job") && ok;
  return ok;
}

bool change_schedule(Shell &shell, const ScheduleChange &schedule) {
  bool ok = shell.execute("scheduler schedule name " + schedule.name);
  if (shell.mode() != Mode::Schedule) return false;
  for (const std::string &line : schedule.lines) ok = shell.execute(line) && ok;
  shell.enter(Mode::Config);
  return ok;
}

}  // namespace

ReplayCounts apply_changes(Shell &shell, const ConfigurationChanges &changes) {
  ReplayCounts counts;
  counts.unchanged = changes.unchanged;
  Mode mode = shell.mode();
  shell.enter(Mode::Config);
  for (const std::string &setting : changes.settings) {
    bool ok = shell.execute(setting);
    ++(ok ? counts.settings : counts.failed);
    if (shell.mode() != Mode::Config) shell.enter(Mode::Config);
  }
  for (const JobChange &job : changes.jobs) {
    bool ok = job.exists ? redefine_job(shell, job) : add_job(shell, job);
    ++(!ok ? counts.failed : job.exists ? counts.jobs_redefined : counts.jobs_added);
    shell.enter(Mode::Config);
  }
  for (const ScheduleChange &schedule : changes.schedules) {
    bool ok = change_schedule(shell, schedule);
    ++(!ok ? counts.failed : schedule.exists ? counts.schedules_changed : counts.schedules_added);
    shell.enter(Mode::Config);
  }
  shell.enter(mode);
  return counts;
}

std::string describe(const ReplayCounts &counts) {
  std::string text;
  count(text, counts.settings, "setting", "settings", "changed");
  count(text, counts.jobs_added, "job", "jobs", "added");
  count(text, counts.jobs_redefined, "job", "jobs", "redefined");
  count(text, counts.schedules_added, "schedule", "schedules", "added");
  count(text, counts.schedules_changed, "schedule", "schedules", "changed");
  count(text, counts.failed, "change", "changes", "failed");
  if (text.empty()) text = "nothing to change";
  return text + "; " + std::to_string(counts.unchanged) + " unchanged";
}

bool replay_configuration(Shell &shell, std::string_view text, std::string_view source) {
  std::string error;
  std::optional<Configuration> wanted = parse_configuration(text, &error);
  if (!wanted) {
    shell.err() << "% Nothing copied from " << printable_text(source) << ": " << error << "\n";
    return false;
  }
  std::string running_text;
  uint32_t status = shell.backend().config_text(shell.session().session, ACFG_CFG_RUNNING, &running_text);
  if (status != 0) {
    shell.err() << "% Nothing copied from " << printable_text(source)
                << ": the running configuration could not be read: " << syserr2str(status) << "\n";
    return false;
  }
  std::optional<Configuration> running = parse_configuration(running_text, &error);
  if (!running) {
    shell.err() << "% Nothing copied from " << printable_text(source) << ": the running configuration is not whole: "
                << error << "\n";
    return false;
  }
  ReplayCounts counts = apply_changes(shell, changes_to_hold(*wanted, *running));
  shell.out() << "Copied " << printable_text(source) << " to running-config: " << describe(counts) << "\n";
  shell.out().flush();
  return counts.failed == 0;
}

std::optional<std::string> read_configuration_file(const std::string &path, std::string *why) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    *why = std::strerror(errno);
    return std::nullopt;
  }
  std::string text;
  char buffer[65536];
  while (file.read(buffer, sizeof buffer) || file.gcount() > 0) {
    text.append(buffer, static_cast<std::size_t>(file.gcount()));
    if (text.size() > kFileLimit) {
      *why = "larger than " + std::to_string(kFileLimit >> 20) + " MiB, so no configuration";
      return std::nullopt;
    }
  }
  if (file.bad()) {
    *why = std::strerror(errno);
    return std::nullopt;
  }
  if (text.find('\0') != std::string::npos) {
    *why = "it holds a NUL byte, so no text";
    return std::nullopt;
  }
  return text;
}

}  // namespace schedsh
