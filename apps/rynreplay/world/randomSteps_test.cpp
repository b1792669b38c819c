// A million random steps over weeks of simulated time: what must hold whatever a host reports. A seed that fails is
// saved as a recording, which `rynctl replay` runs again. RYND_RANDOM_STEPS: another number of steps; RYND_SEED: the
// first seed.
#include <gtest/gtest.h>
#include <malloc.h>

#include <fstream>
#include <map>
#include <set>

#include "catalog/catalog.h"
#include "core/basics/statistics.h"
#include "eventRecord/eventDecoder.h"
#include "flight/writer.h"
#include "replay/world/world.h"
#include "testing/replay/ownProcess.h"
#include "testing/replay/randomHost.h"
#include "testing/testRoot.h"

namespace replay {
namespace {

using testing_support::EnvironmentNumber;
using testing_support::HostChange;
using testing_support::RandomHost;

constexpr int64_t kStartNs = 1'000 * rynd::kNsPerSecond;
constexpr uint64_t kStartUs = 1'700'000'000'000'000;

/// What happens, without who sees it: the same for a test and for the recording of its seed.
struct Happenings {
  explicit Happenings(uint64_t seed) : host(seed, seed % 2 == 0 ? 20 : 40'000) {}
  /// Let the next thing happen: `change` or `observe` is called with it.
  template <typename Change, typename Observe>
  void Next(const Change &change, const Observe &observe) {
    if (host.Draw(1'000) == 0) return change(host.NextChange());
    // Seconds of all sizes, and bursts.
    if (host.Draw(20) == 0) nowNs += static_cast<int64_t>(host.Draw(60'000'000)) * 1'000;
    if (host.Draw(20'000) == 0) nowNs += 3'600 * rynd::kNsPerSecond;
    observe(host.NextRecord(WallUs()), nowNs);
  }
  uint64_t WallUs() const { return kStartUs + static_cast<uint64_t>(nowNs - kStartNs) / 1'000; }

  RandomHost host;
  int64_t nowNs = kStartNs;
};

/// Write what happens under `seed`, up to its failing step, as a recording.
std::string Save(uint64_t seed, uint64_t steps) {
  std::string path = testing::TempDir() + "random-" + std::to_string(seed) + ".rec";
  std::ofstream file(path, std::ios::binary);
  flight::Writer writer(&file);
  Happenings happenings(seed);
  flight::Entry entry;
  const auto put = [&](const auto &what) {
    entry.monotonicNs = static_cast<uint64_t>(happenings.nowNs);
    entry.wallUs = happenings.WallUs();
    entry.what = what;
    writer.Append(entry);
  };
  const auto change = [&](const HostChange &made) {
    put(flight::HostAnswer{flight::HostKind::kText, true, false, made.text ? 0 : ENOENT, made.path,
                           made.text ? std::string_view(*made.text) : std::string_view()});
  };
  put(flight::Start{});
  for (const HostChange &made : happenings.host.Begin()) change(made);
  for (uint64_t i = 0; i < steps; ++i) {
    happenings.Next(change, [&](const std::string &record, int64_t) {
      put(flight::Observation{0, 0, 0, {reinterpret_cast<const std::byte *>(record.data()), record.size()}});
    });
  }
  return path;
}

/// What must hold for every event.
struct Judge {
  uint64_t events = 0, restores = 0;
  std::map<std::string, std::set<std::string>> lost;  ///< devices, by path

  void Heard(const Post &post) {
    if (!post.dropReason.empty()) return;
    ++events;
    ASSERT_LT(post.record.size(), size_t{1} << 20) << post.name;
    const eventrecord::DecodedEvent event = eventrecord::DecodeEvent(post.record.data(), post.record.size());
    ASSERT_TRUE(event.problems.empty()) << event.name << ": " << event.problems[0];
    ASSERT_NE(catalog::FindEvent(event.name), nullptr) << event.name;
    if (event.name.find("core.dump") != std::string::npos) {
      ASSERT_GT(static_cast<int32_t>(event.arguments[1].bits), 0) << event.text;
    }
    Pair(event);
  }
  /// Every restore of a storage path follows its loss, and ends it.
  void Pair(const eventrecord::DecodedEvent &event) {
    constexpr std::string_view kLosses[] = {"amb.problem.storage.connectivity.lost",
                                            "amb.problem.storage.redundancy.lost",
                                            "amb.problem.storage.redundancy.degraded"};
    const auto text = [&](size_t i) { return std::string(event.arguments[i].text); };
    for (const std::string_view loss : kLosses) {
      if (event.name == loss) lost[text(1)].insert(text(0));
    }
    if (event.name != "amb.clear.storage.connectivity.restored" &&
        event.name != "amb.clear.storage.redundancy.restored") {
      return;
    }
    ++restores;
    ASSERT_TRUE(lost[text(2)].contains(text(0))) << event.text;
  }
};

/// What was handled is what arrived, and what was posted is sent, dropped or waits.
void CheckLedger(uint64_t observed) {
  const rynd::EventStatistics &events = rynd::Stats().events;
  uint64_t dropped = 0, handled = 0;
  for (const rynd::Counter &reason : events.dropped) dropped += reason.Get();
  for (const rynd::AgentStatistics *agent : rynd::AllAgentStatistics()) {
    handled += agent->handled.Get() + agent->unhandled.Get();
  }
  ASSERT_EQ(events.posted.Get(), events.sent.Get() + dropped + events.waiting.load());
  ASSERT_EQ(handled, observed);
}

void RunSeed(uint64_t seed, uint64_t steps) {
  World &world = TheWorld();
  Judge judge;
  uint64_t observed = 0;
  Happenings happenings(seed);
  const auto change = [&](const HostChange &made) {
    made.text ? world.host.Put(made.path, *made.text) : world.host.Remove(made.path);
  };
  world.clock.Set(kStartNs, kStartUs);
  world.HearSteps(
      [](void *judging, const Step &, std::vector<Post> posts) {
        for (const Post &post : posts) static_cast<Judge *>(judging)->Heard(post);
      },
      &judge);
  for (const HostChange &made : happenings.host.Begin()) change(made);
  world.Start();
  size_t memoryAtHalf = 0;
  for (uint64_t i = 0; i < steps; ++i) {
    happenings.Next(change,
                    [&](const std::string &record, int64_t nowNs) { observed += world.Observe(record, nowNs); });
    if (i % 1'000 == 0) CheckLedger(observed);
    if (i == steps / 2) memoryAtHalf = mallinfo2().uordblks;
    if (testing::Test::HasFatalFailure()) FAIL() << "seed " << seed << ", step " << i << ": " << Save(seed, i + 1);
  }
  CheckLedger(observed);
  // By the half, every table that names fill is full.
  EXPECT_LT(mallinfo2().uordblks, memoryAtHalf + (size_t{8} << 20)) << "seed " << seed << ": " << Save(seed, steps);
  EXPECT_GT(judge.events, steps / 100);
  EXPECT_GE(judge.restores, seed % 2 == 0 ? 10u : 0u) << seed;
}

#if defined(__has_feature)
constexpr bool kIsSlow = RYND_EMULATED || __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kIsSlow = RYND_EMULATED;
#endif
constexpr uint64_t kSteps = kIsSlow ? 100'000 : 1'000'000;

TEST(RandomSteps, WhatHoldsForAnyHost) {
  const uint64_t first = EnvironmentNumber("RYND_SEED", 20261121);
  for (const uint64_t seed : {first, first + 1}) {
    testing_support::InOwnProcess([seed] { RunSeed(seed, EnvironmentNumber("RYND_RANDOM_STEPS", kSteps) / 2); });
  }
}

}  // namespace
}  // namespace replay
