// The command line of schedsh.
#include <gtest/gtest.h>

#include "options.h"

namespace schedsh {
namespace {

using Arguments = std::vector<std::string>;

TEST(Options, AreUnderstood) {
  Options options = parse_options(Arguments{"-c", "show scheduler job", "-cexit", "--runtime-dir", "/r",
                                            "--state-dir=/s", "--debug", "--timeout", "5"})
                        .options;
  EXPECT_EQ(options.commands, (Arguments{"show scheduler job", "exit"}));
  EXPECT_EQ(options.runtime_dir, "/r");
  EXPECT_EQ(options.state_dir, "/s");
  EXPECT_TRUE(options.debug);
  EXPECT_EQ(options.timeout_seconds, 5u);
  EXPECT_EQ(parse_options(Arguments{"--", "-odd-name"}).options.script, "-odd-name");
  EXPECT_FALSE(parse_options(Arguments{"-"}).options.script);   // standard input
}

TEST(Options, MistakesAreReported) {
  for (const Arguments &arguments : {Arguments{"-c"}, Arguments{"--runtime-dir"}, Arguments{"--runtime-dir="},
                                     Arguments{"--timeout", "0"}, Arguments{"--timeout", "5s"}, Arguments{"--bogus"},
                                     Arguments{"a", "b"}, Arguments{"-c", "exit", "file"}}) {
    EXPECT_NE(parse_options(arguments).error, "") << arguments.front();
  }
}

}  // namespace
}  // namespace schedsh
