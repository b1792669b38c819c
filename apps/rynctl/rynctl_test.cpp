// What all commands share: help, exit statuses, colors.
#include "rynctl/rynctl.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "rynctl/console.h"
#include "rynctl/toolRun.h"
#include "testing/testRoot.h"

namespace rynctl {
namespace {

TEST(Rynctl, HelpsWithAnExample) {
  for (const char *command : {"submit", "listen", "trace", "explain", "catalog"}) {
    const ToolResult help = RunTool({command, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    EXPECT_NE(help.out.find("\n  rynctl " + std::string(command)), std::string::npos) << help.out;
    EXPECT_NE(help.out.find("--root DIR"), std::string::npos);
    EXPECT_EQ(RunTool({"help", command}).out, help.out);
    EXPECT_NE(RunTool({"--help"}).out.find(command), std::string::npos);
    for (const std::string &line : testing_support::Lines(help.out + RunTool({"help"}).out))
      EXPECT_LE(line.size(), 80u) << line;

    const ToolResult mistake = RunTool({command, "--no-such-option"});
    EXPECT_EQ(mistake.status, 2);
    EXPECT_EQ(mistake.out, "");
    EXPECT_NE(mistake.err.find("--no-such-option"), std::string::npos) << mistake.err;
    EXPECT_NE(mistake.err.find("rynctl " + std::string(command) + " --help"), std::string::npos) << mistake.err;
  }
}

TEST(Rynctl, EndsWithTheStatusesOfItsManual) {
  for (const char *option : {"--version", "-V"}) EXPECT_EQ(RunTool({option}).out, "rynctl " RYND_VERSION "\n");
  EXPECT_EQ(RunTool({"help"}).out, RunTool({"--help"}).out);
  EXPECT_EQ(RunTool({"help", "nothing"}).err, "rynctl: unknown command nothing\nTry 'rynctl --help'.\n");
  const ToolResult nothing = RunTool({});
  EXPECT_EQ(nothing.status, 2);
  EXPECT_EQ(nothing.out, "");
  EXPECT_EQ(nothing.err, RunTool({"--help"}).out);
  EXPECT_EQ(RunTool({"sumbit", "--help"}).err,
            "rynctl: unknown command sumbit (did you mean submit?)\nTry 'rynctl --help'.\n");
  EXPECT_EQ(RunTool({"trace", "--jsno"}).err,
            "rynctl trace: unknown option --jsno (did you mean --json?)\nTry 'rynctl trace --help'.\n");
  EXPECT_EQ(RunTool({"--verbose"}).status, 2);
  EXPECT_EQ(RunTool({"catalog", "\x1b[2J"}).err.find('\x1b'), std::string::npos);
}

TEST(Console, ColorsATerminalThatWantsIt) {
  std::ostringstream stream;
  const Console terminal{stream, stream, true};
  const Console pipe{stream, stream, false};
  setenv("TERM", "xterm", 1);
  unsetenv("NO_COLOR");
  EXPECT_TRUE(UseColor("auto", terminal));
  EXPECT_FALSE(UseColor("never", terminal));
  EXPECT_FALSE(UseColor("auto", pipe));
  EXPECT_TRUE(UseColor("always", pipe));
  setenv("NO_COLOR", "1", 1);
  EXPECT_FALSE(UseColor("auto", terminal));
  EXPECT_TRUE(UseColor("always", terminal));
  unsetenv("NO_COLOR");
  setenv("TERM", "dumb", 1);
  EXPECT_FALSE(UseColor("auto", terminal));
}

TEST(Console, FailsWhenTheOutputTakesNoMore) {
  std::ostringstream err;
  std::ostringstream out;
  out.setstate(std::ios::badbit);
  char name[] = "rynctl";
  char command[] = "catalog";
  char *argv[] = {name, command};
  EXPECT_EQ(Main(2, argv, out, err), 1);
}

}  // namespace
}  // namespace rynctl
