// Registration, matching, help and completion of the command table.
#include "command_table.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <stdexcept>

#include "tokenizer.h"

namespace schedsh {

namespace {

constexpr std::size_t kMaxForms = 64;   // a syntax that expands further is surely a mistake

const WordRule kAnyWordRule = {"word", "a word without control characters", [](std::string_view word) {
                                 return !word.empty() && !has_control_character(word);
                               }};

bool same_letters(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

bool equals_ignoring_case(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), same_letters);
}

bool is_syntax_mark(char c) { return c == '[' || c == ']' || c == '{' || c == '}' || c == '|'; }

std::vector<std::string> lex_syntax(std::string_view syntax) {
  std::vector<std::string> pieces;
  std::string current;
  for (char c : syntax) {
    if (c == ' ' || is_syntax_mark(c)) {
      if (!current.empty()) pieces.push_back(std::move(current));
      current.clear();
      if (c != ' ') pieces.emplace_back(1, c);
    } else {
      current.push_back(c);
    }
  }
  if (!current.empty()) pieces.push_back(std::move(current));
  return pieces;
}

using Sequence = std::vector<const Token *>;
using Alternatives = std::vector<Sequence>;

// Recursive descent over the lexed syntax, expanding options into whole forms.
class SyntaxParser {
 public:
  SyntaxParser(std::string_view syntax, Command &command, std::span<const std::string_view> help,
               std::span<const std::pair<std::string_view, const WordRule *>> rules)
      : syntax_(syntax), pieces_(lex_syntax(syntax)), command_(command), help_(help), rules_(rules) {}

  Alternatives parse() {
    Alternatives forms = sequence();
    if (position_ != pieces_.size()) fail("unexpected '" + pieces_[position_] + "'");
    if (words_ != help_.size()) {
      fail(std::to_string(words_) + " words but " + std::to_string(help_.size()) + " help lines");
    }
    // Not a structured binding: clang does not let a lambda capture one.
    for (const auto &variable_rule : rules_) {
      bool known = std::any_of(command_.tokens.begin(), command_.tokens.end(), [&](const Token &token) {
        return token.text == variable_rule.first && token.rule == variable_rule.second;
      });
      if (!known) fail("a rule for " + std::string(variable_rule.first) + ", which is no variable here");
    }
    return forms;
  }

 private:
  [[noreturn]] void fail(const std::string &why) const {
    throw std::logic_error("command syntax \"" + std::string(syntax_) + "\": " + why);
  }

  Alternatives sequence() {
    Alternatives result{Sequence{}};
    while (position_ < pieces_.size()) {
      const std::string &piece = pieces_[position_];
      if (piece == "]" || piece == "}" || piece == "|") break;
      Alternatives item;
      if (piece == "[" || piece == "{") {
        ++position_;
        item = choices(piece == "[" ? "]" : "}");
        if (piece == "[") item.push_back(Sequence{});
      } else {
        item.push_back(Sequence{word(piece)});
        ++position_;
      }
      Alternatives joined;
      for (const Sequence &head : result) {
        for (const Sequence &tail : item) {
          Sequence both = head;
          both.insert(both.end(), tail.begin(), tail.end());
          joined.push_back(std::move(both));
        }
      }
      if (joined.size() > kMaxForms) fail("too many forms");
      result = std::move(joined);
    }
    return result;
  }

  Alternatives choices(const std::string &close) {
    Alternatives result;
    for (;;) {
      Alternatives choice = sequence();
      for (Sequence &form : choice) {
        if (form.empty()) fail("an empty choice");
        result.push_back(std::move(form));
      }
      if (position_ >= pieces_.size()) fail("'" + close + "' missing");
      const std::string &piece = pieces_[position_++];
      if (piece == close) return result;
      if (piece != "|") fail("'" + piece + "' where '" + close + "' belongs");
    }
  }

  const Token *word(const std::string &piece) {
    Token token{TokenKind::Keyword, piece, std::string()};
    if (piece.front() == '<') {
      bool rest = piece.size() > 3 && piece.ends_with("...");
      std::string name = rest ? piece.substr(0, piece.size() - 3) : piece;
      if (name.size() < 3 || name.back() != '>') fail("bad variable " + piece);
      token.kind = rest ? TokenKind::Rest : TokenKind::Variable;
      token.text = name;
      if (!rest) token.range = range_of(name);
      if (!rest && !token.range) token.rule = rule_of(name);
    } else if (piece.find_first_of("<>") != std::string::npos) {
      fail("bad keyword " + piece);
    }
    if (words_ < help_.size()) token.help = std::string(help_[words_]);
    ++words_;
    command_.tokens.push_back(std::move(token));
    return &command_.tokens.back();
  }

