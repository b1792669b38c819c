// A stop ends the daemon within two seconds where it is at its worst: with every queue full. campaign/stops_test draws
// everything else round it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "testing/daemon.h"

namespace testing_support {
namespace {

/// With records waiting on this many contexts.
class LaggingAgents : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Contexts, LaggingAgents, testing::Values(1, 2, 8, 29));

TEST_P(LaggingAgents, DoNotHoldUpAStop) {
  const TestRoot root;
  const LogListener log(root / "/dev/log");
  const HangingAgent agent(root);
  Daemon daemon(root);
  ASSERT_TRUE(log.Lines().WaitFor("rynd setup completed. Start polling loop."));
  std::vector<base::UniqueFd> contexts;
  for (unsigned id = 0; id < GetParam(); ++id) contexts.push_back(ConnectKernel(root, id));
  const auto small = MakeRecord("ryn.storage.apd.start", {"naa.1"});
  ASSERT_TRUE(SendRecord(contexts[0], small));
  const std::vector<std::byte> large[] = {MakeRecord("ryn.storage.apd.start", {std::string(100'000, 'x')}),
                                          MakeRecord("ryn.storage.apd.exit", {std::string(100'000, 'x')})};
  const auto hasRoom = [](const base::UniqueFd &fd, const std::vector<std::byte> &record) {
    return send(fd.Get(), record.data(), record.size(), MSG_DONTWAIT) >= 0;
  };
  // Once no context has room any more, every pipe in front of an agent that hangs in a delivery is full too.
  ASSERT_TRUE(WaitUntil([&] {
    for (size_t i = 0; i < contexts.size(); ++i) {
      for (int sent = 0; sent < 100 && hasRoom(contexts[i], large[i % 2]);) ++sent;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return std::ranges::none_of(contexts, [&](const base::UniqueFd &fd) { return hasRoom(fd, small); });
  }));
  const auto start = std::chrono::steady_clock::now();
  daemon.Signal(SIGTERM);
  ASSERT_EQ(daemon.WaitForExit(20), 0) << ReadFile(root / "/stderr");
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  EXPECT_LT(taken.count(), IsSlowBuild() ? 8 : 2);
  EXPECT_TRUE(log.Lines().WaitFor("Exiting. rc:0"));
}

}  // namespace
}  // namespace testing_support
