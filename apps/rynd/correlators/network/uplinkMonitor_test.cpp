#include "correlators/network/uplinkMonitor.h"

#include <filesystem>

#include "core/basics/timerThread.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

constexpr int64_t Ms(int64_t milliseconds) {
  return milliseconds * 1'000'000;
}

const UplinkPort kPort7 = {"7", "dvs"};
const UplinkPort kPort8 = {"8", "dvs"};

/// A monitor, the timer that it arms, and a host with two port groups on each of two switches and two ports.
class UplinkMonitorTest : public testing::Test {
 protected:
  void SetUp() override {
    ClearHost();
    for (const char *name : {"pg-a", "pg-b"}) PutHost(std::string("net/portgroups/") + name, "vSwitch0");
    for (const char *name : {"pg-c", "pg-d"}) PutHost(std::string("net/portgroups/") + name, "vSwitch1");
    for (const char *name : {"7", "8"}) PutHost(std::string("net/dvports/dvs/") + name, "");
    Timer() = {};
    TakeEvents();
  }
  static int TimerId() {
    static const int id = RegisterTimer("test", nullptr);
    return id;
  }
  static FakeTimer &Timer() { return Timers()[static_cast<size_t>(TimerId())]; }

  bool IsPending(uint32_t state) { return (monitor.Timers().PendingOf("hynic0") & state) != 0; }
  /// What is posted when the timer fires at `ms`.
  Events At(int64_t ms) {
    monitor.OnUplinkTimeout(Ms(ms));
    return TakeEvents();
  }
  /// The same: names only, without "amb." and their namespace.
  Events NamesAt(int64_t ms) {
    Events names = At(ms);
    for (std::string &name : names) name = name.substr(name.find('.', 4) + 1, name.find(' ') - name.find('.', 4) - 1);
    return names;
  }
  /// hynic0 goes down at `ms` for pg-a, which has `remaining` uplinks left.
  void Down(const char *portGroup, int32_t remaining, int64_t ms) {
    monitor.PortGroupUplinkDown("hynic0", portGroup, remaining, Ms(ms));
  }
  void Up(const char *portGroup, int32_t remaining, int64_t ms) {
    monitor.PortGroupUplinkUp("hynic0", portGroup, remaining, Ms(ms));
  }
  void DVPortDown(const UplinkPort &port, int32_t remaining, int64_t ms) {
    monitor.DVPortUplinkDown("hynic0", port, remaining, Ms(ms));
  }
  void DVPortUp(const UplinkPort &port, int32_t remaining, int64_t ms) {
    monitor.DVPortUplinkUp("hynic0", port, remaining, Ms(ms));
  }

  UplinkMonitor monitor{TimerId()};
};
using UplinkMonitorDeathTest = UplinkMonitorTest;

TEST_F(UplinkMonitorTest, PortGroupsOfOneUplinkMakeOneBatch) {
  const int32_t remaining[] = {0, 1, 2, 0, 1, 2, -1, 3, -7, 0};
  for (int i = 0; i < 10; ++i) {
    const std::string name = i == 0 ? "pg-a" : "pg-" + std::to_string(i);
    monitor.PortGroupUplinkDown("hynic0", name, remaining[i], Ms(i * 100));
  }
  EXPECT_EQ(Timer().armings, 1u);
  EXPECT_EQ(At(1000), Events{});  // a whole second is left
  EXPECT_EQ(At(1001),
            (Events{"amb.problem.net.connectivity.lost Lost network connectivity on virtual switch vSwitch0. Physical "
                    "NIC hynic0 is down. Affected port groups: \"pg-a\", \"pg-3\", \"pg-9\"",
                    "amb.problem.net.redundancy.lost Lost uplink redundancy on virtual switch vSwitch0. Physical NIC "
                    "hynic0 is down. Affected port groups: \"pg-1\", \"pg-4\"",
                    "amb.problem.net.redundancy.degraded Uplink redundancy degraded on virtual switch vSwitch0. "
                    "Physical NIC hynic0 is down. Affected port groups: \"pg-2\", \"pg-5\", \"pg-7\""}));
  EXPECT_FALSE(IsPending(PG_DOWN));
  EXPECT_EQ(At(9000), Events{});
}

