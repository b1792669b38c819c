// What the real daemon recorded under load, with its threads, replayed: the same events of each agent.
// RYND_RECORDED_SEEDS: how many seeds.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <thread>

#include "testing/daemon.h"
#include "testing/flight/replayed.h"
#include "testing/replay/randomHost.h"
#include "testing/testRoot.h"

namespace testing_support {
namespace {

constexpr unsigned kSenders = 4;
constexpr unsigned kRecordsEach = 2'500;

/// Change a file of the host; `place` is that of the thread that does.
void Apply(const TestRoot &root, const HostChange &change, unsigned place) {
  const std::string path = root / "/var/lib/corvane/host/" + change.path;
  if (!change.text) {
    std::filesystem::remove(path);
    return;
  }
  // As a whole, since the daemon reads it meanwhile.
  const std::string made = root / "/made" + std::to_string(place);
  WriteFile(made, *change.text + "\n");
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::filesystem::rename(made, path);
}

/// Send records to kernel contexts of its own and, as a program, to the user context; change the host now and then.
void Send(const TestRoot &root, uint64_t seed, unsigned place) {
  RandomHost host(seed * kSenders + place, place == 0 ? 5'000 : 20);
  std::array<base::UniqueFd, 4> ends;
  for (unsigned i = 0; i < ends.size() - 1; ++i) ends[i] = ConnectKernel(root, place * 7 + i);
  ends.back() = ConnectUser(root);
  for (unsigned i = 0; i < kRecordsEach; ++i) {
    const std::string record = host.NextRecord(1'700'000'000'000'000 + i);
    const auto *bytes = reinterpret_cast<const std::byte *>(record.data());
    ASSERT_TRUE(SendRecord(ends[host.Draw(ends.size())], {bytes, bytes + record.size()}));
    if (host.Draw(50) == 0) Apply(root, host.NextChange(), place);
    if (host.Draw(500) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

TEST(Recorded, ReplaysEqualWhateverWasSentAndWhoRaced) {
  for (unsigned seed = 1; seed <= EnvironmentNumber("RYND_RECORDED_SEEDS", 2); ++seed) {
    RunningDaemon running([seed](const TestRoot &root) {
      TurnOnRecorder(root);
      std::filesystem::create_directories(root / "/hyfs/volumes");
      for (const HostChange &change : RandomHost(seed).Begin()) Apply(root, change, 0);
    });
    std::vector<std::thread> senders;
    for (unsigned place = 0; place < kSenders; ++place) {
      senders.emplace_back([&, place] { Send(running.root, seed, place); });
    }
    for (std::thread &sender : senders) sender.join();
    std::this_thread::sleep_for(std::chrono::seconds(4));  // for what settles
    ASSERT_EQ(running.daemon.Stop(), 0);
    EXPECT_GT(running.events.Records().Count(), 500u) << seed;
    SCOPED_TRACE("seed " + std::to_string(seed));
    ExpectReplaysEqual(running.root, RYNCTL_PROGRAM);
    if (HasFailure()) {
      std::filesystem::copy(FlightFolder(running.root), testing::TempDir() + "recorded-" + std::to_string(seed),
                            std::filesystem::copy_options::overwrite_existing);
    }
  }
}

}  // namespace
}  // namespace testing_support
