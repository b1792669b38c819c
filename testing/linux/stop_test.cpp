// The host's end: what systemctl answers decides, here one of the test's own.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include "testing/linux/linuxHost.h"

namespace testing_support {
namespace {

TEST(LinuxStop, ARebootIsToldAndTheStopOfAServiceIsNot) {
  ENTER_NAMESPACES();
  const TestRoot tools;
  const std::string path = std::getenv("PATH");
  setenv("PATH", (tools.Path() + ":" + path).c_str(), 1);
  ASSERT_TRUE(Shell("mount -t tmpfs none /run && mkdir -p /run/systemd/system")) << "a host that systemd runs";
  const auto answer = [&](const std::string &body) {
    WriteFile(tools / "/systemctl", "#!/bin/sh\n" + body + "\n");
    ASSERT_TRUE(Shell("chmod +x " + (tools / "/systemctl")));
  };
  LinuxHost host({"--sources", "stop,boot"});
  const auto restart = [&] {
    host.EndWatcher(SIGTERM);
    host.StartWatcher();
  };
  answer("echo '5 rynlinuxd.service restart running'");
  restart();
  answer("exit 1");
  restart();
  EXPECT_EQ(host.All(), "");
  answer(
      "[ \"$1\" = list-jobs ] && echo '5 rynd.service stop waiting' && echo '7 reboot.target start waiting'; exec "
      "sleep 60");
  restart();
  EXPECT_TRUE(host.Tells("host.stop.reboot Host is rebooting."));
  answer("echo '7 poweroff.target start waiting'");
  restart();
  EXPECT_TRUE(host.Tells("host.stop.shutdown Host is shutting down."));
  EXPECT_EQ(host.Events().size(), 2u) << host.All();
  setenv("PATH", path.c_str(), 1);
}

}  // namespace
}  // namespace testing_support