TEST_F(UplinkMonitorTest, DVPortsListTheirNamesAndExtendTheirDeadline) {
  DVPortDown(kPort7, 1, 0);
  DVPortDown(kPort8, 1, 0);
  DVPortDown({"7", "other"}, 2, 500);  // another port
  DVPortDown(kPort7, 0, 1500);         // in place of the first report
  EXPECT_EQ(monitor.Timers().Held().size(), 1u);
  EXPECT_EQ(At(2000), Events{});
  EXPECT_EQ(At(2500), Events{});
  EXPECT_EQ(At(3500), (Events{"amb.problem.net.dvport.connectivity.lost Lost network connectivity on DVPorts: \"7\". "
                              "Physical NIC hynic0 is down.",
                              "amb.problem.net.dvport.redundancy.lost Lost uplink redundancy on DVPorts: \"8\". "
                              "Physical NIC hynic0 is down.",
                              "amb.problem.net.dvport.redundancy.degraded Uplink redundancy degraded on DVPorts: "
                              "\"7\". Physical NIC hynic0 is down."}));
  // Port groups keep theirs.
  Down("pg-a", 2, 10'000);
  Down("pg-b", 2, 11'500);
  EXPECT_EQ(At(12'000).size(), 1u);
}

TEST_F(UplinkMonitorTest, TheTimerIsArmedForTheEarliestInWholeSeconds) {
  Down("pg-a", 0, 0);
  EXPECT_EQ(Timer().intervalS, 2);
  EXPECT_EQ(Timer().periodic, 0u);
  monitor.UplinkWatchdogTimeout("hynic1", Ms(100));
  EXPECT_EQ(Timer().armings, 1u) << "a later deadline arms nothing";
  monitor.HynicLinkDown("hynic2", Ms(200));
  EXPECT_EQ(Timer().armings, 2u);
  EXPECT_EQ(Timer().intervalS, 1);
  EXPECT_EQ(At(500), Events{"amb.problem.net.hynic.linkstate.down Physical NIC hynic2 linkstate is down"});
  EXPECT_EQ(Timer().armings, 3u);
  EXPECT_EQ(Timer().intervalS, 1) << "1.5 s are left";
  EXPECT_EQ(At(1200).size(), 1u) << "0.8 s are left";
  EXPECT_EQ(Timer().intervalS, 5) << "5.9 s are left of the watchdog's";
  EXPECT_EQ(At(7100), Events{});
  EXPECT_EQ(Timer().armings, 4u);
  At(8000);
  EXPECT_EQ(Timer().armings, 4u) << "nothing is left to wait for";
}

TEST_F(UplinkMonitorTest, PortsSpeakForTheirLink) {
  // A report of ports is there already, or comes within the second.
  Down("pg-a", 2, 0);
  monitor.HynicLinkDown("hynic0", Ms(10));
  EXPECT_FALSE(IsPending(LINK_DOWN));
  monitor.HynicLinkDown("hynic1", Ms(10));
  monitor.DVPortUplinkDown("hynic1", kPort7, 2, Ms(20));
  EXPECT_EQ(NamesAt(1010), Events{"net.redundancy.degraded"});
  EXPECT_EQ(NamesAt(2020), Events{"net.dvport.redundancy.degraded"});
  monitor.HynicLinkUp("hynic0", Ms(10'000));
  Up("pg-a", 3, 10'500);
  monitor.DVPortUplinkUp("hynic1", kPort7, 3, Ms(10'500));
  monitor.HynicLinkUp("hynic1", Ms(10'500));
  EXPECT_EQ(At(11'000), Events{});
  EXPECT_EQ(NamesAt(12'500), (Events{"net.redundancy.restored", "net.dvport.redundancy.restored"}));
}

TEST_F(UplinkMonitorTest, ALinkThatIsUpClearsEverythingThatNoOtherHolds) {
  const Events everything = {"net.hynic.linkstate.up", "net.connectivity.restored", "net.dvport.connectivity.restored",
                             "net.redundancy.restored", "net.dvport.redundancy.restored"};
  monitor.HynicLinkUp("hynic0", Ms(0));
  EXPECT_EQ(NamesAt(1000), everything) << "nothing was lost";
  Down("pg-a", 0, 2000);
  Down("pg-b", 1, 2000);
  DVPortDown(kPort7, 0, 2000);
  DVPortDown(kPort8, 1, 2000);
  EXPECT_EQ(At(4000).size(), 4u);
  monitor.HynicLinkUp("hynic0", Ms(5000));
  EXPECT_EQ(NamesAt(6000), everything) << "all that was lost was its own";
  monitor.DVPortUplinkDown("hynic1", kPort7, 0, Ms(7000));
  monitor.DVPortUplinkDown("hynic1", kPort8, 1, Ms(7000));
  EXPECT_EQ(At(9000).size(), 2u);
  monitor.HynicLinkUp("hynic0", Ms(9000));
  EXPECT_EQ(NamesAt(10'000), Events{everything[0]}) << "another uplink's losses stand";
}

TEST_F(UplinkMonitorTest, ARestoreWaitsForAllLossesOfItsKind) {
  Down("pg-a", 0, 0);
  Down("pg-b", 1, 0);
  monitor.PortGroupUplinkDown("hynic1", "pg-c", 1, Ms(0));
  monitor.DVPortUplinkDown("hynic2", kPort7, 0, Ms(0));
  EXPECT_EQ(At(2000).size(), 4u);
  // Connectivity waits for the port, redundancy for pg-c.
  Up("pg-a", 1, 3000);
  Up("pg-b", 2, 3000);
  EXPECT_EQ(At(5000), Events{});
  EXPECT_FALSE(monitor.PortGroups().connectivityLost.Names("hynic0"));
  EXPECT_FALSE(monitor.PortGroups().redundancyLost.Names("hynic0"));
  Up("pg-b", 2, 5000);  // once more: listed as often as it came back
  EXPECT_EQ(At(7000), Events{});
  monitor.DVPortUplinkUp("hynic2", kPort7, 1, Ms(8000));
  EXPECT_EQ(NamesAt(10'000), Events{"net.dvport.connectivity.restored"});
  monitor.PortGroupUplinkUp("hynic1", "pg-c", 2, Ms(11'000));
  EXPECT_EQ(At(13'000), Events{"amb.clear.net.redundancy.restored Uplink redundancy restored on virtual switch "
                               "vSwitch1, portgroups: \"pg-b\", \"pg-b\", \"pg-c\". Physical NIC hynic1 is up"});
  Up("pg-a", 1, 14'000);
  EXPECT_EQ(NamesAt(16'000), Events{"net.connectivity.restored"});
  // Two ports of one name; what waited is not reported again.
  PutHost("net/dvports/other/7", "");
  DVPortUp(kPort7, 3, 17'000);
  DVPortUp({"7", "other"}, 2, 17'100);
  DVPortUp(kPort8, 2, 17'200);
  DVPortUp(kPort7, 2, 17'300);  // in place of the first report, at its own place
  EXPECT_EQ(At(19'300), Events{"amb.clear.net.dvport.redundancy.restored Uplink redundancy restored on DVPorts: "
                               "\"7\", \"8\", \"7\". Physical NIC hynic0 is up recently"});
}

TEST_F(UplinkMonitorTest, ALargeBatchThatWaitsIsListedAsFarAsAnEventCarriesIt) {
  monitor.PortGroupUplinkDown("hynic1", "pg-c", 1, Ms(0));
  At(2000);
  const auto name = [](size_t i) { return "port group " + std::to_string(i); };
  constexpr size_t kPorts = 20'000;
  Up("pg-a", 2, 3000);
  for (size_t i = 0; i < kPorts; ++i) Up(name(i).c_str(), 2, 3000);
  for (size_t i = 0; i < kPorts; ++i) DVPortDown({name(i), "dvs"}, 0, 3000);
  for (size_t i = 0; i < kPorts; ++i) DVPortDown({name(i), "dvs"}, 2, 3001);
  EXPECT_EQ(NamesAt(5001), Events{"net.dvport.redundancy.degraded"});
  monitor.PortGroupUplinkUp("hynic1", "pg-c", 2, Ms(6000));
  const Events events = At(8000);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_NE(events[0].find(name(kPorts - 2) + "\", \"" + name(kPorts - 1) + "\", \"pg-c\""), std::string::npos);
  EXPECT_LT(events[0].size(), 18'300u);
  EXPECT_GT(events[0].size(), 17'900u);
}

TEST_F(UplinkMonitorTest, AnUplinkThatIsUpForOneKindOfPortIsUpForBoth) {
  DVPortDown(kPort7, 0, 0);
  DVPortDown(kPort8, 1, 0);
  At(2000);
  Up("pg-a", 1, 3000);
  EXPECT_EQ(At(5000).size(), 1u);
  EXPECT_TRUE(monitor.DVPorts().connectivityLost.Empty());
  EXPECT_FALSE(monitor.DVPorts().redundancyLost.Empty()) << "a first uplink is no redundancy";
  Up("pg-a", 2, 6000);
  EXPECT_EQ(At(8000).size(), 1u);
  EXPECT_TRUE(monitor.DVPorts().redundancyLost.Empty());
  // The other way round. Ports without an active uplink restore nothing.
  Down("pg-a", 0, 10'000);
  At(12'000);
  DVPortUp(kPort7, 0, 13'000);
  DVPortUp(kPort8, -1, 13'000);
  EXPECT_EQ(At(15'000), Events{});
  EXPECT_FALSE(monitor.PortGroups().connectivityLost.Empty());
  DVPortUp(kPort7, 2, 16'000);
  EXPECT_EQ(NamesAt(18'000), Events{"net.dvport.redundancy.restored"});
  EXPECT_TRUE(monitor.PortGroups().connectivityLost.Empty());
}

TEST_F(UplinkMonitorTest, AnUplinkOrAPortThatIsBackHasLostNothing) {
  for (const int32_t left : {0, 1}) {  // connectivity, then redundancy
    Down("pg-a", left, 0);
    Down("pg-b", left, 0);
    At(2000);
    Up("pg-a", left + 1, 3000);
    EXPECT_EQ(At(5000).size(), 1u) << "pg-b was lost to the same uplink";
  }
  Down("pg-a", 0, 6000);
  At(8000);
  monitor.PortGroupUplinkUp("hynic1", "pg-b", 1, Ms(9000));
  EXPECT_EQ(At(11'000), Events{});
  monitor.PortGroupUplinkUp("hynic1", "pg-a", 1, Ms(12'000));
  EXPECT_EQ(At(14'000).size(), 1u) << "another uplink serves it";
  // A port of the same name on another switch is another port.
  PutHost("net/dvports/other/7", "");
  DVPortDown(kPort7, 0, 15'000);
  At(17'000);
  monitor.DVPortUplinkUp("hynic1", {"7", "other"}, 1, Ms(18'000));
  EXPECT_EQ(At(20'000), Events{});
  monitor.DVPortUplinkUp("hynic1", kPort7, 1, Ms(21'000));
  EXPECT_EQ(At(23'000).size(), 1u);
}

TEST_F(UplinkMonitorTest, WhatHasDisappearedIsLostNoMore) {
  Down("pg-a", 0, 0);
  monitor.PortGroupUplinkDown("hynic1", "pg-c", 0, Ms(0));
  monitor.DVPortUplinkDown("hynic1", {"9", "dvs"}, 1, Ms(0));
  At(2000);
  std::filesystem::remove(HostPath("net/portgroups/pg-c"));
  Up("pg-a", 1, 3000);
  EXPECT_EQ(At(5000).size(), 1u) << "pg-c is gone, and with it its loss";
  // Port 9 of the switch never was; port and switch are asked for in the right order.
  PutHost("net/dvports/9/dvs", "");
  DVPortUp(kPort7, 2, 6000);
  EXPECT_EQ(At(8000).size(), 1u);
  EXPECT_TRUE(monitor.DVPorts().redundancyLost.Empty());
}

TEST_F(UplinkMonitorTest, WithoutASwitchABatchIsForgotten) {
  PutHost("net/portgroups/none", "");
  PutHost("net/portgroups/broken", "two\nlines");
  for (const char *name : {"missing", "none", "broken", ""}) {
    Down(name, 0, 0);
    Down("pg-a", 0, 0);
    EXPECT_EQ(At(2000), Events{}) << name;
    EXPECT_TRUE(monitor.PortGroups().connectivityLost.Empty()) << name;
    EXPECT_TRUE(monitor.PortGroups().downRecords.empty());
    Down("pg-b", 0, 3000);
    At(5000);
    Up(name, 1, 6000);
    EXPECT_EQ(At(8000), Events{}) << name;
    EXPECT_EQ(monitor.PortGroups().connectivityLost.Size(), 1u) << name << ": nothing else is done";
    EXPECT_TRUE(monitor.PortGroups().upRecords.empty());
    Up("pg-b", 1, 9000);
    EXPECT_EQ(At(11'000).size(), 1u);
  }
}

TEST_F(UplinkMonitorTest, LosingTheSameAgainKeepsOneLoss) {
  for (int64_t ms = 0; ms < 10'000; ms += 2000) {
    for (int i = 0; i < 2; ++i) Down("pg-a", 0, ms);
    DVPortDown(kPort7, 1, ms);
    EXPECT_EQ(At(ms + 2000).size(), 2u);
  }
  EXPECT_EQ(monitor.PortGroups().connectivityLost.Size() + monitor.DVPorts().redundancyLost.Size(), 2u);
}

TEST_F(UplinkMonitorTest, AWatchdogThatFindsDownAndUpReportsAResetOnly) {
  // The link alone.
  monitor.UplinkWatchdogTimeout("hynic0", Ms(0));
  monitor.HynicLinkDown("hynic0", Ms(100));
  EXPECT_EQ(At(1100), Events{});
  monitor.HynicLinkUp("hynic0", Ms(2000));
  EXPECT_EQ(At(3000), Events{});
  EXPECT_EQ(NamesAt(7000), Events{"net.hynic.watchdog.reset"});
  EXPECT_EQ(monitor.Timers().PendingOf("hynic0"), 0u);
  // All kinds, some of them with timers that would still fire.
  monitor.UplinkWatchdogTimeout("hynic0", Ms(10'000));
  Down("pg-a", 0, 10'000);
  DVPortDown(kPort7, 0, 10'000);
  EXPECT_EQ(At(12'000), Events{});
  monitor.HynicLinkDown("hynic1", Ms(16'500));
  monitor.HynicLinkUp("hynic0", Ms(16'600));
  Up("pg-a", 1, 16'700);
  DVPortUp(kPort7, 1, 16'800);
  EXPECT_EQ(NamesAt(17'000), (Events{"net.hynic.watchdog.reset", "net.hynic.linkstate.down"}));
  EXPECT_EQ(monitor.Timers().PendingOf("hynic0"), 0u);
  EXPECT_TRUE(monitor.Timers().Held().empty());
  for (const auto *ports : {&monitor.PortGroups(), &monitor.DVPorts()}) {
    EXPECT_TRUE(ports->downRecords.empty() && ports->upRecords.empty() && ports->connectivityLost.Empty());
  }
  EXPECT_EQ(At(30'000), Events{});
  // The next failure is an ordinary one.
  monitor.HynicLinkDown("hynic0", Ms(31'000));
  EXPECT_EQ(At(32'000).size(), 1u);
}

TEST_F(UplinkMonitorTest, AWatchdogThatFindsOneDirectionDecidesOnce) {
  // A link that stays down: its own timer does nothing.
  monitor.UplinkWatchdogTimeout("hynic0", Ms(0));
  monitor.HynicLinkDown("hynic0", Ms(0));
  EXPECT_EQ(At(1000), Events{});
  EXPECT_TRUE(IsPending(LINK_DOWN));
  monitor.UplinkWatchdogTimeout("hynic0", Ms(3000));  // does not extend the window
  EXPECT_EQ(NamesAt(7000), Events{"net.hynic.linkstate.down"});
  EXPECT_TRUE(IsPending(WATCHDOG));
  // Port groups before ports, ports before the link.
  monitor.UplinkWatchdogTimeout("hynic1", Ms(10'000));
  monitor.HynicLinkDown("hynic1", Ms(10'000));
  monitor.DVPortUplinkDown("hynic1", kPort7, 0, Ms(16'900));
  EXPECT_EQ(NamesAt(17'000), Events{"net.dvport.connectivity.lost"});
  EXPECT_TRUE(monitor.Timers().Held().empty()) << "the ports' own timer goes with their report";
  monitor.UplinkWatchdogTimeout("hynic2", Ms(20'000));
  monitor.DVPortUplinkDown("hynic2", kPort8, 0, Ms(20'000));
  monitor.PortGroupUplinkDown("hynic2", "pg-c", 0, Ms(26'900));
  EXPECT_EQ(NamesAt(27'000), Events{"net.connectivity.lost"});
  EXPECT_TRUE(monitor.Timers().IsTransitionPending("hynic2", DVPORT_DOWN));
  EXPECT_TRUE(monitor.Timers().Held().empty());
  // Up alone, and nothing at all.
  monitor.UplinkWatchdogTimeout("hynic3", Ms(30'000));
  monitor.PortGroupUplinkUp("hynic3", "pg-c", 1, Ms(30'000));
  monitor.UplinkWatchdogTimeout("hynic4", Ms(30'000));
  EXPECT_EQ(At(60'000), Events{});
  EXPECT_TRUE(monitor.Timers().Held().empty());
}

TEST_F(UplinkMonitorTest, TransitionsThatNothingDecidesAreBounded) {
  monitor.UplinkWatchdogTimeout("hynic0", Ms(0));
  EXPECT_EQ(At(7000), Events{});
  CapturedLog log;
  for (size_t i = 0; i < PortRecords::kMost + 2; ++i) Down("pg-a", 0, 8000);
  EXPECT_EQ(monitor.PortGroups().downRecords.at("hynic0").Size(), PortRecords::kMost);
  EXPECT_EQ(log.CountOf("Too many transitions of ports of hynic0 are undecided, dropping that of pg-a"), 2u);
}

TEST_F(UplinkMonitorDeathTest, StatesThatDoNotExistAreFatal) {
  monitor.Timers().ScheduleUplinkTimer(60, "hynic0", 0x80, Ms(0));
  EXPECT_DEATH(At(60'000), "Received timeout event for unknown state: 80\n");
  monitor.UplinkWatchdogTimeout("hynic0", Ms(0));
  EXPECT_DEATH(At(7000), "Unknown state: c0\n");
}

}  // namespace
}  // namespace rynd
