// A million random transitions over a hundred uplinks.
#include <malloc.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "core/basics/clock.h"
#include "core/basics/timerThread.h"
#include "correlators/network/uplinkMonitor.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

constexpr int kTransitions = RYND_SLOW_BUILD ? 100'000 : 1'000'000;
constexpr size_t kUplinks = 100;
constexpr size_t kPorts = 8;

/// A host on which things happen at random, and the daemon's timer as it would fire.
class RandomHost {
 public:
  /// `onTime`: decide when the timer fires, that is for all that has about settled; else often enough to see single
  /// decisions.
  RandomHost(unsigned seed, bool onTime) : random_(seed), onTime_(onTime) {
    for (size_t port = 0; port < kPorts; ++port) SetPresent(port, true);
    timer_ = {};
    TakeEvents();
  }

  void Run(int transitions) {
    for (int i = 0; i < transitions; ++i) {
      Step();
      if (i % 2000 == 0) CheckState();
      if (testing::Test::HasFatalFailure()) FAIL() << "transition " << i;
    }
  }

  size_t EventCount() const { return eventCount_; }

 private:
  void Step() {
    nowNs_ += static_cast<int64_t>(Below(2000)) * 1000;
    if (Below(2000) == 0) SetPresent(Below(kPorts), Below(4) != 0);
    Transition();
    FollowTimer();
    if (onTime_ ? dueS_ != 0 && nowNs_ / kNsPerSecond >= dueS_ : Below(4) == 0) Decide();
    ASSERT_TRUE(monitor_.Timers().Held().empty() || dueS_ != 0) << "nothing will ever decide";
  }

  /// Every timer has its bit, and every bit of an uplink that no watchdog holds up has one timer; records are there
  /// while their transition is pending.
  void CheckState() {
    std::map<std::string, uint32_t> timers;
    for (const UplinkTimer &timer : monitor_.Timers().Held()) {
      ASSERT_EQ(timers[timer.uplink] & timer.state, 0u) << "two timers";
      timers[timer.uplink] |= timer.state;
    }
    for (size_t i = 0; i < kUplinks; ++i) {
      const std::string uplink = Uplink(i);
      const uint32_t pending = monitor_.Timers().PendingOf(uplink);
      const bool isWatched = (pending & WATCHDOG) != 0;
      ASSERT_EQ(isWatched ? timers[uplink] & ~pending : timers[uplink] ^ pending, 0u) << uplink;
      const bool held[] = {
          monitor_.PortGroups().downRecords.contains(uplink), monitor_.PortGroups().upRecords.contains(uplink),
          monitor_.DVPorts().downRecords.contains(uplink), monitor_.DVPorts().upRecords.contains(uplink)};
      const uint32_t bits[] = {PG_DOWN, PG_UP, DVPORT_DOWN, DVPORT_UP};
      for (size_t kind = 0; kind < 4; ++kind)
        ASSERT_EQ(held[kind], (pending & bits[kind]) != 0) << uplink << " " << kind;
    }
  }

  size_t Below(size_t bound) { return random_() % bound; }
  static std::string Uplink(size_t i) { return "hynic" + std::to_string(i); }

  static void SetPresent(size_t port, bool isPresent) {
    for (const char *kind : {"net/portgroups/pg", "net/dvports/dvs/"}) {
      PutHost(kind + std::to_string(port), "vSwitch0");
      if (!isPresent) std::filesystem::remove(HostPath(kind + std::to_string(port)));
    }
  }

  /// Some uplinks see much more than others.
  void Transition() {
    const std::string uplink = Uplink(std::min(Below(kUplinks), Below(kUplinks)));
    const auto remaining = static_cast<int32_t>(Below(5)) - 1;
    const std::string name = std::to_string(Below(kPorts));
    const size_t what = Below(1000);
    if (what < 250) return monitor_.PortGroupUplinkDown(uplink, "pg" + name, remaining, nowNs_);
    if (what < 550) return monitor_.PortGroupUplinkUp(uplink, "pg" + name, remaining, nowNs_);
    if (what < 660) return monitor_.DVPortUplinkDown(uplink, {name, "dvs"}, remaining, nowNs_);
    if (what < 800) return monitor_.DVPortUplinkUp(uplink, {name, "dvs"}, remaining, nowNs_);
    if (what < 898) return monitor_.HynicLinkDown(uplink, nowNs_);
    if (what < 998) return monitor_.HynicLinkUp(uplink, nowNs_);
    monitor_.UplinkWatchdogTimeout(uplink, nowNs_);
  }

  /// The daemon's timers know whole seconds.
  void FollowTimer() {
    if (timer_.armings == armings_) return;
    armings_ = timer_.armings;
    dueS_ = nowNs_ / kNsPerSecond + timer_.intervalS;
    ASSERT_GT(timer_.intervalS, 0);
  }

  void Decide() {
    dueS_ = onTime_ ? 0 : dueS_;
    const bool isLinkUp = std::ranges::any_of(monitor_.Timers().Held(), [this](const UplinkTimer &timer) {
      return timer.state == LINK_UP && timer.deadlineNs - nowNs_ < kNsPerSecond;
    });
    monitor_.OnUplinkTimeout(nowNs_);
    FollowTimer();
    for (const std::string &event : TakeEvents()) {
      ++eventCount_;
      const bool isEmpty = event.find("orts: .") != std::string::npos || event.find("oups: .") != std::string::npos ||
                           event.ends_with(": ") || event.find("witch .") != std::string::npos;
      ASSERT_TRUE(!isEmpty || isLinkUp) << event;
    }
  }

  static inline const int timerId_ = RegisterTimer("test", nullptr);
  std::mt19937 random_;
  const bool onTime_;
  int64_t nowNs_ = 1000 * kNsPerSecond;
  UplinkMonitor monitor_{timerId_};
  FakeTimer &timer_ = Timers()[static_cast<size_t>(timerId_)];
  unsigned armings_ = 0;
  int64_t dueS_ = 0;  ///< 0: not armed
  size_t eventCount_ = 0;
};

TEST(UplinkRandom, AMillionTransitionsKeepItsInvariantsAndItsMemory) {
  for (const bool onTime : {false, true}) {
    RandomHost host(17, onTime);
    host.Run(kTransitions / 4);
    const size_t before = mallinfo2().uordblks;
    host.Run(kTransitions / 4);
    if (HasFatalFailure()) return;
    EXPECT_LT(mallinfo2().uordblks, before + kTransitions) << "four bytes a transition";
    EXPECT_GT(host.EventCount(), static_cast<size_t>(kTransitions) / 100);
  }
}

}  // namespace
}  // namespace rynd
