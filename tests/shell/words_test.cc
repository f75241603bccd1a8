// The grammar's word rules: each kind of time in its exact shapes, addresses, job lines.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "words.h"

namespace schedsh {
namespace {

using List = std::vector<std::string>;

void expect_rule(bool (*accepts)(std::string_view), const List &good, const List &bad) {
  for (const std::string &word : good) EXPECT_TRUE(accepts(word)) << "refused: " << word;
  for (const std::string &word : bad) EXPECT_FALSE(accepts(word)) << "accepted: " << word;
}

TEST(TimeWords, AStartIsADateOrATimeFromNow) {
  expect_rule(is_start_time,
              {"2031:Jan:01:10:00", "2031:01:01:10:00", "2031:jan:1:1:0", "Mar:15:10:30", "15:10:30", "10:30",
               "+1:00:30", "+2:30", "+90", "2031:may:01:10:00"},
              {"30", "now", "+1:2:3:4", "+Jan:01:10:00", "31:Jan:01:10:00", "2031:Jan:01:10", "10:5x:00", ":10",
               "2031:January:01:10:00",   // longer than the 17 characters the parser keeps
               "2031:Jan:Mon:10:00", "+", "++1:00", "2031:13x:01:10:00", "Foo:15:10:30", "Mar:15:10:3x"});
  expect_rule(is_interval, {"1:02:03", "0:0:30", "30", "1:00"},
              {"x", "1:2:3:4", "", "1:", "-1", "1:2:300"});
}

TEST(AddressWords, OneLocalAtDomainWithoutBlanks) {
  expect_rule([](std::string_view w) { return is_email_address(w); },
              {"ops@example.com", "o.p+s@mail-1.example.com", "root@localhost", "a@b", "x!#$%&'*/=?^_`{|}~-@e.x"},
              {"notanemail", "ops@@example.com", "a b@example.com", "ops@example.com,dev@example.com",
               "<ops@example.com>", "@example.com", "ops@", "ops@-mail.example", "ops@mail..example",
               ".ops@example.com", "o..ps@example.com", "ops@example.com\r\nBcc: x@y", "ops@exa mple.com",
               "\"q\"@example.com", "ops@example.com.", ""});
}

TEST(JobLines, AJobLineMustReadBackAsOne) {
  EXPECT_FALSE(job_line_problem("tar czf /tmp/b.tgz /etc"));
  EXPECT_FALSE(job_line_problem("  printf 'a\tb'  "));   // a tab is ordinary
  EXPECT_FALSE(job_line_problem("exit"));
  EXPECT_FALSE(job_line_problem("ls /tmp/?"));
  EXPECT_FALSE(job_line_problem(""));
  for (std::string_view line : {"end-job", "  end-job  ", "?", " ? ", "echo \x1b[31m", "a\rb", "del\x7f"}) {
    EXPECT_TRUE(job_line_problem(line)) << line;
  }
  EXPECT_TRUE(has_control_character("a\x01"));
  EXPECT_FALSE(has_control_character("caf\xc3\xa9"));
}

}  // namespace
}  // namespace schedsh
