// Real links in a namespace: cables are pulled, and the events read.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <sys/ioctl.h>

#include <csignal>
#include <cstring>
#include <random>

#include "testing/linux/linuxHost.h"
#include "testing/testRoot.h"

namespace testing_support {
namespace {

/// eth0 alone, eth1 and eth2 in br0; cableN is the other end.
bool MakeLinks() {
  return Shell(
      "set -e; ip link set lo up; ip link add br0 type bridge; ip link set br0 up;"
      "for i in 0 1 2; do ip link add eth$i type veth peer name cable$i; ip link set eth$i up; ip link set cable$i up;"
      "done; ip link set eth1 master br0; ip link set eth2 master br0");
}

TEST(LinuxLinks, APulledCableIsToldAndWhatIsNoneIsNot) {
  ENTER_NAMESPACES();
  ASSERT_TRUE(MakeLinks());
  LinuxHost host({"--sources", "links", "--nics", "eth*"});
  // None of this is a loss.
  ASSERT_TRUE(
      Shell("ip link set eth2 nomaster; ip link set eth2 master br0; ip link set eth0 down; sleep 0.3;"
            "ip link set eth0 up; ip link set cable0 mtu 1400; ip link add eth9 type veth peer name cable9;"
            "ip link set eth9 up; sleep 0.3; ip link del eth9"));
  Pause(3);
  EXPECT_EQ(host.All(), "");
  ASSERT_TRUE(Shell("ip link set cable0 down; ip link set cable1 down"));
  EXPECT_TRUE(host.Tells("Physical NIC eth0 linkstate is down"));
  EXPECT_TRUE(host.Tells(
      "net.redundancy.lost Lost uplink redundancy on virtual switch br0. Physical NIC eth1 is down. Affected port "
      "groups: \"br0\""));
  ASSERT_TRUE(Shell("ip link set cable2 down"));
  EXPECT_TRUE(host.Tells("net.connectivity.lost Lost network connectivity on virtual switch br0. Physical NIC eth2"));
  ASSERT_TRUE(Shell("ip link set cable2 up; ip link set cable1 up; ip link set cable0 up"));
  EXPECT_TRUE(
      host.Tells("net.redundancy.restored Uplink redundancy restored on virtual switch br0, portgroups: \"br0\""));
  EXPECT_TRUE(host.Tells("Physical NIC eth0 linkstate is up"));
  // Down, up, and down for good inside of the daemon's window.
  ASSERT_TRUE(Shell("ip link set cable0 down; ip link set cable0 up; ip link set cable0 down"));
  EXPECT_TRUE(host.Tells("eth0 linkstate is down", 2));
  EXPECT_TRUE(WaitUntil([&] { return host.LastOf("eth0 linkstate is").ends_with("is down"); })) << host.All();
  Pause(3);
  EXPECT_TRUE(host.CountOf("eth0 linkstate is down") >= 3 || host.CountOf("eth0 linkstate is up") == 1) << host.All();
}

/// A link whose carrier a descriptor holds.
struct Tap {
  base::UniqueFd fd{open("/dev/net/tun", O_RDWR | O_CLOEXEC)};
  bool Make(const char *name) {
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    return fd && ioctl(fd.Get(), TUNSETIFF, &request) == 0 && Shell(std::string("ip link set up ") + name);
  }
  bool SetCarrier(int on) const { return ioctl(fd.Get(), TUNSETCARRIER, &on) == 0; }
};

/// The sum of all warnings: a burst may end between two of its parts.
long LossesTold(const LinuxHost &host) {
  constexpr std::string_view kBefore = "the link was lost ";
  long sum = 0;
  for (const std::string &event : host.Events()) {
    const size_t at = event.find(kBefore);
    if (at != std::string::npos) sum += std::atol(event.c_str() + at + kBefore.size());
  }
  return sum;
}

TEST(LinuxLinks, TenThousandFlapsAreCountedThroughABufferOfFourKilobytes) {
  ENTER_NAMESPACES();
  Tap tap, other;
  if (!tap.Make("eth0") || !other.Make("eth1")) GTEST_SKIP() << "no tap devices here";
  LinuxHost host({"--sources", "links", "--nics", "eth*", "--netlink-buffer", "4096"});
  const long before = ReadProcessState(host.Watcher().Pid()).residentKib;
  // It gets no turn while its buffer runs over, and later on gets some.
  host.Watcher().Signal(SIGSTOP);
  for (int i = 0; i < 5'000; ++i) ASSERT_TRUE(tap.SetCarrier(0) && tap.SetCarrier(1));
  ASSERT_TRUE(Shell("for i in $(seq 20); do ip link set lo mtu $((2000 + i)); done"));
  host.Watcher().Signal(SIGCONT);
  EXPECT_TRUE(host.Log().WaitFor("Link messages were lost"));
  for (int i = 0; i < 5'000; ++i) ASSERT_TRUE(tap.SetCarrier(0) && tap.SetCarrier(1));
  ASSERT_TRUE(tap.SetCarrier(0) && other.SetCarrier(0));
  // Meanwhile the daemon serves everybody else.
  ASSERT_TRUE(SendRecord(ConnectKernel(host.Root(), 3), MakeRecord("ryn.storage.apd.start", {"naa.1"})));
  EXPECT_TRUE(host.Tells("storage.apd.start", 1, 5));
  EXPECT_TRUE(WaitUntil([&] { return LossesTold(host) == 10'001; })) << host.All();
  EXPECT_TRUE(host.Tells("Physical NIC eth1 linkstate is down"));
  EXPECT_NE(host.All().find("and is now down"), std::string::npos);
  EXPECT_TRUE(WaitUntil([&] { return host.LastOf("NIC eth0 linkstate").ends_with("is down"); })) << host.All();
  EXPECT_LT(host.CountOf("eth0 linkstate"), 200u);
  if (!IsSlowBuild()) {
    EXPECT_LT(ReadProcessState(host.Watcher().Pid()).residentKib, before + 300) << "memory is flat";
  }
}

TEST(LinuxLinks, AThousandLinksAreKnown) {
  ENTER_NAMESPACES();
  ASSERT_TRUE(
      Shell("for i in $(seq 500); do echo link add eth$i type veth peer name cable$i; echo link set eth$i up;"
            "echo link set cable$i up; done | ip -batch -"));
  LinuxHost host({"--sources", "links", "--nics", "eth*"});
  ASSERT_TRUE(Shell("for i in 1 250 500; do ip link set cable$i down; done"));
  for (const char *name : {"eth1 ", "eth250 ", "eth500 "}) {
    EXPECT_TRUE(host.Tells(std::string("Physical NIC ") + name + "linkstate is down"));
  }
  EXPECT_EQ(host.Events().size(), 3u) << host.All();
}

/// The last event of each NIC says how it is.
bool IsTold(const LinuxHost &host, const std::string &nic, bool isDown, bool wasEverDown) {
  const std::string last = host.LastOf("NIC " + nic + " linkstate");
  if (last.empty()) return !isDown && !wasEverDown;
  return last.ends_with(isDown ? "is down" : "is up");
}

TEST(LinuxLinks, RestartsAtRandomLeaveWhatIsOpenToldAndNothingElse) {
  ENTER_NAMESPACES();
  ASSERT_TRUE(MakeLinks() && Shell("ip link set eth1 nomaster; ip link set eth2 nomaster"));
  LinuxHost host({"--sources", "links", "--nics", "eth*"});
  std::mt19937 random(static_cast<unsigned>(EnvironmentNumber("RYND_SEED", 1)));
  bool isDown[3] = {}, wasDown[3] = {};
  for (int round = 0; round < 12; ++round) {
    const unsigned restart = random() % 4;
    const bool endsWatcher = (restart & 1) != 0, endsDaemon = (restart & 2) != 0;
    const int signal = random() % 2 == 0 ? SIGKILL : SIGTERM;
    if (endsWatcher) host.EndWatcher(signal);
    if (endsDaemon) host.EndDaemon(signal);
    for (unsigned change = random() % 4; change > 0; --change) {
      const size_t i = random() % 3;
      isDown[i] = !isDown[i];
      wasDown[i] = wasDown[i] || isDown[i];
      ASSERT_TRUE(Shell("ip link set cable" + std::to_string(i) + (isDown[i] ? " down" : " up")));
    }
    if (endsDaemon) host.StartDaemon();
    if (endsWatcher) host.StartWatcher();
    Pause(0.001 * static_cast<double>(random() % 1500));
  }
  for (size_t i = 0; i < 3; ++i) {
    const std::string nic = "eth" + std::to_string(i);
    // A loss that came and went while nobody watched was never told.
    EXPECT_TRUE(WaitUntil([&] {
      return IsTold(host, nic, isDown[i], false) || IsTold(host, nic, isDown[i], wasDown[i]);
    })) << nic
        << (isDown[i] ? " is down\n" : " is up\n") << host.All();
  }
}

TEST(LinuxLinks, AnIdleHostIsLeftAlone) {
  ENTER_NAMESPACES();
  ASSERT_TRUE(MakeLinks());
  // All that nothing outside of these namespaces wakes.
  LinuxHost host({"--sources", "links,filesystems,fs-errors,raid,boot,clock", "--nics", "eth*"});
  Pause(2);
  const auto wakeUps = [&] {
    const std::string status = ReadFile("/proc/" + std::to_string(host.Watcher().Pid()) + "/status");
    return std::atol(status.c_str() + status.find("\nvoluntary_ctxt_switches:") + 25);
  };
  EXPECT_TRUE(host.Check().find("linux sources     boot, clock, filesystems, fs-errors, links, raid watch\n") !=
              std::string::npos)
      << host.Check();
  const long before = wakeUps();
  Pause(3);
  EXPECT_LE(wakeUps() - before, 4) << "the clock is read once a second, and nothing else is due";
  host.EndWatcher(SIGTERM);
  EXPECT_NE(host.Check().find("linux sources     rynlinuxd does not run"), std::string::npos) << host.Check();
}

TEST(LinuxLinks, AllSourcesTogetherHoldTwoMebibytes) {
  ENTER_NAMESPACES(true);
  // But for the one that would trace outside of these namespaces.
  LinuxHost host({"--poll", "1", "--sources",
                  "links,bonds,tx-timeouts,addresses,crashes,filesystems,fs-errors,oom,raid,disks,multipath,pages,boot,"
                  "clock,stop"});
  Pause(2);
  // With its processes; what is shared with others by their parts.
  const std::string watcher = std::to_string(host.Watcher().Pid());
  const std::string held = RunShell("cd /proc; awk '/^Pss:/ {sum += $2} END {print sum}' $(printf '%s/smaps_rollup ' " +
                                    watcher + " $(cat " + watcher + "/task/" + watcher + "/children))")
                               .text;
  std::printf("KiB: %s", held.c_str());
  EXPECT_GT(std::atol(held.c_str()), 100);
  if (!IsSlowBuild()) {
    EXPECT_LE(std::atol(held.c_str()), 2048);
  }
}

}  // namespace
}  // namespace testing_support
