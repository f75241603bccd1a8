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

// The error a declaration is refused with, or "" when it is taken.
std::string refusal(CommandTable &table, const CommandDeclaration &declaration) {
  try {
    table.add(declaration);
  } catch (const std::logic_error &error) {
    return error.what();
  }
  return "";
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

class Matching : public ::testing::Test {
 protected:
  void SetUp() override { register_commands(table); }
  CommandTable table;
};

}  // namespace
}  // namespace schedsh
