// librynsubmit as its users get it: installed, found by pkg-config, linked with a C program.
#include <gtest/gtest.h>

#include <cstdlib>

#include "testing/daemon.h"

namespace testing_support {
namespace {

/// The exit status of a shell command, whose output goes to `log`.
int Shell(const std::string &command, const std::string &log) {
  const int status = std::system(("{ " + command + "; } >" + log + " 2>&1").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(SubmitLibrary, ServesACProgramThatIsBuiltAgainstItsPackage) {
  if (IsSlowBuild()) GTEST_SKIP() << "a library of this build needs more than a C compiler";
  RunningDaemon running;
  const std::string prefix = running.root / "/prefix", log = running.root / "/build.log";
  ASSERT_EQ(Shell("cmake --install " RYND_BUILD " --component rynsubmit --prefix " + prefix, log), 0) << ReadFile(log);
  const std::string find =
      "PKG_CONFIG_PATH=$(dirname $(find " + prefix + " -name rynsubmit.pc)); export PKG_CONFIG_PATH";
  const std::string program = prefix + "/example";
  ASSERT_EQ(Shell(find + "; cc -std=c99 -Wall -Wextra -Wpedantic -Werror " + prefix +
                      "/share/doc/rynsubmit/example.c $(pkg-config --cflags --libs rynsubmit)"
                      " -Wl,-rpath,$(pkg-config --variable=libdir rynsubmit) -o " +
                      program,
                  log),
            0)
      << ReadFile(log);
  ASSERT_EQ(Shell("CORVANE_ROOT=" + running.root / "" + " " + program, log), 0) << ReadFile(log);
  EXPECT_TRUE(running.events.Records().WaitFor("the cache battery wears out"));
  EXPECT_EQ(running.events.Names(), std::vector<std::string>{"amb.problem.3rdParty.warning"});
  // Nothing but the C library stands behind it, and nothing but its functions is offered.
  ASSERT_EQ(Shell("readelf -d $(find " + prefix +
                      " -name librynsubmit.so) | grep NEEDED |"
                      " grep -v 'libc\\.so' ; nm -D --defined-only $(find " +
                      prefix + " -name librynsubmit.so) | awk '{print $3}' | sort",
                  log),
            0);
  const std::string symbols = ReadFile(log);
  EXPECT_EQ(symbols.find("NEEDED"), std::string::npos) << symbols;
  EXPECT_TRUE(symbols.ends_with("rynsubmit_close\nrynsubmit_connect\nrynsubmit_submit\n")) << symbols;
  EXPECT_EQ(running.daemon.Stop(), 0);
  // Without a daemon the program says so.
  EXPECT_EQ(Shell("CORVANE_ROOT=" + running.root / "" + " " + program, log), 1);
  EXPECT_NE(ReadFile(log).find("cannot reach rynd: "), std::string::npos);
}

}  // namespace
}  // namespace testing_support
