// Uplinks as the running daemon sees them: its own timer thread, its own clock.
#include <gtest/gtest.h>

#include "testing/daemon.h"

namespace testing_support {
namespace {

const char kHost[] = "/var/lib/corvane/host/";

/// A daemon whose kernel reports what happens to uplinks.
struct Uplinks : RunningDaemon {
  base::UniqueFd kernel = ConnectKernel(root, 5);

  void Report(const std::string &id, const std::vector<std::string> &texts, const std::vector<int32_t> &integers = {}) {
    ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.net." + id, texts, integers)));
  }
  /// Wait for an event whose logged text is `text`.
  bool Posts(const std::string &text) const { return log.Lines().WaitFor("] " + text); }
};

TEST(Uplink, LossesSettleAndAreRestored) {
  Uplinks host;
  for (const char *name : {"Production", "Backup"}) {
    WriteFile(host.root / (kHost + std::string("net/portgroups/") + name), "vSwitch0\n");
  }
  WriteFile(host.root / (kHost + std::string("net/dvports/dvs/17")), "");
  host.Report("pg.uplink.transition.down", {"hynic0", "Production"}, {0, 1});
  host.Report("dvport.uplink.transition.down", {"hynic0", "17", "dvs"}, {1, 2});
  host.Report("pg.uplink.transition.down", {"hynic0", "Backup"}, {0, 1});
  host.Report("hynic.linkstate.down", {"hynic0"});
  EXPECT_TRUE(
      host.Posts("Lost network connectivity on virtual switch vSwitch0. Physical NIC hynic0 is down. Affected "
                 "port groups: \"Production\", \"Backup\""));
  EXPECT_TRUE(host.Posts("Lost uplink redundancy on DVPorts: \"17\". Physical NIC hynic0 is down."));
  host.Report("pg.uplink.transition.up", {"hynic0", "Production"}, {1, 1});
  host.Report("pg.uplink.transition.up", {"hynic0", "Backup"}, {1, 1});
  host.Report("dvport.uplink.transition.up", {"hynic0", "17", "dvs"}, {2});
  EXPECT_TRUE(host.events.Records().WaitFor("amb.clear.net.connectivity.restored"));
  EXPECT_TRUE(host.events.Records().WaitFor("amb.clear.net.dvport.redundancy.restored"));
  host.Report("hynic.linkstate.up", {"hynic1"});
  EXPECT_TRUE(host.events.Records().WaitFor("amb.clear.net.dvport.redundancy.restored", 2));
  const std::vector<std::string> expected = {
      "amb.problem.net.connectivity.lost",          "amb.problem.net.dvport.redundancy.lost",
      "amb.clear.net.connectivity.restored",        "amb.clear.net.dvport.redundancy.restored",
      "amb.clear.net.hynic.linkstate.up",           "amb.clear.net.connectivity.restored",
      "amb.clear.net.dvport.connectivity.restored", "amb.clear.net.redundancy.restored",
      "amb.clear.net.dvport.redundancy.restored"};
  EXPECT_EQ(host.events.Names(), expected);
  EXPECT_EQ(host.daemon.Stop(), 0);
}

TEST(Uplink, TheWatchdogDecidesAndFlappingTakesANicDown) {
  Uplinks host;
  WriteFile(host.root / (kHost + std::string("sysinfo/config/intOpts/Net/LinkFlappingThreshold")), "2\n");
  for (const char *uplink : {"hynic0", "hynic1"}) {
    host.Report("uplink.watchdog.timeout", {uplink});
    host.Report("hynic.linkstate.down", {uplink});
  }
  host.Report("hynic.linkstate.up", {"hynic1"});
  for (int i = 0; i < 3; ++i) host.Report("hynic.linkstate.down", {"hynic2"});
  EXPECT_TRUE(host.Posts("Taking down physical NIC hynic2 because the link is flapping."));
  EXPECT_TRUE(ReadFile(host.root / "/var/lib/corvane/actions.log").ends_with("\tnet/pNics/linkFlapping\thynic2\t1\n"));
  EXPECT_TRUE(host.Posts("Physical NIC hynic2 linkstate is down"));
  host.Report("unheard.of", {"hynic0"});
  EXPECT_TRUE(host.log.Lines().WaitFor("No correlator for ryn.net.unheard.of "));
  EXPECT_TRUE(host.Posts("Physical NIC hynic0 linkstate is down"));
  EXPECT_TRUE(host.Posts("Uplink hynic1 has recovered from a transient failure due to watchdog timeout"));
  EXPECT_TRUE(host.events.Records().WaitFor("amb.", 4));
  EXPECT_EQ(host.events.Names().size(), 4u) << "each once, and nothing else";
  EXPECT_EQ(host.daemon.Stop(), 0);
}

}  // namespace
}  // namespace testing_support
