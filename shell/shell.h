// The interpreter: runs lines in the current mode, gathers job text, answers `?` and completion.
#ifndef SCHEDSH_SHELL_H
#define SCHEDSH_SHELL_H

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
  Completion complete(std::string_view text) const;

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

 private:
  bool job_line(std::string_view line);
  void report(const Match &match, const std::vector<std::string> &words);
  Mode help_mode(const std::vector<std::string> &words, std::string_view partial) const;

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
};

// A word as it can safely be shown in a message: control bytes escaped, long words cut.
std::string printable_word(std::string_view word);

}  // namespace schedsh

#endif