  const WordRule *rule_of(std::string_view name) const {
    for (const auto &[variable, rule] : rules_) {
      if (variable == name) return rule;
    }
    return &kAnyWordRule;
  }

  // "<low-high>" with both bounds whole numbers is a number variable; any other name is not.
  std::optional<NumberRange> range_of(std::string_view name) const {
    std::string_view inside = name.substr(1, name.size() - 2);
    std::size_t dash = inside.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    std::optional<int64_t> low = whole_number(inside.substr(0, dash));
    std::optional<int64_t> high = whole_number(inside.substr(dash + 1));
    if (!low || !high) return std::nullopt;
    if (*low > *high) fail("empty range " + std::string(name));
    return NumberRange{*low, *high};
  }

  std::string_view syntax_;
  std::vector<std::string> pieces_;
  std::size_t position_ = 0;
  Command &command_;
  std::span<const std::string_view> help_;
  std::span<const std::pair<std::string_view, const WordRule *>> rules_;
  std::size_t words_ = 0;
};

std::string signature(const Sequence &form) {
  std::string text;
  for (const Token *token : form) {
    if (!text.empty()) text += ' ';
    switch (token->kind) {
      case TokenKind::Keyword: text += token->text; break;
      case TokenKind::Variable: text += "<>"; break;
      case TokenKind::Rest: text += "<>..."; break;
    }
  }
  return text;
}

bool in_range(std::string_view word, const NumberRange &range) {
  std::optional<int64_t> value = whole_number(word);
  return value && *value >= range.low && *value <= range.high;
}

enum class FormState { Failed, Incomplete, Complete };

// How one form takes a list of words. Scores per word: 3 exact keyword, 2 abbreviated keyword,
// 1 variable; a better score at the first difference wins. The word at index i always meets the
// form's token i, so the tokens met are a prefix of the form, and a word's score follows from its
// token: nothing is copied per form (every line typed evaluates every form of its mode).
struct Evaluation {
  const Command *command = nullptr;
  const Sequence *form = nullptr;
  FormState state = FormState::Failed;
  std::size_t failed_at = 0;
  const WordRule *refused_by = nullptr;   // the rule of the word it failed at, if that was why
  std::size_t tokens = 0;                 // per word up to a rest; with the failing word's token
  std::size_t scored = 0;                 // words taken, up to a rest
  std::optional<std::size_t> rest_from;
  const Token *next = nullptr;            // the token the next word would meet, if any

  const Token *token(std::size_t word) const { return (*form)[word]; }
  int score_at(std::span<const std::string> words, std::size_t word) const {
    if (word >= scored || token(word)->kind == TokenKind::Variable) return 1;
    return equals_ignoring_case(words[word], token(word)->text) ? 3 : 2;
  }
};

Evaluation evaluate(const Command &command, const Sequence &form, std::span<const std::string> words) {
  Evaluation result;
  result.command = &command;
  result.form = &form;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i == form.size()) {
      result.failed_at = i;
      return result;
    }
    const Token *token = form[i];
    if (token->kind == TokenKind::Rest) {
      result.rest_from = i;
      result.next = token;
      result.state = FormState::Complete;
      return result;
    }
    result.tokens = i + 1;
    if (token->kind == TokenKind::Variable) {
      if (token->range && !in_range(words[i], *token->range)) {
        result.failed_at = i;
        return result;
      }
      if (token->rule && !token->rule->accepts(words[i])) {
        result.failed_at = i;
        result.refused_by = token->rule;
        return result;
      }
    } else if (!equals_ignoring_case(words[i], token->text) && !keyword_matches(words[i], token->text)) {
      result.failed_at = i;
      return result;
    }
    result.scored = i + 1;
  }
  if (words.size() < form.size()) {
    result.next = form[words.size()];
    result.state = FormState::Incomplete;
  } else {
    result.state = FormState::Complete;
  }
  return result;
}

bool better(const Evaluation &a, const Evaluation &b, std::span<const std::string> words) {
  std::size_t known = std::max(a.scored, b.scored);
  for (std::size_t i = 0; i < std::min(known, words.size()); ++i) {
    int a_score = a.score_at(words, i), b_score = b.score_at(words, i);
    if (a_score != b_score) return a_score > b_score;
  }
  return false;
}

bool same_scores(const Evaluation &a, const Evaluation &b, std::span<const std::string> words) {
  return !better(a, b, words) && !better(b, a, words);
}

bool is_removed(const Command &command, std::span<const std::string> removed) {
  return !command.feature.empty() && std::find(removed.begin(), removed.end(), command.feature) != removed.end();
}

