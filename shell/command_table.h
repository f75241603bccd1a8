// The command table: each command declared once with its syntax, one help line per word and its
// action; matching, `?` help and completion on a vector of words, with no terminal involved.
//
// Syntax: keywords, variables "<name>", number variables "<low-high>" that take only a whole
// number in that range, a rest-of-line variable "<name>..." (last only), optional groups
// "[a b]" and choices "[x|y]" or "{x|y}". Keywords may be abbreviated to any unambiguous prefix,
// in any letter case.
//
// A command may belong to a feature; the queries take the features whose commands are out of
// the shell for now, and such commands then match, help and complete nothing.
#ifndef SCHEDSH_COMMAND_TABLE_H
#define SCHEDSH_COMMAND_TABLE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "modes.h"
#include "words.h"

namespace schedsh {

class Shell;
class Arguments;

// What a command does; false when it failed (it has printed why).
using Action = bool (*)(Shell &shell, const Arguments &arguments);

enum class TokenKind { Keyword, Variable, Rest };

struct NumberRange {
  int64_t low, high;
};

struct Token {
  TokenKind kind;
  std::string text;   // the keyword, or the variable as written without "...": "<job>"
  std::string help;
  std::optional<NumberRange> range = {};   // a number variable's bounds
  const WordRule *rule = nullptr;          // what a variable's word must be
};

struct Command {
  Mode mode;
  std::string syntax;
  std::deque<Token> tokens;                          // stable addresses for the forms
  std::vector<std::vector<const Token *>> forms;     // every way of writing it, options expanded
  Action action;
  std::string feature;                               // empty: always in the shell
};

// One entry of the table as declared.
struct CommandDeclaration {
  Mode mode;
  std::string_view syntax;
  std::vector<std::string_view> help;   // one line per word of the syntax, in order
  Action action;
  std::string_view feature = {};        // the feature whose commands it is one of, if any
  // Rules for variables by their text ("<time>"); any other variable except a number takes a
  // word that is not empty and holds no control character.
  std::vector<std::pair<std::string_view, const WordRule *>> rules = {};
};

// Refused: the words fit a command but one of them breaks its variable's rule.
enum class MatchStatus { Empty, Ok, Invalid, Incomplete, Ambiguous, Refused };

struct Match {
  MatchStatus status = MatchStatus::Empty;
  const Command *command = nullptr;
  std::size_t error_word = 0;                 // the word that is invalid, ambiguous or refused
  const WordRule *refused_by = nullptr;       // Refused: the rule the word breaks
  std::vector<const Token *> tokens;          // the token each word matched, up to a rest
  std::optional<std::size_t> rest_from;       // first word of a rest-of-line variable
  const Token *rest = nullptr;                // and its token
};

struct HelpItem {
  std::string word;   // keyword, "<variable>" or "<cr>"
  std::string help;
  bool operator==(const HelpItem &) const = default;
};

class CommandTable {
 public:
  // Adds a command. Throws std::logic_error for a malformed syntax, a help count that differs
  // from the word count, or a form that another command of the mode (or itself) already has:
  // these are programming errors, found at start-up.
  void add(const CommandDeclaration &declaration);

  // `removed`: features whose commands are out of the shell.
  Match match(Mode mode, std::span<const std::string> words, std::span<const std::string> removed = {}) const;
  // Help for the word after `words`, of which `partial` has been typed: keywords that start
  // with it, every variable, "<cr>" when the command could end here. Sorted, no duplicates.
  // The variables (as "<job>") that could take the word after `words`.
  std::vector<std::string> variables(Mode mode, std::span<const std::string> words,
                                     std::span<const std::string> removed = {}) const;
  std::vector<HelpItem> help(Mode mode, std::span<const std::string> words, std::string_view partial,
                             std::span<const std::string> removed = {}) const;
  // Keywords that could complete `partial` after `words`; sorted, no duplicates.
  std::vector<std::string> completions(Mode mode, std::span<const std::string> words, std::string_view partial,
                                       std::span<const std::string> removed = {}) const;

  const std::deque<Command> &commands() const { return commands_; }

 private:
  std::deque<Command> commands_;
  std::map<std::pair<Mode, std::string>, std::string> signatures_;  // form -> syntax that owns it
};

// The values of a matched command, by keyword and variable name.
class Arguments {
 public:
  Arguments() = default;
  // `line` is the raw line the words came from, `word_offsets` where each word begins in it;
  // they give the rest-of-line variable its text as typed.
  Arguments(const Match &match, std::span<const std::string> words, std::string_view line,
            std::span<const std::size_t> word_offsets);

  bool has(std::string_view keyword) const;
  // The value of a variable ("<job>"), or nullptr when it was not given.
  const std::string *get(std::string_view variable) const;
  std::string value(std::string_view variable) const;
  // The value of a number variable, or nothing when it was not given or is not a whole number.
  std::optional<int64_t> number(std::string_view variable) const;

 private:
  std::vector<std::pair<std::string, std::string>> values_;   // token text -> word
};

bool keyword_matches(std::string_view word, std::string_view keyword);
// A word of decimal digits only, as a number; nothing for anything else or an overflow.
std::optional<int64_t> whole_number(std::string_view word);

}  // namespace schedsh

#endif
