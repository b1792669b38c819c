// Programs that crash, for real. The process connector is there in the initial network namespace alone, where all
// crashes of this machine are seen: those of these tests have names of their own.
#include <gtest/gtest.h>
#include <unistd.h>

#include "testing/linux/linuxHost.h"

namespace testing_support {
namespace {

TEST(LinuxCrashes, ACoreIsToldWithItsPlaceAndNoCoreAsSuch) {
  ENTER_NAMESPACES(true);
  const std::string pattern = ReadFile("/proc/sys/kernel/core_pattern");
  if (pattern.starts_with('|') || pattern == "\n") GTEST_SKIP() << "cores are no files here: " << pattern;
  const TestRoot work;
  const std::string tag = std::to_string(getpid() % 100000);
  const std::string folder = work / "/odd\n folder";
  LinuxHost host({"--sources", "crashes"});
  if (!host.Watches("crashes")) GTEST_SKIP() << host.Check();
  // A copy of a program under names of the test's crashes in the folder; whoever started it does not look after it at
  // once. On a busy machine it may be gone before its name is read: it is tried again then.
  const auto tells = [&](const std::string &name, const std::string &limit, const std::string &part) {
    const std::string program = "'" + work.Path() + "/" + name + "'";
    for (int i = 0; i < 10; ++i) {
      if (Shell("set -e; mkdir -p '" + folder + "'; cp /bin/sleep " + program + "; cd '" + folder + "'; ulimit -c " +
                limit + "; " + program + " 100 & sleep 0.2; kill -SEGV $!; exec sleep 0.5") &&
          host.Tells(part, 1, 2)) {
        return true;
      }
    }
    return false;
  };
  const std::string with = "crashA" + tag, without = "crashB" + tag, failing = "crashC" + tag;
  EXPECT_TRUE(tells(with, "unlimited",
                    "application.core.dumped An application (" + with +
                        ") running on Ambi host has crashed (1 time(s) so far). A core file may have been created at "))
      << host.All();
  ASSERT_TRUE(Shell("sh -c 'kill -TERM $$'; sleep 0.01; sh -c 'exit 139'; true")) << "these are no crashes";
  EXPECT_TRUE(tells(without, "0", without + " crashed by signal 11 (Segmentation fault) and left no core: its limit"))
      << host.All();
  EXPECT_EQ(host.CountOf("(" + without + ")"), 0u) << "no dump that failed";
  // Without privileges the folders of others can't be read.
  if (pattern == "core\n") {
    EXPECT_GT(host.CountOf("at core in its working directory."), 0u) << host.All();
  }
  // A folder that takes no core.
  ASSERT_TRUE(Shell("mount -t tmpfs -o ro none '" + folder + "'"));
  EXPECT_TRUE(tells(failing, "unlimited", "core.dumpFailed An application (" + failing + ")")) << host.All();
  EXPECT_EQ(host.CountOf(" sh crashed"), 0u);
}

}  // namespace
}  // namespace testing_support
