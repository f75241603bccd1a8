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

  Shell &shell_;
  EditLine *editor_ = nullptr;
  History *history_ = nullptr;
};

// Reads and runs lines at the terminal until end of input or `exit`; false when any failed.
bool run_interactive(Shell &shell);

}  // namespace schedsh

#endif
