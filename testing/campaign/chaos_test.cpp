// Everything round the daemon fails in turn while numbered observations flow: the book closes all the same.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <thread>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "testing/campaign/campaign.h"
#include "testing/daemon.h"
#include "testing/ledger.h"
#include "testing/peers.h"
#include "testing/settableClock.h"
#include "testing/smallDisk.h"

namespace testing_support {
namespace {

using std::chrono::milliseconds;

/// A management agent that is killed with an event in its hands, stopped, or gone; `killed` counts such events.
void ServeEventsBadly(const TestRoot &root, uint64_t seed, Arrivals *arrivals, std::atomic<uint64_t> *killed,
                      const std::atomic<bool> &stop) {
  std::mt19937_64 random(seed);
  hosted::MakeFolders(root / "/var/run/corvane", 0755);
  while (!stop) {
    std::this_thread::sleep_for(milliseconds(random() % 300));
    if (random() % 3 != 0) {
      const EventListener agent(root / hosted::kEventSocket,
                                [&](const std::string &record) { arrivals->Take(record); });
      std::this_thread::sleep_for(milliseconds(random() % 1'500));
      continue;
    }
    base::UniqueFd socket;
    EXPECT_EQ(hosted::ServeUnixSocket(root / hosted::kEventSocket, SOCK_STREAM, 0660, &socket), 0);
    std::this_thread::sleep_for(milliseconds(random() % 500));  // stopped: who comes waits
    unlink((root / hosted::kEventSocket).c_str());
    shutdown(socket.Get(), SHUT_RDWR);
    // What the kernel has taken for it dies with it.
    for (base::UniqueFd one; one.Reset(accept(socket.Get(), nullptr, nullptr)), one;) ++*killed;
  }
}

/// One daemon among everybody who fails it.
struct Scene {
  explicit Scene(Rounds *rounds) : seed(rounds->Draw(1'000'000)) {
    Add([this](const auto &stop) { ServeLog(root, &counts, stop); });
    Add([this](const auto &stop) { ServeEventsBadly(root, seed, &arrivals, &killed, stop); });
  }
  template <typename Body>
  void Add(Body body) {
    peers.push_back(std::make_unique<PeerThread>(body));
  }
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
    std::string gap = LedgerGap(statistics);
    if (!gap.empty()) return gap;
    const uint64_t read = ReadFromKernel(statistics);
    if (read != counts.observations) return std::to_string(read) + " of " + std::to_string(counts.observations);
    const auto &events = statistics.at("events");
    if (events.at("sent") != arrivals.Events() + killed) return events.at("sent").dump() + " events sent";
    if (starved) return "";  // an agent without memory for an observation may end, and says so
    uint64_t missing = 0;
    for (const char *name : kNumberedEvents) missing += arrivals.Missing(name, counts.numbered).size();
    uint64_t said = events.at("waiting").get<uint64_t>() + killed;
    for (const auto &dropped : events.at("dropped")) said += dropped.get<uint64_t>();
    for (const auto &agent : statistics.at("agents")) said += agent.at("exceptions").get<uint64_t>();
    return missing > said ? std::to_string(missing - said) + " numbers missing; " + statistics.dump() : "";
  }

  const TestRoot root;
  const uint64_t seed;
  SmallDisk disk{root / "/var/lib", "128k"};
  SettableClock clock{root / "/clock"};
  Arrivals arrivals;
  PeerCounts counts;
  std::atomic<uint64_t> killed = 0;
  bool starved = false;  ///< it was without memory for a while
  Daemon daemon{root};
  std::vector<std::unique_ptr<PeerThread>> peers;
};

TEST(Chaos, ClosesTheBook) {
  for (Rounds rounds(IsSlowBuild() ? 2 : 3); rounds.Next();) {
    SCOPED_TRACE(rounds.Name());
    Scene scene(&rounds);
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
    for (const std::string &problem : scene.counts.Problems()) ADD_FAILURE() << problem;
  }
}

}  // namespace
}  // namespace testing_support
