// Binds libedit to the shell: prompt, history, '?' help and Tab completion at a terminal.
#ifndef SCHEDSH_LINE_EDITOR_H
#define SCHEDSH_LINE_EDITOR_H

#include <histedit.h>

#include <optional>
#include <string>

#include "shell.h"

namespace schedsh {

class LineEditor {
 public:
  explicit LineEditor(Shell &shell);
  ~LineEditor();
  LineEditor(const LineEditor &) = delete;
  LineEditor &operator=(const LineEditor &) = delete;

  // One line without its newline; nothing at the end of input.
  std::optional<std::string> read_line();

 private:
  static char *prompt(EditLine *editor);
  static unsigned char help_key(EditLine *editor, int key);
  static unsigned char complete_key(EditLine *editor, int key);
  static LineEditor &self(EditLine *editor);
  std::string text_before_cursor() const;
  std::string whole_line() const;

  Shell &shell_;
  EditLine *editor_ = nullptr;
  History *history_ = nullptr;
  std::string history_file_;   // empty: history is not kept between sessions
};

// Reads and runs lines at the terminal until end of input or `exit`; false when any failed.
// Says first when the daemon does not answer at `socket_path`, and that `start_command` starts it.
bool run_interactive(Shell &shell, const std::string &socket_path, const std::string &start_command);

}  // namespace schedsh

#endif
