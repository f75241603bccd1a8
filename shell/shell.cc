// The interpreter of command lines.
#include "shell.h"

#include <algorithm>
#include <cstdio>

#include "configuration.h"
#include "schedcli/platform/acfg.h"
#include "tokenizer.h"
#include "words.h"

namespace schedsh {

namespace {

constexpr std::size_t kShownWordLimit = 40;

std::string_view without_line_end(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  return line;
}

std::vector<std::size_t> word_offsets(const TokenizedLine &line) {
  std::vector<std::size_t> offsets;
  offsets.reserve(line.words.size());
  for (const Word &word : line.words) offsets.push_back(word.begin);
  return offsets;
}

// Words before the cursor and the one being typed (empty after a blank).
std::pair<std::vector<std::string>, std::string> split_for_help(std::string_view text) {
  TokenizedLine line = tokenize(text);
  std::vector<std::string> words = word_texts(line);
  std::string partial;
  if (!line.ends_in_blank && !words.empty()) {
    partial = std::move(words.back());
    words.pop_back();
  }
  return {std::move(words), std::move(partial)};
}

}  // namespace

std::string printable_word(std::string_view word) {
  std::string shown = printable_text(word.substr(0, kShownWordLimit));
  if (word.size() > kShownWordLimit) shown += "...";
  return shown;
}

std::string printable_text(std::string_view word) {
  std::string shown;
  for (std::size_t i = 0; i < word.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(word[i]);
    if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      shown += escaped;
    } else {
      shown += static_cast<char>(c);
    }
  }
  return shown;
}

Shell::Shell(const CommandTable &table, Backend &backend, SessionInfo session, std::ostream &out, std::ostream &err)
    : table_(table), backend_(backend), session_(std::move(session)), out_(out), err_(err) {}

std::string_view Shell::prompt() const { return mode_info(mode_).prompt; }

bool Shell::execute(std::string_view raw) {
  std::string_view line = without_line_end(raw);
  if (line.find('\0') != std::string_view::npos) {
    err_ << "% Invalid command: the line holds a NUL byte\n";
    return false;
  }
  if (mode_info(mode_).raw_lines) return job_line(line);
  if (std::optional<std::string_view> exec = exec_line(line)) return execute_in_exec(*exec);
  std::string_view content = trim(line);
  if (content.empty() && mode_info(mode_).blank_line_leaves) exit_mode();
  if (content.empty() || content.front() == '!') return true;
  if (std::optional<std::string_view> before = help_request(line)) {
    print_help(*before);
    return true;
  }

  TokenizedLine tokens = tokenize(line);
  std::vector<std::string> words = word_texts(tokens);
  Match match = table_.match(mode_, words, removed_features_);
  if (match.status != MatchStatus::Ok) {
    if (std::optional<Mode> fallback = mode_info(mode_).falls_back_to) {
      Match other = table_.match(*fallback, words, removed_features_);
      if (other.status == MatchStatus::Ok) {
        // A command of the enclosing mode leaves this one first, as it would have been typed there.
        enter(*fallback);
        match = std::move(other);
      } else if (match.status == MatchStatus::Invalid && match.error_word == 0) {
        match = std::move(other);
      }
    }
  }
  if (match.status != MatchStatus::Ok) {
    report(match, words);
    return false;
  }
  std::vector<std::size_t> offsets = word_offsets(tokens);
  Arguments arguments(match, words, line, offsets);
  return match.command->action(*this, arguments);
}

std::optional<std::string_view> Shell::exec_line(std::string_view line) const {
  if (mode_ == Mode::Exec || mode_info(mode_).raw_lines) return std::nullopt;
  TokenizedLine tokens = tokenize(line);
  if (tokens.words.empty() || tokens.words.front().text != "do" || line.substr(tokens.words.front().begin, 2) != "do") {
    return std::nullopt;
  }
  return line.substr(tokens.words.front().begin + 2);
}

bool Shell::execute_in_exec(std::string_view line) {
  // Only this line runs in exec mode: a command that would leave it (configure terminal,
  // exit) changes nothing here.
  Mode mode = mode_;
  std::string schedule = schedule_;
  bool finished = finished_;
  mode_ = Mode::Exec;
  bool ok = execute(line);
  mode_ = mode;
  schedule_ = std::move(schedule);
  finished_ = finished;
  return ok;
}

