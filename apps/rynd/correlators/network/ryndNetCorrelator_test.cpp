#include <sys/resource.h>
#include <unistd.h>

#include <iterator>

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

}  // namespace
}  // namespace rynd
