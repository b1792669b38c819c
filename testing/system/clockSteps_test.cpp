// A daemon whose wall clock is set back and forth while everything that has a time waits.
#include <gtest/gtest.h>

#include "testing/daemon.h"
#include "testing/settableClock.h"

namespace testing_support {
namespace {

TEST(ClockSteps, SilenceNothingThatWaits) {
  const TestRoot root;
  SettableClock clock(root / "/clock");
  const LogListener log(root / "/dev/log");
  Daemon daemon(root);
  ASSERT_TRUE(log.Lines().WaitFor("Start polling loop."));
  const base::UniqueFd kernel = ConnectKernel(root);
  const auto report = [&](const std::string &id, const std::vector<std::string> &texts) {
    ASSERT_TRUE(SendRecord(kernel, MakeRecord(id, texts)));
  };
  // Nobody takes this event yet: it is due again in a minute.
  report("ryn.bootdevice.pdl.v2", {"naa.1"});
  ASSERT_TRUE(log.Lines().WaitFor("queueing for retry"));
  int uplinks = 0;
  for (const int64_t step : {-1, -60, -3600, 1, 3600, -86'400, 86'400, 59, -86'400}) {
    const std::string uplink = "hynic" + std::to_string(uplinks++);
    report("ryn.net.hynic.linkstate.down", {uplink});
    ASSERT_TRUE(log.Lines().WaitFor("[ryn.net.hynic.linkstate.down]", static_cast<size_t>(uplinks)));
    clock.Step(step);
    EXPECT_TRUE(log.Lines().WaitFor("Physical NIC " + uplink + " linkstate is down")) << step;
  }
  const EventListener events(root / "/var/run/corvane/mgmtd-kprob.sock");
  EXPECT_TRUE(events.Records().WaitFor("amb.problem.bootdevice.pdl.v2", 1, 90)) << "the retry is late";
  EXPECT_TRUE(WaitUntil([&] { return events.Names().size() == static_cast<size_t>(uplinks) + 1; }));
  EXPECT_EQ(daemon.Stop(), 0);
}

}  // namespace
}  // namespace testing_support
