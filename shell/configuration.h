// The configuration text that `show running-config` prints, read back into its objects, and
// the changes that make one configuration hold on top of another.
//
// Working out what to change is kept apart from sending it, so that the whole set of changes
// can be handed on at once.
#ifndef SCHEDSH_CONFIGURATION_H
#define SCHEDSH_CONFIGURATION_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace schedsh {

struct JobBlock {
  std::string name;
  std::vector<std::string> lines;   // the job's commands, as stored
  // The text job mode sends for these lines: each followed by a newline.
  std::string text() const;
};

struct ScheduleBlock {
  std::string name;
  std::string time;                  // "time ..." words joined by one blank; empty: none
  std::vector<std::string> jobs;
  std::vector<std::string> emails;
};

struct Configuration {
  // One-line commands of configuration mode, in order, words joined by one blank.
  std::vector<std::string> settings;
  std::vector<JobBlock> jobs;
  std::vector<ScheduleBlock> schedules;

  const JobBlock *job(std::string_view name) const;
  const ScheduleBlock *schedule(std::string_view name) const;
};

// Reads a configuration text as the shell would run it from configuration mode: a job block runs
// to its end-job line, a schedule block to a blank line or the first line that is no schedule
// command. Comments ('!'), and mode lines outside a job (configure terminal, end, exit) are
// skipped. Nothing here checks the commands themselves; running them does.
// Fails (nothing, with `error` naming the line) only when a job block has no end-job.
std::optional<Configuration> parse_configuration(std::string_view text, std::string *error);

struct JobChange {
  std::string name;
  std::vector<std::string> lines;
  bool exists = false;   // in the running configuration already, with other commands
};

struct ScheduleChange {
  std::string name;
  bool exists = false;
  std::vector<std::string> lines;   // schedule-mode commands to run in it
};

// What has to be sent so that every object of a wanted configuration holds: settings that are
// not in force as written, jobs that are missing or have other commands, and schedules that
// are missing or lack a time, job or address of the wanted one. Nothing is taken away.
struct ConfigurationChanges {
  std::vector<std::string> settings;
  std::vector<JobChange> jobs;
  std::vector<ScheduleChange> schedules;
  std::vector<std::string> removed_schedules;   // a replace's: in the running configuration only
  std::vector<std::string> removed_jobs;
  std::vector<std::string> removed_settings;    // the running lines; their no forms take them away
  std::size_t unchanged = 0;   // settings, jobs and schedules that hold already

  bool empty() const {
    return settings.empty() && jobs.empty() && schedules.empty() && removed_schedules.empty() && removed_jobs.empty() &&
           removed_settings.empty();
  }
};

ConfigurationChanges changes_to_hold(const Configuration &wanted, const Configuration &running);

// What makes the running configuration equal to the wanted one: the changes to hold, and the
// removal of every job, schedule, assignment, time and address that the wanted configuration
// lacks, and of every setting it does not set at all (the feature itself stays on).
ConfigurationChanges changes_to_replace(const Configuration &wanted, const Configuration &running);

// The no form that takes a removed setting away; nothing for a setting a replace leaves alone.
std::optional<std::string> setting_removal(const std::string &setting);

}  // namespace schedsh

#endif
