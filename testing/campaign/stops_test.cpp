// Stops at random instants, whatever everybody round the daemon does: none later than two seconds.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <list>
#include <memory>
#include <thread>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "testing/campaign/campaign.h"
#include "testing/daemon.h"
#include "testing/flood.h"
#include "testing/unread.h"

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

/// One daemon with everybody round it.
struct Scene {
  explicit Scene(Rounds *rounds)
      : logMode(rounds->Draw(3)),
        agent(root, rounds->Draw(4)),
        errorStalls(rounds->Draw(2) == 0),
        contexts(std::array<unsigned, 4>{1, 2, 8, 29}[rounds->Draw(4)]),
        traceClients(rounds->Draw(3) * 100),
        floodsConnections(rounds->Draw(2) == 0) {
    hosted::MakeFolders(root / "/dev", 0755);
    if (logMode == 0) log = std::make_unique<LogListener>(root / "/dev/log");
    if (logMode == 1) hosted::ServeUnixSocket(root / "/dev/log", SOCK_DGRAM, 0666, &hangingLog);
    if (errorStalls) stalled.Fill();
    daemon = std::make_unique<Daemon>(root, [this] {
      if (errorStalls) dup2(stalled.write.Get(), STDERR_FILENO);
    });
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
  const Unread stalled{Unread::Kind::kPipe};
  const bool errorStalls;  ///< standard error is full, and nobody reads it
  const unsigned contexts;
  const uint64_t traceClients;
  const bool floodsConnections;
  std::unique_ptr<Daemon> daemon;
};

/// Senders on this many contexts, in threads of their own, and on eight connections.
std::list<Flood> StartFloods(const Scene &scene) {
  std::list<Flood> floods;
  floods.emplace_back(
      scene.contexts, [&](unsigned id) { return ConnectKernel(scene.root, id); }, Mixture());
  if (!scene.floodsConnections) return floods;
  floods.emplace_back(
      8, [&](unsigned) { return ConnectUser(scene.root); },
      std::vector{MakeRecord("ryn.user.anything"), std::vector<std::byte>(40), MakeRecord("not.ours")});
  return floods;
}

TEST(Stops, AtRandomInstantsWhateverAnybodyDoes) {
  for (Rounds rounds(IsSlowBuild() ? 60 : 150); rounds.Next();) {
    SCOPED_TRACE(rounds.Name());
    Scene scene(&rounds);
    ASSERT_TRUE(scene.WaitForStart());
    std::vector<base::UniqueFd> clients;
    for (uint64_t i = 0; i < scene.traceClients; ++i) clients.push_back(ConnectTrace(scene.root));
    const auto floods = StartFloods(scene);
    std::this_thread::sleep_for(std::chrono::microseconds(rounds.Draw(150'000)));
    clients.resize(clients.size() / (1 + rounds.Draw(2)));  // half of them vanish, in the middle of lines
    const auto start = std::chrono::steady_clock::now();
    scene.daemon->Signal(rounds.Draw(2) == 0 ? SIGTERM : SIGINT);
    ASSERT_EQ(scene.daemon->WaitForExit(20), 0);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    EXPECT_LT(taken.count(), IsSlowBuild() ? 8 : 2);
    EXPECT_TRUE(scene.log == nullptr || scene.log->Lines().WaitFor("Exiting. rc:0"));
  }
}

/// A signal that comes before the handlers ends the process as any other would; from then on the end is clean.
TEST(Stops, AtAnyMomentOfTheStart) {
  for (Rounds rounds(IsSlowBuild() ? 30 : 200); rounds.Next();) {
    SCOPED_TRACE(rounds.Name());
    const TestRoot root;
    const LogListener log(root / "/dev/log");
    Daemon daemon(root);
    std::this_thread::sleep_for(std::chrono::microseconds(rounds.Draw(IsSlowBuild() ? 32'000 : 8'000)));
    daemon.Signal(SIGTERM);
    const int status = daemon.WaitForExit(20);
    EXPECT_TRUE(status == 128 + SIGTERM ? log.Lines().CountOf("Start polling loop.") == 0
                                        : status == 0 && log.Lines().WaitFor("Exiting. rc:0"))
        << status;
  }
}

}  // namespace
}  // namespace testing_support
