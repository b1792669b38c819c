// Everything round the daemon fails in turn while numbered observations flow: the book closes all the same.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "testing/campaign/campaign.h"
#include "testing/daemon.h"
#include "testing/ledger.h"
#include "testing/peers.h"
#include "testing/settableClock.h"
#include "testing/smallDisk.h"

namespace testing_support {
namespace {

using std::chrono::milliseconds;

/// One daemon among everybody who fails it.
struct Scene {
  explicit Scene(unsigned s) : seed(s) {}
  /// Take `resource` away from the daemon for a while: it may have no more than now.
  void Exhaust(__rlimit_resource resource, rlim_t now, milliseconds time) {
    rlimit before{};
    ASSERT_EQ(prlimit(daemon.Pid(), resource, nullptr, &before), 0);
    const rlimit none{now, before.rlim_max};
    ASSERT_EQ(prlimit(daemon.Pid(), resource, &none, nullptr), 0);
    std::this_thread::sleep_for(time);
    ASSERT_EQ(prlimit(daemon.Pid(), resource, &before, nullptr), 0);
  }
  /// More trace clients than it has threads for.
  void ExhaustThreads() const {
    std::vector<base::UniqueFd> clients;
    for (int i = 0; i < 600; ++i) clients.push_back(ConnectTrace(root));
    std::this_thread::sleep_for(milliseconds(100));
  }
  void DoHarm(Rounds *rounds) {
    const milliseconds time(rounds->Draw(300));
    switch (rounds->Draw(5)) {
      case 0:
        clock.Step(static_cast<int64_t>(rounds->Draw(2 * 86'400)) - 86'400);
        break;
      case 1:
        Exhaust(RLIMIT_NOFILE, static_cast<rlim_t>(ReadProcessState(daemon.Pid()).descriptors), time);
        break;
      case 2:
        if (IsSlowBuild()) break;  // the sanitizers end for lack of it
        starved = true;
        Exhaust(RLIMIT_DATA, 0, time);
        break;
      case 3:
        if (!disk.IsMounted()) break;
        std::ofstream(root / "/var/lib/filler") << std::string(1 << 20, '.');
        std::this_thread::sleep_for(time);
        unlink((root / "/var/lib/filler").c_str());
        break;
      default:
        ExhaustThreads();
    }
  }
  /// What is not accounted for.
  std::string Gap() const {
    const nlohmann::json statistics = ReadStatistics(root);
    uint64_t excused = starved ? UINT64_MAX : 0;  // an agent without memory for an observation may end, and says so
    if (!starved && statistics.is_object()) {
      for (const auto &one : statistics.at("agents")) excused += one.at("exceptions").get<uint64_t>();
    }
    return PeerGap(statistics, arrivals, counts, excused);
  }

  const TestRoot root;
  const unsigned seed;
  SmallDisk disk{root / "/var/lib", "128k"};
  SettableClock clock{root / "/clock"};
  Arrivals arrivals;
  PeerCounts counts;
  bool starved = false;  ///< it was without memory for a while
  Daemon daemon{root};
  const PeerThread log{[this](const auto &stop) { ServeLog(root, &counts, stop); }};
  const PeerThread agent{
      [this](const auto &stop) { ServeEvents(root, seed, milliseconds(1'500), &arrivals, &counts, stop); }};
};

TEST(Chaos, ClosesTheBook) {
  for (Rounds rounds(IsSlowBuild() ? 2 : 3); rounds.Next();) {
    SCOPED_TRACE(rounds.Name());
    Scene scene(static_cast<unsigned>(rounds.Draw(1'000'000)));
    ASSERT_TRUE(WaitUntil([&] { return IsWhole(scene.root); }));
    {
      const PeerThread sender(
          [&](const auto &stop) { SendObservations(scene.root, IsSlowBuild() ? 500 : 3'000, &scene.counts, stop); });
      const PeerThread garbage([&](const auto &stop) { SendGarbage(scene.root, 1, stop); });
      for (int i = 0; i < 12; ++i) scene.DoHarm(&rounds);
    }
    const bool panicked =
        scene.starved && ReadFile(scene.root / "/stderr").find("Panic: MEM_ALLOC") != std::string::npos;
    std::string gap;
    EXPECT_TRUE(panicked || WaitUntil([&] { return (gap = scene.Gap()).empty(); }, 40)) << gap;
    scene.daemon.Signal(SIGTERM);
    EXPECT_EQ(scene.daemon.WaitForExit(20), panicked ? 128 + SIGABRT : 0) << ReadFile(scene.root / "/stderr");
    if (panicked) continue;
    for (const std::string &problem : scene.arrivals.Problems()) ADD_FAILURE() << problem;
    for (const std::string &problem : scene.counts.problems.All()) ADD_FAILURE() << problem;
  }
}

}  // namespace
}  // namespace testing_support
