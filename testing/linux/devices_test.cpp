// Devices and addresses for real, as far as namespaces have them.
#include <gtest/gtest.h>

#include <csignal>

#include "testing/linux/linuxHost.h"

namespace testing_support {
namespace {

TEST(LinuxAddresses, OneThatAnotherHostHasIsToldWithItsOwner) {
  ENTER_NAMESPACES();
  LinuxHost host({"--sources", "addresses"});
  if (!host.Watches("addresses")) GTEST_SKIP() << host.Check();
  // The other host is a network namespace of its own, and has the address first.
  ASSERT_TRUE(Shell(
      "set -e; ip link add eth0 type veth peer name cable0 address 52:54:00:12:34:56; unshare -n sleep 30 & other=$!;"
      "sleep 0.3; ip link set cable0 netns $other; in=\"nsenter -t $other -n\"; $in ip link set cable0 up;"
      "$in ip -6 addr add 2001:db8::1/64 dev cable0 nodad; ip link set eth0 up; sleep 0.3;"
      "echo '<6>IPv6: eth0: IPv6 duplicate address 2001:db8::2 used by 00:00:00:00:00:01 detected!' >/dev/kmsg;"
      "ip -6 addr add 2001:db8::2/64 dev eth0; ip -6 addr add 2001:db8::1/64 dev eth0"));
  EXPECT_TRUE(
      host.Tells("net.hyknic.ip.duplicate Duplicate IP address detected for 2001:db8::1 on interface eth0, "
                 "current owner being 52:54:00:12:34:56."));
  host.EndDaemon(SIGTERM);
  host.StartDaemon();
  EXPECT_TRUE(host.Tells("hyknic.ip.duplicate", 2)) << "it still has it";
  ASSERT_TRUE(Shell("ip -6 addr del 2001:db8::1/64 dev eth0"));
  EXPECT_TRUE(host.Tells("it is no longer that of another host, or no longer one of eth0"));
  EXPECT_EQ(host.CountOf("2001:db8::2"), 0u) << "a program wrote that line";
  EXPECT_EQ(host.Events().size(), 3u) << host.All();
}

TEST(LinuxDisks, WhatIsNoDiskThatComesIsNotToldAndSmartdIsHeard) {
  ENTER_NAMESPACES();
  const TestRoot work;
  LinuxHost host({"--sources", "disks,tx-timeouts,pages", "--poll", "1"});
  ASSERT_TRUE(host.Watches("disks") && host.Watches("tx-timeouts")) << host.Check();
  // Written by a program, as is done to have device files made anew; and of what is no device.
  ASSERT_TRUE(Shell("for disk in /sys/block/*; do echo add >$disk/uevent; done; truncate -s 1M '" + (work / "/img") +
                    "' && loop=$(losetup --show -f '" + (work / "/img") + "') && losetup -d $loop; true"));
  Pause(2);
  EXPECT_EQ(host.All(), "");
  const auto smartd = [&](const std::string &kind) {
    return Shell("CORVANE_ROOT=" + host.Root().Path() + " SMARTD_FAILTYPE=" + kind +
                 " SMARTD_DEVICE=/dev/rynd-none SMARTD_MESSAGE=words " RYNLINUXD_PROGRAM " --smartd 2>/dev/null");
  };
  EXPECT_TRUE(smartd("Health") && smartd("Temperature"));
  EXPECT_TRUE(host.Tells("hcm.event.disk.predictive.failure"));
  EXPECT_TRUE(host.Tells("smartd reports Temperature: words"));
  EXPECT_FALSE(smartd("")) << "not called by smartd";
  host.EndDaemon(SIGTERM);
  EXPECT_FALSE(smartd("Health")) << "nobody heard it";
}

}  // namespace
}  // namespace testing_support
