// A wall clock that is set at random while alarms settle, events wait and windows run: nothing is late or silent.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "hosted/paths.h"
#include "testing/campaign/campaign.h"
#include "testing/daemon.h"
#include "testing/settableClock.h"

namespace testing_support {
namespace {

/// A step of 1 s to 1 day, forward or back; as many short ones as long ones.
int64_t RandomStep(Rounds *rounds) {
  constexpr int64_t kBounds[] = {2, 10, 60, 70, 3'600, 86'400};
  const auto most = static_cast<uint64_t>(kBounds[rounds->Draw(std::size(kBounds))]);
  const auto step = static_cast<int64_t>(rounds->Draw(most)) + 1;
  return rounds->Draw(2) == 0 ? step : -step;
}

/// One daemon with a clock that is set, its log and its first context.
struct Scene {
  void Report(const std::string &id, const std::vector<std::string> &texts) {
    EXPECT_TRUE(SendRecord(kernel, MakeRecord(id, texts)));
  }
  const TestRoot root;
  SettableClock clock{root / "/clock"};
  const LogListener log{root / "/dev/log"};
  Daemon daemon{root};
  const bool isReady = log.Lines().WaitFor("Start polling loop.");
  base::UniqueFd kernel = ConnectKernel(root);
};

TEST(Clock, StepsWhileLinksSettleAndEventsWait) {
  Scene scene;
  size_t posted = 0;
  for (Rounds rounds(9); rounds.Next();) {
    SCOPED_TRACE(rounds.Name());
    const std::string uplink = "hynic" + std::to_string(rounds.Number());
    // Nobody takes this event yet: it is due again in a minute.
    scene.Report("ryn.bootdevice.pdl.v2", {uplink});
    scene.Report("ryn.net.hynic.linkstate.down", {uplink});
    ++posted;
    EXPECT_TRUE(scene.log.Lines().WaitFor("[ryn.net.hynic.linkstate.down]", posted));
    scene.clock.Step(RandomStep(&rounds));
    std::this_thread::sleep_for(std::chrono::milliseconds(rounds.Draw(1'500)));
    scene.clock.Step(RandomStep(&rounds));
    EXPECT_TRUE(scene.log.Lines().WaitFor("Physical NIC " + uplink + " linkstate is down", 1, 10)) << uplink;
    if (HasFailure()) return;
  }
  const EventListener events(scene.root / hosted::kEventSocket);
  EXPECT_TRUE(events.Records().WaitFor("amb.problem.bootdevice.pdl.v2", posted, 90)) << "the retry is late";
  scene.Report("ryn.bootdevice.apd.start.v2", {"naa.1"});
  EXPECT_TRUE(events.Records().WaitFor("amb.problem.bootdevice.apd.start.v2", 1, 5)) << "an alarm is mute";
  EXPECT_EQ(events.Names().size(), 2 * posted + 1) << "each once";
  EXPECT_EQ(scene.daemon.Stop(), 0);
}

/// The limit of alarms opens a new window a minute after the last, whatever the clock says: never later.
TEST(Clock, StepsWhileEventsWait) {
  if (EnvironmentNumber("RYND_CAMPAIGN_SECONDS", 0) == 0) GTEST_SKIP() << "a round takes more than a minute";
  for (Rounds rounds(1); rounds.Next();) {
    SCOPED_TRACE(rounds.Name());
    Scene scene;
    for (int i = 0; i < 1'100; ++i) scene.Report("ryn.bootdevice.pdl.v2", {"naa.1"});  // the window is full
    EXPECT_TRUE(scene.log.Lines().WaitFor("queueing for retry"));
    const EventListener events(scene.root / hosted::kEventSocket);
    for (int i = 0; i < 12; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(rounds.Draw(5'000)));
      scene.clock.Step(RandomStep(&rounds));
    }
    EXPECT_TRUE(events.Records().WaitFor("amb.problem.bootdevice.pdl.v2", 1'000, 70)) << "the retry is late";
    std::this_thread::sleep_for(std::chrono::seconds(62));
    scene.Report("ryn.bootdevice.apd.start.v2", {"naa.1"});
    EXPECT_TRUE(events.Records().WaitFor("amb.problem.bootdevice.apd.start.v2", 1, 5)) << "an alarm is mute";
    EXPECT_EQ(scene.daemon.Stop(), 0);
  }
}

}  // namespace
}  // namespace testing_support
