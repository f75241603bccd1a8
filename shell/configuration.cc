// Reading configuration text and working out the changes that make it hold.
#include "configuration.h"

#include <algorithm>

#include "command_table.h"
#include "tokenizer.h"

namespace schedsh {

namespace {

std::string joined(const std::vector<std::string> &words, std::size_t from = 0) {
  std::string text;
  for (std::size_t i = from; i < words.size(); ++i) {
    if (i > from) text += ' ';
    text += words[i];
  }
  return text;
}

// The words are the keywords given, each possibly abbreviated, followed by `extra` more words.
bool is_command(const std::vector<std::string> &words, std::initializer_list<std::string_view> keywords,
                std::size_t extra) {
  if (words.size() != keywords.size() + extra) return false;
  std::size_t i = 0;
  for (std::string_view keyword : keywords) {
    if (!keyword_matches(words[i++], keyword)) return false;
  }
  return true;
}

bool is_mode_line(const std::vector<std::string> &words) {
  return is_command(words, {"configure", "terminal"}, 0) || is_command(words, {"end"}, 0) ||
         is_command(words, {"exit"}, 0);
}

std::vector<std::string_view> text_lines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

template <typename Block>
const Block *find_block(const std::vector<Block> &blocks, std::string_view name) {
  auto found = std::find_if(blocks.begin(), blocks.end(), [&](const Block &block) { return block.name == name; });
  return found == blocks.end() ? nullptr : &*found;
}

bool contains(const std::vector<std::string> &list, const std::string &item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

}  // namespace

std::string JobBlock::text() const {
  std::string text;
  for (const std::string &line : lines) {
    text += line;
    text += '\n';
  }
  return text;
}

const JobBlock *Configuration::job(std::string_view name) const { return find_block(jobs, name); }

const ScheduleBlock *Configuration::schedule(std::string_view name) const { return find_block(schedules, name); }

std::optional<Configuration> parse_configuration(std::string_view text, std::string *error) {
  Configuration configuration;
  std::vector<std::string_view> lines = text_lines(text);
  JobBlock *job = nullptr;
  std::size_t job_line = 0;
  ScheduleBlock *schedule = nullptr;
  for (std::size_t number = 0; number < lines.size(); ++number) {
    std::string_view line = lines[number];
    if (job) {
      if (trim(line) == "end-job") {
        job = nullptr;
      } else {
        job->lines.emplace_back(line);
      }
      continue;
    }
    std::string_view content = trim(line);
    if (content.empty()) {
      schedule = nullptr;
      continue;
    }
    if (content.front() == '!') continue;
    std::vector<std::string> words = word_texts(tokenize(content));
    if (schedule) {
      if (is_command(words, {"job", "name"}, 1)) {
        if (!contains(schedule->jobs, words[2])) schedule->jobs.push_back(words[2]);
        continue;
      }
      if (words.size() >= 2 && keyword_matches(words[0], "time")) {
        schedule->time = "time " + joined(words, 1);
        continue;
      }
      if (is_command(words, {"email-addr"}, 1)) {
        if (!contains(schedule->emails, words[1])) schedule->emails.push_back(words[1]);
        continue;
      }
      schedule = nullptr;   // a configuration command: the block has ended, as in the shell
    }
    if (is_mode_line(words)) continue;
    if (is_command(words, {"scheduler", "job", "name"}, 1)) {
      configuration.jobs.push_back(JobBlock{words[3], {}});
      job = &configuration.jobs.back();
      job_line = number + 1;
      continue;
    }
    if (is_command(words, {"scheduler", "schedule", "name"}, 1)) {
      configuration.schedules.push_back(ScheduleBlock{words[3], {}, {}, {}});
      schedule = &configuration.schedules.back();
      continue;
    }
    configuration.settings.push_back(joined(words));
  }
  if (job) {
    if (error) *error = "line " + std::to_string(job_line) + ": job " + job->name + " has no end-job";
    return std::nullopt;
  }
  return configuration;
}

ConfigurationChanges changes_to_hold(const Configuration &wanted, const Configuration &running) {
  ConfigurationChanges changes;
  for (const std::string &setting : wanted.settings) {
    if (contains(running.settings, setting) || contains(changes.settings, setting)) {
      ++changes.unchanged;
    } else {
      changes.settings.push_back(setting);
    }
  }
  for (const JobBlock &job : wanted.jobs) {
    const JobBlock *current = running.job(job.name);
    if (current && current->lines == job.lines) {
      ++changes.unchanged;
    } else {
      changes.jobs.push_back(JobChange{job.name, job.lines, current != nullptr});
    }
  }
  for (const ScheduleBlock &schedule : wanted.schedules) {
    const ScheduleBlock *current = running.schedule(schedule.name);
    ScheduleChange change{schedule.name, current != nullptr, {}};
    for (const std::string &job : schedule.jobs) {
      if (!current || !contains(current->jobs, job)) change.lines.push_back("job name " + job);
    }
    if (!schedule.time.empty() && (!current || current->time != schedule.time)) change.lines.push_back(schedule.time);
    for (const std::string &email : schedule.emails) {
      if (!current || !contains(current->emails, email)) change.lines.push_back("email-addr " + email);
    }
    if (current && change.lines.empty()) {
      ++changes.unchanged;
    } else {
      changes.schedules.push_back(std::move(change));
    }
  }
  return changes;
}

namespace {

// The settings a replace takes away, by the words that name them; the value follows. A credential
// is named by its user as well.
constexpr std::string_view kRemovableSettings[] = {
    "logging level scheduler",        "scheduler logfile size",          "scheduler logfile name",
    "scheduler transport email from", "scheduler transport email reply-to", "scheduler transport email smtp-server"};

// The words that name a setting, or nothing for one a replace leaves alone.
std::optional<std::string> setting_name(const std::string &setting) {
  for (std::string_view name : kRemovableSettings) {
    if (setting.starts_with(std::string(name) + " ")) return std::string(name);
  }
  std::vector<std::string> words = word_texts(tokenize(setting));
  if (words.size() > 4 && words[0] == "scheduler" && words[1] == "aaa-authentication" && words[2] == "username") {
    return joined({words.begin(), words.begin() + 4});
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> setting_removal(const std::string &setting) {
  std::optional<std::string> name = setting_name(setting);
  if (!name) return std::nullopt;
  return "no " + *name;
}

ConfigurationChanges changes_to_replace(const Configuration &wanted, const Configuration &running) {
  ConfigurationChanges changes = changes_to_hold(wanted, running);
  for (const std::string &setting : running.settings) {
    std::optional<std::string> name = setting_name(setting);
    if (!name) continue;
    bool still_set = std::any_of(wanted.settings.begin(), wanted.settings.end(),
                                 [&](const std::string &other) { return setting_name(other) == name; });
    if (!still_set) changes.removed_settings.push_back(setting);
  }
  for (const ScheduleBlock &schedule : running.schedules) {
    if (!wanted.schedule(schedule.name)) changes.removed_schedules.push_back(schedule.name);
  }
  for (const JobBlock &job : running.jobs) {
    if (!wanted.job(job.name)) changes.removed_jobs.push_back(job.name);
  }
  // What a kept schedule has beyond the wanted one goes first in its block, so that a time is
  // taken away before another is set.
  std::vector<ScheduleChange> kept;
  for (const ScheduleBlock &schedule : wanted.schedules) {
    const ScheduleBlock *current = running.schedule(schedule.name);
    if (!current) continue;
    std::vector<std::string> removals;
    for (const std::string &job : current->jobs) {
      // A removed job leaves its schedules with it.
      if (!contains(schedule.jobs, job) && !contains(changes.removed_jobs, job)) {
        removals.push_back("no job name " + job);
      }
    }
    if (!current->time.empty() && schedule.time.empty()) removals.push_back("no " + current->time);
    for (const std::string &email : current->emails) {
      if (!contains(schedule.emails, email)) removals.push_back("no email-addr " + email);
    }
    if (removals.empty()) continue;
    auto found = std::find_if(changes.schedules.begin(), changes.schedules.end(),
                              [&](const ScheduleChange &change) { return change.name == schedule.name; });
    if (found == changes.schedules.end()) {
      --changes.unchanged;
      changes.schedules.push_back(ScheduleChange{schedule.name, true, removals});
    } else {
      found->lines.insert(found->lines.begin(), removals.begin(), removals.end());
    }
  }
  return changes;
}

}  // namespace schedsh
