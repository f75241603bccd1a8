// The interpreter: runs lines in the current mode, gathers job text, answers `?` and completion.
#ifndef SCHEDSH_SHELL_H
#define SCHEDSH_SHELL_H

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "backend.h"
#include "command_table.h"
#include "context.h"
#include "modes.h"

namespace schedsh {

class Shell {
 public:
  // `out` takes help lists, `err` the shell's own error lines; handlers print on their own.
  Shell(const CommandTable &table, Backend &backend, SessionInfo session, std::ostream &out, std::ostream &err);

  // Runs one line (a trailing newline or carriage return is ignored). False when it failed;
  // the reason has been printed. A line ending in '?' prints help instead and never fails.
  bool execute(std::string_view line);
  // The input has ended. False when a job was left open: its text is not sent.
  bool finish();
  // The operator interrupted (Ctrl-C): a job being typed is dropped, and said so. True when
  // there was one.
  bool abandon_job();

  // At a terminal the shell explains job mode on entering it and may ask before destroying.
  void set_interactive(bool interactive) { interactive_ = interactive; }
  bool interactive() const { return interactive_; }
  // Asks the operator a yes-or-no question; without one set, nothing is asked.
  using Confirm = std::function<bool(std::string_view question)>;
  void set_confirm(Confirm confirm) { confirm_ = std::move(confirm); }
  // True when the operator agreed, or when there is nobody to ask.
  bool confirm(std::string_view question) { return !confirm_ || confirm_(question); }

  // `exit` was given in exec mode: nothing more is to be run.
  bool finished() const { return finished_; }
  Mode mode() const { return mode_; }
  std::string_view prompt() const;

  // Help for the text before the cursor, from the mode or, when it has none, its fall-back.
  std::vector<HelpItem> help(std::string_view text) const;
  void print_help(std::string_view text);
  // Keywords that complete the word being typed at the end of `text`, and that word.
  struct Completion {
    std::vector<std::string> candidates;
    std::string partial;
  };
  // Besides keywords, the names of existing jobs and schedules where one is expected; they are
  // asked of the daemon, so completion never offers a name that is not there.
  Completion complete(std::string_view text);

  // ---- For the commands' actions ----
  Backend &backend() { return backend_; }
  SessionInfo &session() { return session_; }
  std::ostream &out() { return out_; }
  std::ostream &err() { return err_; }
  const std::string &schedule_name() const { return schedule_; }
  void enter(Mode mode);
  // Job mode: lines are gathered until end-job; when `send` is false they are dropped.
  void enter_job(std::string name, bool send);
  void enter_schedule(std::string name);
  void exit_mode();
  // Takes a feature's commands out of the shell, or puts them back.
  void remove_feature(std::string_view feature);
  void restore_feature(std::string_view feature);
  // Whether a text is configuration, as `show running-config` prints it, rather than commands
  // from exec mode: its first line that is neither blank nor a comment is a command of
  // configuration mode and none of exec mode.
  bool reads_as_configuration(std::string_view text) const;
  // Runs a line of exec mode and comes back to the mode and schedule of now.
  bool execute_in_exec(std::string_view line);
  // Prints the help of job mode, where every line is text.
  void print_job_help();

 private:
  bool job_line(std::string_view line);
  void report(const Match &match, const std::vector<std::string> &words);
  Mode help_mode(const std::vector<std::string> &words, std::string_view partial) const;
  // The names of the jobs or schedules of the running configuration; none when it cannot be read.
  std::vector<std::string> existing_names(bool jobs, bool schedules);
  // A configuration mode's line that begins with `do`: its text after that word.
  std::optional<std::string_view> exec_line(std::string_view line) const;

  const CommandTable &table_;
  Backend &backend_;
  SessionInfo session_;
  std::ostream &out_;
  std::ostream &err_;
  Mode mode_ = Mode::Exec;
  bool finished_ = false;
  std::string job_;
  std::string job_text_;
  bool send_job_ = false;
  std::string schedule_;
  std::vector<std::string> removed_features_;
  bool interactive_ = false;
  Confirm confirm_;
};

// A word as it can safely be shown in a message: control bytes escaped, long words cut.
std::string printable_word(std::string_view word);
// The same without the cut, for file names.
std::string printable_text(std::string_view text);

}  // namespace schedsh

#endif
