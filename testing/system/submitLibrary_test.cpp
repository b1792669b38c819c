// librynsubmit as its users get it: installed, found by pkg-config, linked with a C program.
#include <gtest/gtest.h>

#include "testing/daemon.h"

namespace testing_support {
namespace {

TEST(SubmitLibrary, ServesACProgramThatIsBuiltAgainstItsPackage) {
  if (IsSlowBuild()) GTEST_SKIP() << "a library of this build needs more than a C compiler";
  RunningDaemon running;
  const auto shell = [&running](const std::string &command) {
    return RunShell("{ cd " + running.root.Path() + "; export CORVANE_ROOT=$PWD; " + command + "; } 2>&1");
  };
  Output output = shell("cmake --install " RYND_BUILD " --component rynsubmit --prefix $PWD/prefix");
  ASSERT_EQ(output.status, 0) << output.text;
  output = shell(
      "export PKG_CONFIG_PATH=$(dirname $(find $PWD/prefix -name rynsubmit.pc)); cc -std=c99 -Wall -Wextra -Wpedantic"
      " -Werror prefix/share/doc/rynsubmit/example.c $(pkg-config --cflags --libs rynsubmit)"
      " -Wl,-rpath,$(pkg-config --variable=libdir rynsubmit) -o example");
  ASSERT_EQ(output.status, 0) << output.text;
  output = shell("./example");
  ASSERT_EQ(output.status, 0) << output.text;
  EXPECT_TRUE(running.events.Records().WaitFor("the cache battery wears out"));
  EXPECT_EQ(running.events.Names(), std::vector<std::string>{"amb.problem.3rdParty.warning"});
  // Nothing but the C library stands behind it, and nothing but its functions is offered.
  EXPECT_EQ(
      shell("library=$(find prefix -name librynsubmit.so); readelf -d $library | grep NEEDED | grep -v 'libc\\.so';"
            " nm -D --defined-only $library | awk '{print $3}' | sort")
          .text,
      "rynsubmit_close\nrynsubmit_connect\nrynsubmit_submit\n");
  EXPECT_EQ(running.daemon.Stop(), 0);
  // Without a daemon the program says so.
  output = shell("./example");
  EXPECT_EQ(output.status, 1);
  EXPECT_NE(output.text.find("cannot reach rynd: "), std::string::npos) << output.text;
}

}  // namespace
}  // namespace testing_support