bool Shell::reads_as_configuration(std::string_view text) const {
  while (!text.empty()) {
    std::size_t end = text.find('\n');
    std::string_view content = trim(text.substr(0, end));
    if (!content.empty() && content.front() != '!') {
      std::vector<std::string> words = word_texts(tokenize(content));
      return table_.match(Mode::Exec, words).status != MatchStatus::Ok &&
             table_.match(Mode::Config, words).status == MatchStatus::Ok;
    }
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return false;
}

void Shell::print_job_help() {
  out_ << "  Every line is one command of job " << printable_word(job_) << ", stored as typed (exit and end too)\n"
       << "  end-job   Ends the job and sends its commands\n";
  if (interactive_) out_ << "  Ctrl-C    Abandons the job: nothing typed here is sent\n";
  out_.flush();
}

bool Shell::abandon_job() {
  if (mode_ != Mode::Job) return false;
  std::string name = std::move(job_);
  bool created = send_job_;
  enter(Mode::Config);
  if (created) {
    err_ << "% Job " << printable_word(name) << " abandoned: its commands were not sent (the job stays, empty)\n";
  } else {
    err_ << "% Job " << printable_word(name) << " abandoned\n";
  }
  return true;
}

bool Shell::job_line(std::string_view line) {
  std::string_view content = trim(line);
  if (content == "?") {
    print_job_help();
    return true;
  }
  if (content != "end-job" && send_job_) {
    if (std::optional<std::string_view> problem = job_line_problem(line)) {
      err_ << "% Line not taken: " << *problem << "\n";
      return false;
    }
  }
  if (content == "end-job") {
    std::string name = std::move(job_);
    std::string text = std::move(job_text_);
    bool send = send_job_;
    enter(Mode::Config);
    if (!send) return true;
    CommandContext context(session_, false);
    return backend_.define_job(*context.get(), name, text) == 0;
  }
  if (send_job_) {
    job_text_.append(line);
    job_text_.push_back('\n');
  }
  return true;
}

bool Shell::finish() {
  if (mode_ == Mode::Job && send_job_) {
    err_ << "% Job " << printable_word(job_) << " has no end-job: its commands were not sent\n";
    enter(Mode::Config);
    return false;
  }
  return true;
}

void Shell::report(const Match &match, const std::vector<std::string> &words) {
  std::string word = match.error_word < words.size() ? printable_word(words[match.error_word]) : std::string();
  switch (match.status) {
    case MatchStatus::Incomplete: err_ << "% Incomplete command\n"; break;
    case MatchStatus::Ambiguous: err_ << "% Ambiguous command at '" << word << "'\n"; break;
    case MatchStatus::Refused:
      err_ << "% Invalid " << match.refused_by->what << " at '" << word << "': expected " << match.refused_by->expected
           << "\n";
      break;
    default: err_ << "% Invalid command at '" << word << "'\n"; break;
  }
}

Mode Shell::help_mode(const std::vector<std::string> &words, std::string_view partial) const {
  std::optional<Mode> fallback = mode_info(mode_).falls_back_to;
  if (fallback && table_.help(mode_, words, partial, removed_features_).empty()) return *fallback;
  return mode_;
}

std::vector<HelpItem> Shell::help(std::string_view text) const {
  if (mode_info(mode_).raw_lines) return {};
  if (std::optional<std::string_view> exec = exec_line(text)) {
    auto [words, partial] = split_for_help(*exec);
    return table_.help(Mode::Exec, words, partial, removed_features_);
  }
  auto [words, partial] = split_for_help(text);
  return table_.help(help_mode(words, partial), words, partial, removed_features_);
}

void Shell::print_help(std::string_view text) {
  if (mode_info(mode_).raw_lines) {
    print_job_help();
    return;
  }
  std::vector<HelpItem> items = help(text);
  if (items.empty()) {
    std::optional<std::string_view> exec = exec_line(text);
    auto [words, partial] = split_for_help(exec ? *exec : text);
    if (!partial.empty()) words.push_back(partial);
    Match match = table_.match(exec ? Mode::Exec : help_mode(words, ""), words, removed_features_);
    if (match.status == MatchStatus::Invalid || match.status == MatchStatus::Ambiguous ||
        match.status == MatchStatus::Refused) {
      report(match, words);
    } else {
      err_ << "% No help for this line\n";
    }
    return;
  }
  std::size_t width = 0;
  for (const HelpItem &item : items) width = std::max(width, item.word.size());
  for (const HelpItem &item : items) {
    std::string line = "  " + item.word;
    if (!item.help.empty()) line += std::string(width - item.word.size() + 2, ' ') + item.help;
    out_ << line << '\n';
  }
  out_.flush();
}

Shell::Completion Shell::complete(std::string_view text) {
  Completion completion;
  if (mode_info(mode_).raw_lines) return completion;
  TokenizedLine line = tokenize(text);
  if (line.open_quote) return completion;
  std::optional<std::string_view> exec = exec_line(text);
  auto [words, partial] = split_for_help(exec ? *exec : text);
  Mode mode = exec ? Mode::Exec : mode_;
  completion.partial = partial;
  completion.candidates = table_.completions(mode, words, partial, removed_features_);
  std::vector<std::string> variables = table_.variables(mode, words, removed_features_);
  if (completion.candidates.empty() && variables.empty()) {
    if (std::optional<Mode> fallback = mode_info(mode).falls_back_to) {
      mode = *fallback;
      completion.candidates = table_.completions(mode, words, partial, removed_features_);
      variables = table_.variables(mode, words, removed_features_);
    }
  }
  bool jobs = std::find(variables.begin(), variables.end(), "<job>") != variables.end();
  bool schedules = std::find(variables.begin(), variables.end(), "<schedule>") != variables.end();
  if (jobs || schedules) {
    for (std::string &name : existing_names(jobs, schedules)) {
      if (name.starts_with(partial)) completion.candidates.push_back(std::move(name));
    }
    std::sort(completion.candidates.begin(), completion.candidates.end());
    completion.candidates.erase(std::unique(completion.candidates.begin(), completion.candidates.end()),
                                completion.candidates.end());
  }
  return completion;
}

std::vector<std::string> Shell::existing_names(bool jobs, bool schedules) {
  std::vector<std::string> names;
  std::string text;
  if (backend_.config_text(session_.session, ACFG_CFG_RUNNING, &text) != 0) return names;
  std::optional<Configuration> running = parse_configuration(text, nullptr);
  if (!running) return names;
  if (jobs) {
    for (const JobBlock &job : running->jobs) names.push_back(job.name);
  }
  if (schedules) {
    for (const ScheduleBlock &schedule : running->schedules) names.push_back(schedule.name);
  }
  // A name that could not be typed back is no completion.
  std::erase_if(names, [](const std::string &name) { return has_control_character(name); });
  return names;
}

void Shell::enter(Mode mode) {
  if (mode != Mode::Schedule) schedule_.clear();
  if (mode != Mode::Job) {
    job_.clear();
    job_text_.clear();
    send_job_ = false;
  }
  mode_ = mode;
}

void Shell::enter_job(std::string name, bool send) {
  enter(Mode::Job);
  job_ = std::move(name);
  send_job_ = send;
  if (!send) {
    err_ << "% Lines up to end-job are ignored: the job was not created\n";
  } else if (interactive_) {
    out_ << "% Every line is now a command of the job, until end-job; '?' for help, Ctrl-C abandons the job\n";
    out_.flush();
  }
}

void Shell::enter_schedule(std::string name) {
  enter(Mode::Schedule);
  schedule_ = std::move(name);
}

void Shell::remove_feature(std::string_view feature) {
  if (std::find(removed_features_.begin(), removed_features_.end(), feature) == removed_features_.end()) {
    removed_features_.emplace_back(feature);
  }
}

void Shell::restore_feature(std::string_view feature) {
  std::erase(removed_features_, feature);
}

void Shell::exit_mode() {
  std::optional<Mode> parent = mode_info(mode_).parent;
  if (parent) {
    enter(*parent);
  } else {
    finished_ = true;
  }
}

}  // namespace schedsh
