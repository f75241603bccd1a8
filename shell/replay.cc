// Replay of configuration text.
#include "replay.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "schedcli/platform/acfg.h"
#include "schedcli/platform/cmi.h"
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

bool remove(Shell &shell, std::string_view kind, const std::string &name) {
  return shell.execute("no scheduler " + std::string(kind) + " name " + name);
}

// The records one object's change gave the gathering, and the line that names it.
struct GatheredObject {
  std::string line;
  std::size_t first;
  std::size_t end;
};

enum class Outcome { removed_schedule, removed_job, added_job, redefined_job, added_schedule, changed_schedule };

void count_outcome(ReplayCounts *counts, Outcome outcome) {
  switch (outcome) {
    case Outcome::removed_schedule: ++counts->schedules_removed; break;
    case Outcome::removed_job: ++counts->jobs_removed; break;
    case Outcome::added_job: ++counts->jobs_added; break;
    case Outcome::redefined_job: ++counts->jobs_redefined; break;
    case Outcome::added_schedule: ++counts->schedules_added; break;
    case Outcome::changed_schedule: ++counts->schedules_changed; break;
  }
}

// Runs the removals, jobs and schedules as commands against the gathering, then has them applied
// as one. Fills in `counts` with what changed, or with what failed when nothing did.
void apply_objects(Shell &shell, const ConfigurationChanges &changes, ReplayCounts *counts) {
  std::string why;
  cmi_session *daemon = shell.session().session;
  cmi_session *gathering = shell.backend().gather_changes(daemon, &why);
  if (!gathering) {
    shell.err() << "% The changes could not be gathered: " << why << "\n";
    counts->applied = false;
    ++counts->failed;
    return;
  }
  shell.session().session = gathering;
  std::vector<GatheredObject> objects;
  std::vector<Outcome> outcomes;
  std::size_t refused = 0;
  auto run = [&](std::string line, Outcome outcome, auto &&change) {
    std::size_t first = shell.backend().gathered();
    bool ok = change();
    shell.enter(Mode::Config);
    objects.push_back({std::move(line), first, shell.backend().gathered()});
    outcomes.push_back(outcome);
    if (!ok) ++refused;
  };
  // Removals first: a removed job frees its slot for an added one.
  for (const std::string &name : changes.removed_schedules) {
    run("no scheduler schedule name " + name, Outcome::removed_schedule,
        [&] { return remove(shell, "schedule", name); });
  }
  for (const std::string &name : changes.removed_jobs) {
    run("no scheduler job name " + name, Outcome::removed_job, [&] { return remove(shell, "job", name); });
  }
  for (const JobChange &job : changes.jobs) {
    run("scheduler job name " + job.name, job.exists ? Outcome::redefined_job : Outcome::added_job,
        [&] { return job.exists ? redefine_job(shell, job) : add_job(shell, job); });
  }
  for (const ScheduleChange &schedule : changes.schedules) {
    run("scheduler schedule name " + schedule.name,
        schedule.exists ? Outcome::changed_schedule : Outcome::added_schedule,
        [&] { return change_schedule(shell, schedule); });
  }
  shell.session().session = daemon;

  std::vector<ApplyFailure> failures;
  uint32_t status = shell.backend().apply_gathered(daemon, refused == 0, false, &failures);
  if (refused == 0 && status == 0) {
    for (Outcome outcome : outcomes) count_outcome(counts, outcome);
    return;
  }
  counts->applied = false;
  counts->failed += refused;
  std::vector<bool> named(objects.size(), false);
  for (const ApplyFailure &failure : failures) {
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (failure.index < objects[i].first || failure.index >= objects[i].end) continue;
      shell.err() << "% " << printable_text(objects[i].line) << ": " << syserr2str(failure.status) << "\n";
      if (!named[i]) ++counts->failed;
      named[i] = true;
    }
  }
  if (refused == 0 && failures.empty()) {
    shell.err() << "% The changes could not be applied: " << syserr2str(status) << "\n";
    ++counts->failed;
  }
}

}  // namespace

