// Job commands: the requests on the wire, results and error lines, and how a one-line
// definition is split into commands.
#include <cstdlib>

#include "cli_testing.h"
#include "schedcli/status.h"

namespace {

using namespace cli_testing;

const char *const kInvalidName = "Invalid name. Name should begin with alphanumeric and may have '_' or '-'.\n";

class JobCommands : public CliTest {
 protected:
  // The command text that the one-line definition of `text` sends, its head checked.
  std::string split(const char *text) {
    EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"backup", text}), 0u) << text;
    Bytes sent = requests().back();
    auto n = uint32_t(sent.size() - 56);
    EXPECT_EQ(Bytes(sent.begin(), sent.begin() + 56), image(56, {{0, 1}, {4, n + 48}, {52, n}}, {{16, "backup"}}));
    return std::string(sent.begin() + 56, sent.end());
  }
};

TEST_F(JobCommands, OneLineDefinitionSplitsOnBlankSemicolonBlank) {
  // The first command loses its last character; later ones keep their blanks: intended.
  EXPECT_EQ(split("show clock"), "show cloc\n");
  EXPECT_EQ(split("a ; b ; c"), "a\n b \n c\n");
  EXPECT_EQ(split("a ; b ;"), "a\n b \n");
  EXPECT_EQ(split("a;b"), "a;\n");
  EXPECT_EQ(split("a ;b"), "a ;\n");
  EXPECT_EQ(split(""), "");
  // No credential is checked in this form, even for a remote user.
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"backup", "x"}, 0, false, kRemoteUser), 0u);
  EXPECT_EQ(requests().size(), 7u);

  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {nullptr, "x"}), 255u);
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"backup", nullptr}), 255u);
  EXPECT_EQ(output_.err, "");
  EXPECT_EQ(run(sch_cli_semicolon_delimiter_define_job, {"a.b", "x"}), 255u);
  EXPECT_EQ(output_.err, kInvalidName);
  EXPECT_EQ(requests().size(), 7u);
}

TEST_F(JobCommands, CommandsPastTheLimitAreDroppedAndTheRestIsSent) {
  // Appended: 1000 bytes for the first command, 1000 (" " + 998 + " ") for each later one.
  std::string text = std::string(1000, 'a') + " ", expected = std::string(1000, 'a') + "\n";
  for (int i = 1; i <= 9; i++) {
    text += "; " + std::string(998, 'b') + " ";
    if (i <= 7) expected += " " + std::string(998, 'b') + " \n";
  }
  EXPECT_EQ(split((text + "; zz").c_str()), expected + " zz\n");
  EXPECT_EQ(output_.err, "Cannot add more lines, buffer size 8192\nCannot add more lines, buffer size 8192\n");
}

}  // namespace
