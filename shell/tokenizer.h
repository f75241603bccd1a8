// Splits a command line into words: blanks separate, double quotes group, nothing ever fails.
#ifndef SCHEDSH_TOKENIZER_H
#define SCHEDSH_TOKENIZER_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace schedsh {

struct Word {
  std::string text;    // without its quotes
  std::size_t begin;   // offset of its first byte in the line (an opening quote included)
};

struct TokenizedLine {
  std::vector<Word> words;
  bool ends_in_blank = true;   // nothing is being typed: the last word, if any, is finished
  bool open_quote = false;     // the line ends inside a quote that was never closed
};

bool is_blank(char c);

// An unclosed quote runs to the end of the line rather than being an error, so that any line
// gives words.
TokenizedLine tokenize(std::string_view line);

std::vector<std::string> word_texts(const TokenizedLine &line);

// When the line asks for help (its last character outside quotes, blanks aside, is '?'), the
// text before that mark; otherwise nothing.
std::optional<std::string_view> help_request(std::string_view line);

// The line from `offset` on, without trailing blanks: the raw text of a rest-of-line argument.
std::string rest_of_line(std::string_view line, std::size_t offset);

std::string_view trim(std::string_view text);

}  // namespace schedsh

#endif
