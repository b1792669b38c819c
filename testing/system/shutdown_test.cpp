// A stop ends the daemon within two seconds where it is at its worst: under load, while it starts, with every queue
// full. campaign/stops_test draws everything else round it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include <random>

#include "testing/daemon.h"
#include "testing/flood.h"

namespace testing_support {
namespace {

const char kReady[] = "rynd setup completed. Start polling loop.";

double Scale() {
  return IsSlowBuild() ? 4 : 1;
}

/// Observations without end. Mostly without their integer: handled and logged, but below the limit of events.
struct Load : Flood {
  explicit Load(const TestRoot &root) : Flood(Sender(root), Records()) {}
  static std::vector<base::UniqueFd> Sender(const TestRoot &root) {
    std::vector<base::UniqueFd> one;
    one.push_back(ConnectKernel(root, 3));
    return one;
  }
  static std::vector<std::vector<std::byte>> Records() {
    std::vector records(50, MakeRecord("ryn.storage.apd.timeout", {"naa.600"}));
    records[0] = MakeRecord("ryn.storage.apd.start", {"naa.600"});
    return records;
  }
};

/// Signal the daemon and expect a clean end in time.
void ExpectPromptEnd(Daemon *daemon, const TestRoot &root, const LogListener &log, int number = SIGTERM) {
  const auto start = std::chrono::steady_clock::now();
  daemon->Signal(number);
  ASSERT_EQ(daemon->WaitForExit(20), 0) << ReadFile(root / "/stderr");
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  EXPECT_LT(taken.count(), 2 * Scale());
  EXPECT_TRUE(log.Lines().WaitFor("Exiting due to signal."));
  EXPECT_TRUE(log.Lines().WaitFor("Exiting. rc:0"));
}

TEST(Shutdown, FiveHundredTimesAtRandomMomentsUnderLoad) {
  std::mt19937 random(11);
  const int rounds = IsSlowBuild() ? 60 : 500;
  for (int i = 0; i < rounds; ++i) {
    RunningDaemon running;
    const Load load(running.root);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
    ExpectPromptEnd(&running.daemon, running.root, running.log, i % 2 == 0 ? SIGTERM : SIGINT);
    if (HasFatalFailure()) FAIL() << "round " << i;
  }
}

TEST(Shutdown, AtAnyMomentOfTheStart) {
  // A signal that comes before the handlers ends the process as any other would; from then on the end is clean.
  std::mt19937 random(12);
  for (int i = 0; i < (IsSlowBuild() ? 30 : 200); ++i) {
    const TestRoot root;
    const LogListener log(root / "/dev/log");
    Daemon daemon(root);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % static_cast<unsigned>(8'000 * Scale())));
    daemon.Signal(SIGTERM);
    const int status = daemon.WaitForExit(20);
    if (status == 128 + SIGTERM) {
      EXPECT_EQ(log.Lines().CountOf(kReady), 0u);
    } else {
      ASSERT_EQ(status, 0);
      EXPECT_TRUE(log.Lines().WaitFor("Exiting. rc:0"));
    }
  }
}

/// Send `record` until the queue of `fd` is full.
void Fill(const base::UniqueFd &fd, const std::vector<std::byte> &record) {
  for (int i = 0; i < 100 && send(fd.Get(), record.data(), record.size(), MSG_DONTWAIT) >= 0; ++i) {
  }
}

/// A daemon whose poll loop waits for agents that hang in a delivery, with records waiting on this many contexts.
class LaggingAgents : public testing::TestWithParam<unsigned> {
 protected:
  LaggingAgents() {
    EXPECT_TRUE(log_.Lines().WaitFor(kReady));
    for (unsigned id = 0; id < GetParam(); ++id) kernel_.push_back(ConnectKernel(root_, id));
    const auto small = MakeRecord("ryn.storage.apd.start", {"naa.1"});
    EXPECT_TRUE(SendRecord(kernel_[0], small));
    const std::vector<std::byte> large[] = {
        MakeRecord("ryn.storage.apd.start", {std::string(100'000, 'x')}),
        MakeRecord("ryn.storage.apd.exit", {std::string(100'000, 'x')}),
    };
    // Once no context has room any more, every pipe in front of a hanging agent is full too.
    EXPECT_TRUE(WaitUntil([&] {
      for (size_t i = 0; i < kernel_.size(); ++i) Fill(kernel_[i], large[i % 2]);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      return std::all_of(kernel_.begin(), kernel_.end(), [&](const base::UniqueFd &fd) {
        return send(fd.Get(), small.data(), small.size(), MSG_DONTWAIT) < 0;
      });
    }));
  }
  const TestRoot root_;
  const LogListener log_{root_ / "/dev/log"};
  const HangingAgent agent_{root_};
  Daemon daemon_{root_};
  std::vector<base::UniqueFd> kernel_;
};
INSTANTIATE_TEST_SUITE_P(Contexts, LaggingAgents, testing::Values(1, 2, 8, 29));

TEST_P(LaggingAgents, DoNotHoldUpAStop) {
  ExpectPromptEnd(&daemon_, root_, log_);
}

TEST(Shutdown, WithTraceClientsThatStallOrVanish) {
  RunningDaemon running;
  std::vector<base::UniqueFd> clients;
  for (int i = 0; i < 300; ++i) clients.push_back(ConnectTrace(running.root));
  {
    const Load load(running.root);
    ASSERT_TRUE(running.log.Lines().WaitFor("amb.problem.storage.apd.start", 5));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    clients.resize(150);  // half of them vanish, in the middle of lines
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ASSERT_TRUE(SendRecord(ConnectKernel(running.root, 5), MakeRecord("ryn.storage.apd.timeout", {"still served"})));
  EXPECT_TRUE(running.log.Lines().WaitFor("[ryn.storage.apd.timeout]"));
  ExpectPromptEnd(&running.daemon, running.root, running.log);
}

}  // namespace
}  // namespace testing_support
