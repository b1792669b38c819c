#include <sys/resource.h>
#include <unistd.h>

#include <iterator>
#include <tuple>

#include "core/basics/timerThread.h"
#include "correlators/network/networkCorrelators.h"
#include "correlators/network/uplinkHandlers.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

/// What an observation posts; one of it at the most.
std::string EventOf(const std::string &id, const Arguments &arguments) {
  const Events events = EventsOf(NetHandlers(), id, arguments);
  EXPECT_LE(events.size(), 1u) << id;
  return events.empty() ? "" : events[0];
}

TEST(NetCorrelator, AFenceFailureIsPostedByItsStatus) {
  const std::tuple<int64_t, const char *, const char *> rows[] = {
      {0x0BAD0007, "port.badfenceid", "invalid fenceId"},
      {0x0BAD0002, "switch.unavailable", "dvSwitch fence property is not set"},
      {5, "resource.limited", "maximum number of fence networks or ports have been reached"}};
  for (const auto &[status, name, reason] : rows) {
    EXPECT_EQ(EventOf("ryn.net.fence.port.fail", {Str("p"), Str("sw"), Int(5), Int(status)}),
              std::string("amb.problem.net.fence.") + name +
                  " Hykernel fails to set fenceId 5 on distributed virtual port p on switch sw, reason: " + reason);
  }
  EXPECT_EQ(EventOf("ryn.net.fence.port.fail", {Str("p"), Str("sw"), Int(5)}), "");
}

TEST(NetCorrelator, TheMachineOfAnOffloadIsNamedOrNothingIsPosted) {
  EXPECT_EQ(EventOf("ryn.net.e1000.tso6.notsupported", {Int(31)}), "");
  PutHost("sysinfo/vm/vmmGroupInfo/31", "web 100%s\n");

  EXPECT_EQ(EventOf("ryn.net.e1000.tso6.notsupported", {Int(31)}),
            "amb.problem.net.e1000.tso6.notsupported Guest-initiated IPv6 TCP Segmentation Offload (TSO) packets "
            "ignored. Manually disable TSO inside the guest operating system in Virtual Machine web 100%s, or use a "
            "different virtual adapter.");
  EXPECT_EQ(EventOf("ryn.net.e1000.tso6.notsupported", {Str("31")}), "");
}

TEST(NetCorrelator, UplinkTransitionsStartTheirTimerOnceAllArgumentsAreRead) {
  // The earliest deadline last: others arm nothing.
  const std::pair<const char *, Arguments> rows[] = {
      {"ryn.net.uplink.watchdog.timeout", {Str("u0")}},
      {"ryn.net.pg.uplink.transition.down", {Str("u1"), NullStr(), Int(0), Int(1)}},
      {"ryn.net.hynic.linkstate.up", {NullStr()}},
      {"ryn.net.pg.uplink.transition.up", {Str("u1"), Str("pg"), Int(0), Int(1)}},
      {"ryn.net.dvport.uplink.transition.down", {Str("u1"), Str("7"), NullStr(), Int(0), Int(1)}},
      {"ryn.net.dvport.uplink.transition.up", {Str("u1"), NullStr(), Str("dvs"), Int(0)}},
      {"ryn.net.hynic.linkstate.down", {Str("u2")}}};
  const int64_t seconds[] = {7, 2, 1};
  ASSERT_TRUE(RegisterUplinkTimer());
  const FakeTimer &timer = Timers().back();
  unsigned armings = 0;
  for (const auto &[id, arguments] : rows) {
    for (size_t i = 0; i < arguments.size(); ++i) {
      EXPECT_EQ(EventOf(id, Arguments(arguments.begin(), arguments.begin() + static_cast<long>(i))), "");
      EXPECT_EQ(timer.armings, armings) << id << " with " << i << " arguments";
    }
    EXPECT_EQ(EventOf(id, arguments), "");
    if (armings < std::size(seconds)) {
      EXPECT_EQ(timer.intervalS, seconds[armings++]) << id;
    }
  }
  // The links have less than a second left.
  OnUplinkTimeout();
  const Events events = TakeEvents();
  ASSERT_EQ(events.size(), 6u);
  EXPECT_EQ(events.front(), "amb.clear.net.hynic.linkstate.up Physical NIC (null) linkstate is up");
  EXPECT_EQ(events.back(), "amb.problem.net.hynic.linkstate.down Physical NIC u2 linkstate is down");
}

/// The timer is registered once in a process: this runs before whatever else uses it, and in processes of its own.
TEST(NetCorrelatorDeathTest, WithoutATimerItDoesNotRunAndWithoutAPipeItIsFatal) {
  EXPECT_EXIT(
      {
        CapturedLog log;
        while (RegisterTimer("test", nullptr) != -1) {
        }
        RyndNetCorrelator();
        _exit(log.Messages().empty() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "^$");
  EXPECT_DEATH(
      {
        const rlimit none = {};
        setrlimit(RLIMIT_NOFILE, &none);
        RyndNetCorrelator();
      },
      "Failed to initialize pipes for this thread: Too many open files\n");
}

TEST(MigrateCorrelator, PostsItsTwoFailures) {
  const std::string shutdown = "ryn.migrate.zmove.server.pending.cnx.listen.socket.shutdown";
  const auto status = [&](const hosted::RawArgument &argument) {
    const Events events = EventsOf(MigrateHandlers(), shutdown, {argument});
    EXPECT_EQ(events.size(), 1u);
    return events[0].substr(events[0].find(" Failure status: "));
  };
  EXPECT_EQ(status(Str("Limit 100%d")), " Failure status: Limit 100%d");
  EXPECT_EQ(status(NullStr()), " Failure status: unknown");

  EXPECT_EQ(EventsOf(MigrateHandlers(), shutdown, {}), Events{});
  EXPECT_EQ(EventsOf(MigrateHandlers(), "ryn.migrate.zmove.default.heap.create.failed", {}).size(), 1u);
}

}  // namespace
}  // namespace rynd
