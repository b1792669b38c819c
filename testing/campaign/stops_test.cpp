// Stops at random instants, whatever everybody round the daemon does: none later than two seconds.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <thread>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "testing/campaign/campaign.h"
#include "testing/daemon.h"
#include "testing/flood.h"

namespace testing_support {
namespace {

/// The management agent: it serves, takes connections that it never reads, lets nobody in, or is not there.
struct Agent {
  Agent(const TestRoot &root, uint64_t mode) {
    if (mode == 0) serving = std::make_unique<EventListener>(root / hosted::kEventSocket);
    if (mode == 1 || mode == 2) hanging = std::make_unique<HangingAgent>(root);
    if (mode == 1) listen(hanging->socket.Get(), 4096);
  }
  std::unique_ptr<EventListener> serving;
  std::unique_ptr<HangingAgent> hanging;
};

/// Observations for several agents: posting, only handled, large ones, and one that nobody wants.
std::vector<std::vector<std::byte>> Mixture() {
  return {MakeRecord("ryn.storage.apd.start", {"naa.1"}),
          MakeRecord("ryn.storage.apd.timeout", {std::string(60'000, 'x')}),
          MakeRecord("ryn.net.hynic.linkstate.down", {"hynic0"}),
          MakeRecord("ryn.scsi.device.state.off", {std::string(2'000, 'y')}),
          MakeRecord("ryn.hyfs.volume.mounted", {"a", "b"}),
          MakeRecord("ryn.kernel.nobody.wants", {std::string(30'000, 'z')})};
}

/// A pipe that is full and that nobody reads.
base::UniqueFd StalledPipe(base::UniqueFd *readEnd) {
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  readEnd->Reset(ends[0]);
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  const std::string filler(4096, '.');
  while (write(ends[1], filler.data(), filler.size()) > 0) continue;
  fcntl(ends[1], F_SETFL, 0);
  return base::UniqueFd(ends[1]);
}

/// One daemon with everybody round it.
struct Scene {
  explicit Scene(Rounds *rounds)
      : logMode(rounds->Draw(3)),
        agent(root, rounds->Draw(4)),
        standardError(rounds->Draw(2) == 0 ? StalledPipe(&stalledEnd) : base::UniqueFd()),
        contexts(std::array<unsigned, 4>{1, 2, 8, 29}[rounds->Draw(4)]),
        traceClients(rounds->Draw(3) * 20),
        floodsConnections(rounds->Draw(2) == 0) {
    hosted::MakeFolders(root / "/dev", 0755);
    if (logMode == 0) log = std::make_unique<LogListener>(root / "/dev/log");
    if (logMode == 1) hosted::ServeUnixSocket(root / "/dev/log", SOCK_DGRAM, 0666, &hangingLog);
    daemon = std::make_unique<Daemon>(root, std::vector<std::string>{}, "", standardError.Get());
  }
  bool WaitForStart() const {
    base::UniqueFd client;
    return WaitUntil([&] { return hosted::ConnectUnixSocket(root / hosted::kTraceSocket, SOCK_STREAM, &client) == 0; });
  }
  const TestRoot root;
  const uint64_t logMode;  ///< 0 serves, 1 hangs, 2 is absent
  std::unique_ptr<LogListener> log;
  base::UniqueFd hangingLog;
  Agent agent;
  base::UniqueFd stalledEnd, standardError;
  const unsigned contexts;
  const uint64_t traceClients;
  const bool floodsConnections;
  std::unique_ptr<Daemon> daemon;
};

/// Senders on this many contexts, in threads of their own, and on eight connections.
std::vector<std::unique_ptr<Flood>> StartFloods(const Scene &scene) {
  std::vector<std::unique_ptr<Flood>> floods;
  std::vector<base::UniqueFd> kernel;
  for (unsigned id = 0; id < scene.contexts; ++id) kernel.push_back(ConnectKernel(scene.root, id));
  floods.push_back(std::make_unique<Flood>(std::move(kernel), Mixture()));
  if (!scene.floodsConnections) return floods;
  std::vector<base::UniqueFd> users;
  for (int i = 0; i < 8; ++i) users.push_back(ConnectUser(scene.root));
  floods.push_back(std::make_unique<Flood>(
      std::move(users),
      std::vector{MakeRecord("ryn.user.anything"), std::vector<std::byte>(40), MakeRecord("not.ours")}));
  return floods;
}

TEST(Stops, AtRandomInstantsWhateverAnybodyDoes) {
  for (Rounds rounds(IsSlowBuild() ? 10 : 60); rounds.Next();) {
    SCOPED_TRACE(rounds.Name());
    Scene scene(&rounds);
    ASSERT_TRUE(scene.WaitForStart());
    std::vector<base::UniqueFd> clients;
    for (uint64_t i = 0; i < scene.traceClients; ++i) clients.push_back(ConnectTrace(scene.root));
    const auto floods = StartFloods(scene);
    std::this_thread::sleep_for(std::chrono::microseconds(rounds.Draw(150'000)));
    const auto start = std::chrono::steady_clock::now();
    scene.daemon->Signal(rounds.Draw(2) == 0 ? SIGTERM : SIGINT);
    ASSERT_EQ(scene.daemon->WaitForExit(20), 0);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    EXPECT_LT(taken.count(), IsSlowBuild() ? 8 : 2);
    EXPECT_TRUE(scene.log == nullptr || scene.log->Lines().WaitFor("Exiting. rc:0"));
  }
}

}  // namespace
}  // namespace testing_support
