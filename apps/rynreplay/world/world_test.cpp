// Hours and days of the daemon's correlators, on simulated time.
#include "replay/world/world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "core/basics/statistics.h"
#include "hosted/records/rawRecord.h"
#include "testing/replay/ownProcess.h"

namespace replay {
namespace {

using hosted::RawArgument;
using testing_support::InOwnProcess;
using Texts = std::vector<std::string>;
using Tree = std::vector<std::pair<std::string, std::string>>;

RawArgument Str(const std::string &text) {
  return {hosted::ArgumentKind::kString, 0, 0, text};
}
RawArgument Long(uint64_t value) {
  return {hosted::ArgumentKind::kUnsigned, 8, value, ""};
}
RawArgument Int(int32_t value) {
  return {hosted::ArgumentKind::kSigned, 4, static_cast<uint64_t>(value), ""};
}

Texts names, actions;

/// A host whose daemon has just started, with files of its tree.
class Hours {
 public:
  explicit Hours(const Tree &tree = {}) {
    world_.clock.Set(1'000 * rynd::kNsPerSecond, 1'700'000'000'000'000);
    world_.HearSteps(
        [](void *, const Step &, std::vector<Post> posts) {
          for (const Post &post : posts) names.push_back(post.name + (post.dropReason.empty() ? "" : " dropped"));
        },
        nullptr);
    world_.host.HearBy([](const HostAnswer &answer, bool) {
      if (answer.operation == HostOperation::kAction) actions.push_back(answer.path);
    });
    for (const auto &[path, text] : tree) world_.host.Put(path, text);
    world_.Start();
  }
  /// Seconds after the start; parts of one count.
  void At(double seconds) { world_.RunUntil(static_cast<int64_t>((1'000 + seconds) * 1e9)); }
  void Observe(const std::string &id, const std::vector<RawArgument> &arguments = {}) {
    const std::vector<std::byte> bytes = hosted::EncodeRecord({0, world_.clock.WallUs(), id, "m", arguments});
    world_.Observe({reinterpret_cast<const char *>(bytes.data()), bytes.size()}, world_.clock.MonotonicNs());
  }
  Texts Posted() { return std::exchange(names, {}); }
  Texts Done() { return std::exchange(actions, {}); }
  World &Its() { return world_; }

 private:
  World &world_ = TheWorld();
};

const rynd::EventStatistics &Events() {
  return rynd::Stats().events;
}

TEST(SimulatedHours, EventsThatWaitAreTriedEachMinuteAndGoOutInOrder) {
  InOwnProcess([] {
    Hours hours;
    hours.Its().posts.SetAccepting(false);
    for (int i = 0; i < 50; ++i) {
      hours.At(i);
      hours.Observe("ryn.storage.apd.start", {Str("naa." + std::to_string(i))});
    }
    EXPECT_EQ(Events().waiting, 50u);
    hours.At(59.9);
    EXPECT_EQ(Events().retries.Get(), 0u);
    // A whole day without an agent, while the wall clock is set again and again: one attempt a minute.
    for (int hour = 1; hour <= 24; ++hour) {
      hours.At(3'600 * hour);
      const int64_t nowNs = hours.Its().clock.MonotonicNs();
      hours.Its().clock.Set(nowNs, 1'700'000'000'000'000 + static_cast<uint64_t>(hour % 3) * 90'000'000'000);
    }
    EXPECT_EQ(Events().retries.Get(), 1'440u);
    EXPECT_EQ(Events().waiting, 50u);
    hours.Its().posts.SetAccepting(true);
    hours.At(86'459);
    EXPECT_EQ(Events().sent.Get(), 0u);
    hours.At(86'461);
    EXPECT_EQ(Events().sent.Get(), 50u);
    EXPECT_EQ(Events().waiting, 0u);
    hours.At(200'000);  // no timer is left
    EXPECT_EQ(Events().retries.Get(), 1'440u + 50);
    hours.Observe("ryn.storage.apd.exit", {Str("naa.1")});
    EXPECT_EQ(Events().sent.Get(), 51u);
  });
}

TEST(SimulatedHours, PageErrorsAreToleratedPeriodByPeriod) {
  const auto error = [](Hours *hours, uint64_t page) { hours->Observe("ryn.cpu.mem.ce.log", {Long(page << 12)}); };
  InOwnProcess([&] {
    Hours hours;
    for (int period = 0; period < 2'880; ++period) {  // a day of two errors in each 30 s
      hours.At(30 * period + 1);
      error(&hours, 7);
      hours.At(30 * period + 29);
      error(&hours, 7);
    }
    EXPECT_EQ(hours.Done(), Texts{});
    hours.At(86'401);
    for (int i = 0; i < 3; ++i) error(&hours, 7);
    EXPECT_EQ(hours.Done(), Texts{"system/pageRetire/retireMPNs"});
  });
}

TEST(SimulatedHours, AlarmsRestAndCountersAreSweptOverADay) {
  InOwnProcess([] {
    Hours hours(Tree{{"storage/paths/hba1", "naa.1"}, {"storage/devices/naa.1/redundancy", "0"}});
    for (int minute = 0; minute < 1'440; ++minute) {
      hours.At(61 * minute + 0.5);
      hours.Observe("ryn.velfs.ramdisk.full", {Str("tmp"), Str("/tmp/a")});
      hours.Observe("ryn.clock.state.reset");
      // Changes of a path, swept once a minute behind the first one: the tenth never comes.
      for (int i = 0; i < 8; ++i) hours.Observe("ryn.scsi.scsipath.pathstate.on", {Str("hba1"), Str("standby")});
    }
    size_t full = 0, reset = 0, other = 0;
    for (const std::string &name : hours.Posted()) {
      ++(name == "amb.problem.velfs.ramdisk.full" ? full : name == "amb.problem.clock.state.reset" ? reset : other);
    }
    EXPECT_EQ(full, 288u);  // more than 300 s apart: each fifth time
    EXPECT_EQ(reset, 24u);  // an hour or more
    EXPECT_EQ(other, 0u);
  });
}

TEST(SimulatedHours, UplinksSettleByTheirTimersAndAWatchdogKeepsThemSilent) {
  InOwnProcess([] {
    Hours hours(Tree{{"net/portgroups/Production", "vSwitch0"}});
    const std::vector<RawArgument> ports = {Str("hynic0"), Str("Production"), Int(0), Int(1)};
    for (int day = 0; day < 30; ++day) {
      const double start = 86'400.0 * day;
      hours.At(start + 1.3);
      hours.Observe("ryn.net.pg.uplink.transition.down", ports);
      hours.Observe("ryn.net.hynic.linkstate.down", {Str("hynic0")});
      hours.At(start + 2.2);
      EXPECT_EQ(hours.Posted(), Texts{});
      hours.At(start + 4);
      EXPECT_EQ(hours.Posted(), Texts{"amb.problem.net.connectivity.lost"}) << day;
      hours.Observe("ryn.net.pg.uplink.transition.up", {Str("hynic0"), Str("Production"), Int(1), Int(1)});
      hours.At(start + 7);
      EXPECT_EQ(hours.Posted(), Texts{"amb.clear.net.connectivity.restored"}) << day;
    }
    hours.Observe("ryn.net.uplink.watchdog.timeout", {Str("hynic0")});
    for (int i = 0; i < 1'000; ++i) {
      hours.At(30 * 86'400.0 + 60 * i);
      hours.Observe("ryn.net.hynic.linkstate.down", {Str("hynic0")});
    }
    EXPECT_EQ(hours.Posted(), Texts{});
  });
}

TEST(SimulatedHours, AClockThatIsSetBackAndForthSilencesNothing) {
  InOwnProcess([] {
    Hours hours;
    for (int i = 0; i < 2'000; ++i) {
      const int64_t nowNs = (1'000 + 301 * int64_t{i}) * rynd::kNsPerSecond;
      const int64_t stepS = i % 3 == 0 ? -86'400 : i % 3 == 1 ? 0 : 40'000;
      hours.Its().clock.Set(nowNs, static_cast<uint64_t>(1'700'000'000 + 301 * i + stepS) * 1'000'000);
      hours.Observe("ryn.velfs.ramdisk.full", {Str("tmp"), Str("/tmp/a")});
    }
    EXPECT_EQ(hours.Posted().size(), 2'000u);
  });
}

}  // namespace
}  // namespace replay