ReplayCounts apply_changes(Shell &shell, const ConfigurationChanges &changes) {
  ReplayCounts counts;
  counts.unchanged = changes.unchanged;
  Mode mode = shell.mode();
  shell.enter(Mode::Config);
  // Settings go first, one by one: the feature, the credentials and the transport are what the
  // daemon checks jobs and schedules against.
  for (const std::string &setting : changes.settings) {
    bool ok = shell.execute(setting);
    ++(ok ? counts.settings : counts.failed);
    if (shell.mode() != Mode::Config) shell.enter(Mode::Config);
  }
  if (!changes.jobs.empty() || !changes.schedules.empty() || !changes.removed_jobs.empty() ||
      !changes.removed_schedules.empty()) {
    apply_objects(shell, changes, &counts);
  }
  // A removed credential or transport could be what a refused job or schedule still needed.
  for (const std::string &setting : counts.applied ? changes.removed_settings : std::vector<std::string>{}) {
    std::optional<std::string> removal = setting_removal(setting);
    bool ok = removal && shell.execute(*removal);
    ++(ok ? counts.settings_removed : counts.failed);
    if (shell.mode() != Mode::Config) shell.enter(Mode::Config);
  }
  shell.enter(mode);
  return counts;
}

std::string describe(const ReplayCounts &counts) {
  std::string text;
  count(text, counts.settings, "setting", "settings", "changed");
  count(text, counts.settings_removed, "setting", "settings", "removed");
  count(text, counts.jobs_added, "job", "jobs", "added");
  count(text, counts.jobs_redefined, "job", "jobs", "redefined");
  count(text, counts.jobs_removed, "job", "jobs", "removed");
  count(text, counts.schedules_added, "schedule", "schedules", "added");
  count(text, counts.schedules_changed, "schedule", "schedules", "changed");
  count(text, counts.schedules_removed, "schedule", "schedules", "removed");
  count(text, counts.failed, "change", "changes", "failed");
  if (text.empty()) text = "nothing to change";
  text += "; " + std::to_string(counts.unchanged) + " unchanged";
  return counts.applied ? text : text + "; no job or schedule changed";
}

std::string describe_difference(const ConfigurationChanges &changes) {
  std::string text;
  auto line = [&](std::string_view mark, const std::string &content) {
    text += std::string(mark) + printable_text(content) + "\n";
  };
  for (const std::string &setting : changes.settings) line("+ ", setting);
  for (const std::string &setting : changes.removed_settings) line("- ", setting);
  for (const std::string &name : changes.removed_schedules) line("- ", "scheduler schedule name " + name);
  for (const std::string &name : changes.removed_jobs) line("- ", "scheduler job name " + name);
  for (const JobChange &job : changes.jobs) line(job.exists ? "~ " : "+ ", "scheduler job name " + job.name);
  for (const ScheduleChange &schedule : changes.schedules) {
    line(schedule.exists ? "~ " : "+ ", "scheduler schedule name " + schedule.name);
    for (const std::string &command : schedule.lines) line("    ", command);
  }
  return text;
}

namespace {

// The wanted and the running configuration read; nothing, after a line naming `source`, when
// either cannot be had.
std::optional<std::pair<Configuration, Configuration>> read_both(Shell &shell, std::string_view text,
                                                                 std::string_view source) {
  std::string error;
  std::optional<Configuration> wanted = parse_configuration(text, &error);
  if (!wanted) {
    shell.err() << "% Nothing copied from " << printable_text(source) << ": " << error << "\n";
    return std::nullopt;
  }
  std::string running_text;
  uint32_t status = shell.backend().config_text(shell.session().session, ACFG_CFG_RUNNING, &running_text);
  if (status != 0) {
    shell.err() << "% Nothing copied from " << printable_text(source)
                << ": the running configuration could not be read: " << syserr2str(status) << "\n";
    return std::nullopt;
  }
  std::optional<Configuration> running = parse_configuration(running_text, &error);
  if (!running) {
    shell.err() << "% Nothing copied from " << printable_text(source) << ": the running configuration is not whole: "
                << error << "\n";
    return std::nullopt;
  }
  return std::make_pair(std::move(*wanted), std::move(*running));
}

}  // namespace

bool replay_configuration(Shell &shell, std::string_view text, std::string_view source) {
  auto both = read_both(shell, text, source);
  if (!both) return false;
  ReplayCounts counts = apply_changes(shell, changes_to_hold(both->first, both->second));
  shell.out() << "Copied " << printable_text(source) << " to running-config: " << describe(counts) << "\n";
  shell.out().flush();
  return counts.failed == 0;
}

bool replace_configuration(Shell &shell, std::string_view text, std::string_view source) {
  auto both = read_both(shell, text, source);
  if (!both) return false;
  ConfigurationChanges changes = changes_to_replace(both->first, both->second);
  if (!changes.empty()) {
    shell.out() << describe_difference(changes);
    shell.out().flush();
    if (shell.interactive() && !shell.confirm("Replace the running configuration?")) {
      shell.out() << "Nothing replaced: running-config kept\n";
      return false;
    }
  }
  ReplayCounts counts = apply_changes(shell, changes);
  shell.out() << "Replaced running-config with " << printable_text(source) << ": " << describe(counts) << "\n";
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
