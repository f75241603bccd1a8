// Word splitting of command lines.
#include "tokenizer.h"

namespace schedsh {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

TokenizedLine tokenize(std::string_view line) {
  TokenizedLine result;
  bool in_word = false;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (!quoted && is_blank(c)) {
      in_word = false;
      continue;
    }
    if (!in_word) {
      result.words.push_back(Word{std::string(), i});
      in_word = true;
    }
    if (c == '"') {
      quoted = !quoted;
      continue;
    }
    result.words.back().text.push_back(c);
  }
  result.open_quote = quoted;
  result.ends_in_blank = !in_word;
  return result;
}

std::vector<std::string> word_texts(const TokenizedLine &line) {
  std::vector<std::string> texts;
  texts.reserve(line.words.size());
  for (const Word &word : line.words) texts.push_back(word.text);
  return texts;
}

std::optional<std::string_view> help_request(std::string_view line) {
  std::size_t end = line.size();
  while (end > 0 && is_blank(line[end - 1])) --end;
  if (end == 0 || line[end - 1] != '?') return std::nullopt;
  bool quoted = false;
  for (std::size_t i = 0; i + 1 < end; ++i) {
    if (line[i] == '"') quoted = !quoted;
  }
  if (quoted) return std::nullopt;
  return line.substr(0, end - 1);
}

std::string rest_of_line(std::string_view line, std::size_t offset) {
  if (offset > line.size()) return std::string();
  std::size_t end = line.size();
  while (end > offset && is_blank(line[end - 1])) --end;
  return std::string(line.substr(offset, end - offset));
}

std::string_view trim(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size() && is_blank(text[begin])) ++begin;
  std::size_t end = text.size();
  while (end > begin && is_blank(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

}  // namespace schedsh
