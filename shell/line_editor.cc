// The terminal side of the shell, on libedit.
#include "line_editor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "schedcli/platform/acfg.h"
#include "schedcli/platform/syserr.h"
#include "tokenizer.h"

namespace schedsh {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void on_interrupt(int) { interrupted = 1; }

std::string common_prefix(const std::vector<std::string> &words) {
  std::string prefix = words.front();
  for (const std::string &word : words) {
    std::size_t same = 0;
    while (same < prefix.size() && same < word.size() && prefix[same] == word[same]) ++same;
    prefix.resize(same);
  }
  return prefix;
}

// "~/.schedsh_history", or "" without a home directory.
std::string history_path() {
  const char *home = std::getenv("HOME");
  if (!home || !*home) return std::string();
  return std::string(home) + "/.schedsh_history";
}

// Lines that carry a password stay out of the history file.
bool holds_password(std::string_view line) { return line.find("aaa-authentication") != std::string_view::npos; }

// A yes-or-no question at the terminal; anything but y or yes (end of input included) is no.
bool ask(std::string_view question) {
  std::cout << question << " [y/N] " << std::flush;
  std::string answer;
  if (!std::getline(std::cin, answer)) {
    std::cin.clear();
    std::cout << '\n';
    return false;
  }
  std::string_view word = trim(answer);
  return word == "y" || word == "Y" || word == "yes" || word == "YES" || word == "Yes";
}

}  // namespace

LineEditor::LineEditor(Shell &shell) : shell_(shell) {
  editor_ = el_init("schedsh", stdin, stdout, stderr);
  history_ = history_init();
  HistEvent event;
  history(history_, &event, H_SETSIZE, 1000);
  history(history_, &event, H_SETUNIQUE, 1);
  el_set(editor_, EL_CLIENTDATA, this);
  el_set(editor_, EL_EDITOR, "emacs");
  el_set(editor_, EL_SIGNAL, 1);
  el_set(editor_, EL_PROMPT, &LineEditor::prompt);
  el_set(editor_, EL_HIST, history, history_);
  el_set(editor_, EL_ADDFN, "schedsh-help", "List what can be typed next", &LineEditor::help_key);
  el_set(editor_, EL_ADDFN, "schedsh-complete", "Complete the word", &LineEditor::complete_key);
  el_set(editor_, EL_BIND, "?", "schedsh-help", nullptr);
  el_set(editor_, EL_BIND, "^I", "schedsh-complete", nullptr);
  el_source(editor_, nullptr);   // the operator's own ~/.editrc, if any
  history_file_ = history_path();
  if (!history_file_.empty()) history(history_, &event, H_LOAD, history_file_.c_str());
}

LineEditor::~LineEditor() {
  if (history_ && !history_file_.empty()) {
    // Created private: the commands typed say much about the switch.
    int descriptor = open(history_file_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor >= 0) {
      close(descriptor);
      HistEvent event;
      history(history_, &event, H_SAVE, history_file_.c_str());
    }
  }
  if (editor_) el_end(editor_);
  if (history_) history_end(history_);
}

LineEditor &LineEditor::self(EditLine *editor) {
  void *data = nullptr;
  el_get(editor, EL_CLIENTDATA, &data);
  return *static_cast<LineEditor *>(data);
}

char *LineEditor::prompt(EditLine *editor) {
  // The prompts are string literals of the mode table, so they end in a NUL.
  return const_cast<char *>(self(editor).shell_.prompt().data());
}

std::string LineEditor::whole_line() const {
  const LineInfo *line = el_line(editor_);
  return std::string(line->buffer, static_cast<std::size_t>(line->lastchar - line->buffer));
}

std::string LineEditor::text_before_cursor() const {
  const LineInfo *line = el_line(editor_);
  return std::string(line->buffer, static_cast<std::size_t>(line->cursor - line->buffer));
}

