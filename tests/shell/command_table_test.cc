// Declaring commands, and how words are matched to them.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "command_table.h"
#include "commands.h"

namespace schedsh {
namespace {

bool act(Shell &, const Arguments &) { return true; }

using Words = std::vector<std::string>;

// The error a declaration is refused with, or "" when it is taken.
std::string refusal(CommandTable &table, const CommandDeclaration &declaration) {
  try {
    table.add(declaration);
  } catch (const std::logic_error &error) {
    return error.what();
  }
  return "";
}

TEST(Declaration, TheProductTableIsConsistent) {
  CommandTable table;
  ASSERT_NO_THROW(register_commands(table));
  for (const Command &command : table.commands()) {
    for (const Token &token : command.tokens) EXPECT_FALSE(token.help.empty()) << command.syntax << ": " << token.text;
  }
}

TEST(Declaration, ADuplicateFailsLoudlyAndLeavesTheTableAsItWas) {
  CommandTable table;
  table.add({Mode::Config, "scheduler job name <job>", {"a", "b", "c", "d"}, act});
  // The same words again, whatever the variable is called.
  std::string error = refusal(table, {Mode::Config, "scheduler job name <other>", {"a", "b", "c", "d"}, act});
  EXPECT_NE(error.find("duplicate command \"scheduler job name <>\" in configuration mode"), std::string::npos) << error;
  EXPECT_NE(error.find("\"scheduler job name <job>\""), std::string::npos) << "names the first owner: " << error;
  // An optional word that expands into an existing form, and two equal choices of one entry.
  EXPECT_NE(refusal(table, {Mode::Config, "[no] scheduler job name <job>", {"n", "a", "b", "c", "d"}, act}), "");
  EXPECT_NE(refusal(table, {Mode::Exec, "show [job|job]", {"s", "j", "j"}, act}), "");
  // Nothing of a refused entry stays behind, not even its forms that were new.
  EXPECT_EQ(table.commands().size(), 1u);
  EXPECT_EQ(refusal(table, {Mode::Exec, "show job", {"s", "j"}, act}), "");
  // The same words in another mode are another command.
  EXPECT_EQ(refusal(table, {Mode::Schedule, "scheduler job name <job>", {"a", "b", "c", "d"}, act}), "");
}

TEST(Declaration, MalformedSyntaxIsRefused) {
  struct Case {
    const char *syntax;
    std::vector<std::string_view> help;
  };
  for (const Case &c : {Case{"show job", {"one help line"}}, Case{"show job", {"s", "j", "extra"}},
                        Case{"show [job", {"s", "j"}}, Case{"show job]", {"s", "j"}}, Case{"show {a|}", {"s", "a"}},
                        Case{"show <text>... more", {"s", "t", "m"}}, Case{"show <>", {"s", "v"}},
                        Case{"show <job", {"s", "v"}}, Case{"[show]", {"s"}}, Case{"", {}}}) {
    CommandTable table;
    EXPECT_THROW(table.add({Mode::Exec, c.syntax, c.help, act}), std::logic_error) << c.syntax;
    EXPECT_TRUE(table.commands().empty()) << c.syntax;
  }
  CommandTable table;
  EXPECT_THROW(table.add({Mode::Exec, "show", {"s"}, nullptr}), std::logic_error);
}

TEST(Declaration, ANumberVariableNeedsARangeInOrder) {
  CommandTable table;
  EXPECT_NE(refusal(table, {Mode::Exec, "level <7-0>", {"l", "n"}, act}), "");
  // Anything but two whole numbers is an ordinary variable's name.
  for (const char *syntax : {"level <0-7>", "name <a-b>", "size <-5>", "port <1-2-3>"}) {
    EXPECT_EQ(refusal(table, {Mode::Exec, syntax, {"k", "v"}, act}), "") << syntax;
  }
  EXPECT_TRUE(table.commands()[0].tokens[1].range.has_value());
  for (std::size_t i = 1; i < table.commands().size(); ++i) EXPECT_FALSE(table.commands()[i].tokens[1].range);
}

class Matching : public ::testing::Test {
 protected:
  void SetUp() override { register_commands(table); }
  std::string syntax_of(Mode mode, const Words &words) {
    Match match = table.match(mode, words);
    return match.status == MatchStatus::Ok ? match.command->syntax : "";
  }
  CommandTable table;
};

TEST_F(Matching, KeywordsMayBeAbbreviatedInAnyCaseWhenUnambiguous) {
  EXPECT_EQ(syntax_of(Mode::Exec, {"SH", "Sched", "J", "n", "NAME"}), "show scheduler job [name <job>]");
  EXPECT_EQ(syntax_of(Mode::Schedule, {"ex"}), "exit");
  // "e" could be email-addr, end or exit, even where only one of them could take the rest.
  EXPECT_EQ(table.match(Mode::Schedule, Words{"e"}).status, MatchStatus::Ambiguous);
  EXPECT_EQ(table.match(Mode::Schedule, Words{"e", "ops@example.com"}).status, MatchStatus::Ambiguous);
  // A variable takes its word as typed.
  Words words{"show", "scheduler", "job", "name", "n"};
  EXPECT_EQ(Arguments(table.match(Mode::Exec, words), words, "", {}).value("<job>"), "n");
}

TEST_F(Matching, AKeywordIsPreferredToAVariableThatTakesTheSameWord) {
  EXPECT_EQ(syntax_of(Mode::Schedule, {"time", "start", "now", "re", "1:00"}),
            "[no] time start now [repeat <interval>]");
  EXPECT_EQ(syntax_of(Mode::Schedule, {"time", "start", "+1", "repeat", "1:00"}),
            "[no] time start <time> [repeat <interval>]");
  // "now" is no time, so alone it is the keyword's form too.
  EXPECT_EQ(syntax_of(Mode::Schedule, {"time", "start", "now"}), "[no] time start now [repeat <interval>]");
}

TEST_F(Matching, FailuresSayWhichWordAndWhy) {
  EXPECT_EQ(table.match(Mode::Exec, Words{}).status, MatchStatus::Empty);
  Match unknown = table.match(Mode::Exec, Words{"show", "scheduler", "jobz"});
  EXPECT_EQ(unknown.status, MatchStatus::Invalid);
  EXPECT_EQ(unknown.error_word, 2u);
  Match extra = table.match(Mode::Exec, Words{"configure", "terminal", "now"});
  EXPECT_EQ(extra.status, MatchStatus::Invalid);
  EXPECT_EQ(extra.error_word, 2u);
  EXPECT_EQ(table.match(Mode::Exec, Words{"show", "scheduler"}).status, MatchStatus::Incomplete);
  // An empty word (a quoted "") abbreviates nothing.
  EXPECT_EQ(table.match(Mode::Exec, Words{"", "terminal"}).status, MatchStatus::Invalid);
}

TEST_F(Matching, ANumberVariableTakesOnlyAWholeNumberInItsRange) {
  const std::string level = "[no] logging level scheduler <0-7>";
  for (const char *word : {"0", "7", "007"}) {
    EXPECT_EQ(syntax_of(Mode::Config, {"logging", "level", "scheduler", word}), level) << word;
  }
  for (const char *word : {"8", "-1", "+1", "1.0", "x", "", "99999999999999999999"}) {
    Match match = table.match(Mode::Config, Words{"logging", "level", "scheduler", word});
    EXPECT_EQ(match.status, MatchStatus::Invalid) << word;
    EXPECT_EQ(match.error_word, 3u) << word;
  }
  // The optional port is recognised by its number; a word out of its range is the error.
  Words server{"scheduler", "transport", "email", "smtp-server", "h", "port", "65535", "vrf", "v"};
  EXPECT_EQ(Arguments(table.match(Mode::Config, server), server, "", {}).number("<1-65535>"), 65535);
  server[6] = "65536";
  EXPECT_EQ(table.match(Mode::Config, server).error_word, 6u);
}

TEST_F(Matching, ARemovedFeatureTakesAllItsCommandsAndNothingElse) {
  const std::vector<std::string> removed{"scheduler"};
  EXPECT_EQ(table.match(Mode::Config, Words{"scheduler", "job", "name", "j"}, removed).status, MatchStatus::Invalid);
  EXPECT_EQ(table.match(Mode::Exec, Words{"show", "scheduler", "job"}, removed).status, MatchStatus::Invalid);
  EXPECT_EQ(table.match(Mode::Schedule, Words{"time", "daily", "10:00"}, removed).status, MatchStatus::Invalid);
  EXPECT_EQ(table.match(Mode::Config, Words{"no", "feature", "scheduler"}, removed).status, MatchStatus::Ok);
  EXPECT_EQ(table.match(Mode::Exec, Words{"show", "running-config", "scheduler"}, removed).status, MatchStatus::Ok);
  std::vector<std::string> offered;
  for (const HelpItem &item : table.help(Mode::Config, Words{}, "", removed)) offered.push_back(item.word);
  EXPECT_EQ(offered, (Words{"end", "exit", "feature", "no", "show"}));
  EXPECT_EQ(table.completions(Mode::Exec, Words{"show"}, "", removed), (Words{"running-config", "startup-config"}));
  // Abbreviations are judged among the commands still there.
  EXPECT_EQ(table.match(Mode::Exec, Words{"sh", "s"}).status, MatchStatus::Ambiguous);
  Match alone = table.match(Mode::Exec, Words{"sh", "s"}, removed);
  ASSERT_EQ(alone.status, MatchStatus::Ok);
  EXPECT_EQ(alone.command->syntax, "show startup-config [scheduler]");
}

TEST_F(Matching, ARestOfLineVariableKeepsTheLineAsTyped) {
  std::string line = "scheduler job name j1   echo \"a  b\" ;  ls \t";
  Words words{"scheduler", "job", "name", "j1", "echo", "a  b", ";", "ls"};
  std::vector<std::size_t> offsets{0, 10, 14, 19, 24, 29, 36, 39};
  Match match = table.match(Mode::Config, words);
  ASSERT_EQ(match.status, MatchStatus::Ok);
  EXPECT_EQ(Arguments(match, words, line, offsets).value("<commands>"), "echo \"a  b\" ;  ls");
}

}  // namespace
}  // namespace schedsh