std::vector<Evaluation> evaluate_all(const std::deque<Command> &commands, Mode mode,
                                     std::span<const std::string> words, std::span<const std::string> removed) {
  auto counted = [&](const Command &command) { return command.mode == mode && !is_removed(command, removed); };
  std::size_t forms = 0;
  for (const Command &command : commands) forms += counted(command) ? command.forms.size() : 0;
  std::vector<Evaluation> evaluations;
  evaluations.reserve(forms);
  for (const Command &command : commands) {
    if (!counted(command)) continue;
    for (const Sequence &form : command.forms) evaluations.push_back(evaluate(command, form, words));
  }
  return evaluations;
}

// Whether the word, abbreviated, fits more than one keyword among the forms that got that far.
bool abbreviation_is_ambiguous(const std::vector<Evaluation> &evaluations, std::span<const std::string> words,
                               std::size_t position) {
  const std::string *first = nullptr;
  for (const Evaluation &evaluation : evaluations) {
    if (evaluation.tokens <= position) continue;
    const Token *token = evaluation.token(position);
    if (token->kind != TokenKind::Keyword || !keyword_matches(words[position], token->text)) continue;
    if (!first) {
      first = &token->text;
    } else if (*first != token->text) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool keyword_matches(std::string_view word, std::string_view keyword) {
  return !word.empty() && word.size() <= keyword.size() &&
         std::equal(word.begin(), word.end(), keyword.begin(), same_letters);
}

std::optional<int64_t> whole_number(std::string_view word) {
  if (word.empty() || !std::all_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return std::nullopt;
  }
  int64_t value = 0;
  auto [end, problem] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (problem != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return value;
}

void CommandTable::add(const CommandDeclaration &declaration) {
  Command &command = commands_.emplace_back();
  command.mode = declaration.mode;
  command.syntax = std::string(declaration.syntax);
  command.action = declaration.action;
  command.feature = std::string(declaration.feature);
  try {
    if (!declaration.action) throw std::logic_error("command \"" + command.syntax + "\" has no action");
    command.forms = SyntaxParser(declaration.syntax, command, declaration.help, declaration.rules).parse();
    std::vector<std::string> added;
    for (const Sequence &form : command.forms) {
      if (form.empty()) throw std::logic_error("command syntax \"" + command.syntax + "\" can be empty");
      for (std::size_t i = 0; i + 1 < form.size(); ++i) {
        if (form[i]->kind == TokenKind::Rest) {
          throw std::logic_error("command syntax \"" + command.syntax + "\": a rest-of-line variable must be last");
        }
      }
      std::string key = signature(form);
      auto [it, inserted] = signatures_.emplace(std::pair(declaration.mode, key), command.syntax);
      if (!inserted) {
        std::string message = "duplicate command \"" + key + "\" in " + std::string(mode_info(declaration.mode).name) +
                              " mode: \"" + command.syntax + "\" and \"" + it->second + "\"";
        for (const std::string &done : added) signatures_.erase(std::pair(declaration.mode, done));
        throw std::logic_error(message);
      }
      added.push_back(key);
    }
  } catch (...) {
    commands_.pop_back();
    throw;
  }
}

Match CommandTable::match(Mode mode, std::span<const std::string> words, std::span<const std::string> removed) const {
  Match result;
  if (words.empty()) return result;
  std::vector<Evaluation> evaluations = evaluate_all(commands_, mode, words, removed);
  const Evaluation *best = nullptr;
  bool incomplete = false;
  std::size_t furthest = 0;
  const WordRule *refused_by = nullptr;
  for (const Evaluation &evaluation : evaluations) {
    if (evaluation.state == FormState::Incomplete) incomplete = true;
    if (evaluation.state == FormState::Failed) {
      if (evaluation.failed_at > furthest) refused_by = nullptr;
      if (evaluation.failed_at >= furthest && evaluation.refused_by && !refused_by) {
        refused_by = evaluation.refused_by;
      }
      furthest = std::max(furthest, evaluation.failed_at);
    }
    if (evaluation.state != FormState::Complete) continue;
    if (!best || better(evaluation, *best, words)) best = &evaluation;
  }
  if (!best) {
    result.status = incomplete ? MatchStatus::Incomplete : refused_by ? MatchStatus::Refused : MatchStatus::Invalid;
    result.error_word = furthest;
    if (result.status == MatchStatus::Refused) result.refused_by = refused_by;
    return result;
  }
  for (const Evaluation &evaluation : evaluations) {
    if (evaluation.state == FormState::Complete && evaluation.command != best->command &&
        same_scores(evaluation, *best, words)) {
      std::size_t differ = 0;
      while (differ < words.size() && differ < best->tokens && differ < evaluation.tokens &&
             best->token(differ)->text == evaluation.token(differ)->text) {
        ++differ;
      }
      result.status = MatchStatus::Ambiguous;
      result.error_word = std::min(differ, words.size() - 1);
      return result;
    }
  }
  for (std::size_t i = 0; i < best->scored; ++i) {
    if (best->score_at(words, i) == 2 && abbreviation_is_ambiguous(evaluations, words, i)) {
      result.status = MatchStatus::Ambiguous;
      result.error_word = i;
      return result;
    }
  }
  result.status = MatchStatus::Ok;
  result.command = best->command;
  result.tokens.assign(best->form->begin(), best->form->begin() + static_cast<std::ptrdiff_t>(best->tokens));
  result.rest_from = best->rest_from;
  if (best->rest_from) result.rest = best->next;
  return result;
}

std::vector<std::string> CommandTable::variables(Mode mode, std::span<const std::string> words,
                                                 std::span<const std::string> removed) const {
  std::vector<std::string> found;
  for (const Evaluation &evaluation : evaluate_all(commands_, mode, words, removed)) {
    if (evaluation.state != FormState::Incomplete || evaluation.next->kind != TokenKind::Variable) continue;
    if (std::find(found.begin(), found.end(), evaluation.next->text) == found.end()) {
      found.push_back(evaluation.next->text);
    }
  }
  return found;
}

std::vector<HelpItem> CommandTable::help(Mode mode, std::span<const std::string> words, std::string_view partial,
                                         std::span<const std::string> removed) const {
  std::vector<HelpItem> items;
  bool can_end = false;
  for (const Evaluation &evaluation : evaluate_all(commands_, mode, words, removed)) {
    if (evaluation.state == FormState::Failed) continue;
    if (evaluation.state == FormState::Complete && partial.empty() &&
        (!evaluation.next || evaluation.rest_from)) {
      can_end = true;
    }
    const Token *next = evaluation.next;
    if (!next) continue;
    if (next->kind == TokenKind::Keyword && !partial.empty() && !keyword_matches(partial, next->text)) continue;
    std::string word = next->kind == TokenKind::Rest ? next->text + "..." : next->text;
    bool known = std::any_of(items.begin(), items.end(), [&](const HelpItem &item) { return item.word == word; });
    if (!known) items.push_back(HelpItem{word, next->help});
  }
  std::sort(items.begin(), items.end(), [](const HelpItem &a, const HelpItem &b) {
    bool a_variable = a.word.front() == '<', b_variable = b.word.front() == '<';
    if (a_variable != b_variable) return b_variable;
    return a.word < b.word;
  });
  if (can_end) items.push_back(HelpItem{"<cr>", ""});
  return items;
}

std::vector<std::string> CommandTable::completions(Mode mode, std::span<const std::string> words,
                                                   std::string_view partial,
                                                   std::span<const std::string> removed) const {
  std::vector<std::string> candidates;
  for (const Evaluation &evaluation : evaluate_all(commands_, mode, words, removed)) {
    const Token *next = evaluation.next;
    if (evaluation.state != FormState::Incomplete || next->kind != TokenKind::Keyword) continue;
    if (!partial.empty() && !keyword_matches(partial, next->text)) continue;
    candidates.push_back(next->text);
  }
  std::sort(candidates.begin(), candidates.end());
  candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
  return candidates;
}

Arguments::Arguments(const Match &match, std::span<const std::string> words, std::string_view line,
                     std::span<const std::size_t> word_offsets) {
  for (std::size_t i = 0; i < match.tokens.size() && i < words.size(); ++i) {
    const Token *token = match.tokens[i];
    values_.emplace_back(token->text, token->kind == TokenKind::Keyword ? token->text : words[i]);
  }
  if (match.rest && match.rest_from && *match.rest_from < words.size()) {
    std::size_t first = *match.rest_from;
    std::string text;
    if (first < word_offsets.size()) {
      text = rest_of_line(line, word_offsets[first]);
    } else {
      for (std::size_t i = first; i < words.size(); ++i) text += (i == first ? "" : " ") + words[i];
    }
    values_.emplace_back(match.rest->text, std::move(text));
  }
}

bool Arguments::has(std::string_view keyword) const {
  return std::any_of(values_.begin(), values_.end(), [&](const auto &value) { return value.first == keyword; });
}

const std::string *Arguments::get(std::string_view variable) const {
  for (const auto &value : values_) {
    if (value.first == variable) return &value.second;
  }
  return nullptr;
}

std::string Arguments::value(std::string_view variable) const {
  const std::string *found = get(variable);
  return found ? *found : std::string();
}

std::optional<int64_t> Arguments::number(std::string_view variable) const {
  const std::string *found = get(variable);
  return found ? whole_number(*found) : std::nullopt;
}

}  // namespace schedsh