unsigned char LineEditor::help_key(EditLine *editor, int) {
  LineEditor &editor_self = self(editor);
  std::string before = editor_self.text_before_cursor();
  // Job text and quoted words may hold a question mark of their own; in job mode a '?' on an
  // empty line asks for help, which stores nothing.
  bool job_mode = mode_info(editor_self.shell_.mode()).raw_lines;
  if (job_mode ? !trim(editor_self.whole_line()).empty() : tokenize(before).open_quote) {
    el_insertstr(editor, "?");
    return CC_REFRESH;
  }
  std::cout << "?\n";
  editor_self.shell_.print_help(before);
  std::cout.flush();
  std::cerr.flush();
  return CC_REDISPLAY;
}

unsigned char LineEditor::complete_key(EditLine *editor, int) {
  LineEditor &editor_self = self(editor);
  std::string before = editor_self.text_before_cursor();
  if (mode_info(editor_self.shell_.mode()).raw_lines) {
    std::string_view typed = trim(before);
    if (!typed.empty() && std::string_view("end-job").starts_with(typed) && typed.size() < 7) {
      el_insertstr(editor, std::string("end-job").substr(typed.size()).c_str());
    } else {
      el_insertstr(editor, "\t");
    }
    return CC_REFRESH;
  }
  Shell::Completion completion = editor_self.shell_.complete(before);
  if (completion.candidates.empty()) return CC_REFRESH_BEEP;
  if (completion.candidates.size() == 1) {
    std::string word = completion.candidates.front();
    el_insertstr(editor, (word.substr(completion.partial.size()) + " ").c_str());
    return CC_REFRESH;
  }
  std::string prefix = common_prefix(completion.candidates);
  if (prefix.size() > completion.partial.size()) {
    el_insertstr(editor, prefix.substr(completion.partial.size()).c_str());
    return CC_REFRESH;
  }
  std::cout << '\n';
  for (const std::string &word : completion.candidates) std::cout << "  " << word;
  std::cout << std::endl;
  return CC_REDISPLAY;
}

std::optional<std::string> LineEditor::read_line() {
  for (;;) {
    interrupted = 0;
    std::fflush(stdout);
    int count = 0;
    const char *line = el_gets(editor_, &count);
    if (line && count > 0) {
      std::string text(line, static_cast<std::size_t>(count));
      while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
      if (!trim(text).empty() && !holds_password(text)) {
        HistEvent event;
        history(history_, &event, H_ENTER, text.c_str());
      }
      return text;
    }
    // Ctrl-C drops the line being typed and gives a fresh prompt, as operators expect.
    if (count < 0 && (errno == EINTR || interrupted)) {
      std::fputc('\n', stdout);
      std::fflush(stdout);
      el_reset(editor_);
      shell_.abandon_job();
      std::cerr.flush();
      continue;
    }
    return std::nullopt;
  }
}

bool run_interactive(Shell &shell, const std::string &socket_path, const std::string &start_command) {
  shell.set_interactive(true);
  shell.set_confirm(ask);
  std::string text;
  if (uint32_t status = shell.backend().config_text(shell.session().session, ACFG_CFG_RUNNING, &text); status != 0) {
    std::cerr << "% The scheduler daemon does not answer at " << socket_path << ": " << syserr2str(status) << "\n"
              << "% Start it with: " << start_command << "\n% Until then every command fails.\n";
  }
  struct sigaction action {};
  action.sa_handler = on_interrupt;
  sigemptyset(&action.sa_mask);
  struct sigaction previous {};
  sigaction(SIGINT, &action, &previous);
  bool ok = true;
  {
    LineEditor editor(shell);
    while (!shell.finished()) {
      std::optional<std::string> line = editor.read_line();
      if (!line) {
        std::fputc('\n', stdout);
        break;
      }
      if (!shell.execute(*line)) ok = false;
      std::cout.flush();
    }
  }
  sigaction(SIGINT, &previous, nullptr);
  return ok;
}

}  // namespace schedsh
