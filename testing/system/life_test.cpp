// The daemon's life as its users see it: start, refusals, signals, exit status.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include "testing/daemon.h"
#include "testing/unread.h"

namespace testing_support {
namespace {

TEST(Life, StopsByEitherSignalAndSurvivesABrokenPipe) {
  for (const int number : {SIGTERM, SIGINT}) {
    RunningDaemon running;
    running.daemon.Signal(SIGPIPE);
    ASSERT_TRUE(SendRecord(ConnectKernel(running.root), MakeRecord("ryn.storage.apd.start", {"naa.1"})));
    EXPECT_TRUE(running.events.Records().WaitFor("amb.problem.storage.apd.start"));
    EXPECT_TRUE(running.log.Lines().WaitFor("was sent immediately to mgmtd;"));
    running.daemon.Signal(number);
    EXPECT_EQ(running.daemon.WaitForExit(), 0);
    ASSERT_TRUE(running.log.Lines().WaitFor("Exiting. rc:0"));
    const std::vector<std::string> lines = running.log.Lines().All();
    EXPECT_TRUE(lines.at(lines.size() - 2).ends_with("Exiting due to signal.")) << lines.at(lines.size() - 2);
    EXPECT_EQ(ReadFile(running.root / "/stderr"), "");
  }
}

TEST(Life, ASecondDaemonOnTheSameRootIsRefusedAndHarmless) {
  RunningDaemon running;
  Daemon second(running.root);
  const int status = second.WaitForExit();
  EXPECT_EQ(status, EADDRINUSE);
  EXPECT_NE(ReadFile(running.root / "/stderr").find("kernel-00"), std::string::npos);
  ASSERT_TRUE(SendRecord(ConnectKernel(running.root, 28), MakeRecord("ryn.storage.apd.exit", {"naa.1"})));
  EXPECT_TRUE(running.events.Records().WaitFor("amb.clear.storage.apd.exit"));
  ConnectTrace(running.root);
  EXPECT_EQ(running.daemon.Stop(), 0);
}

TEST(Life, AStopLeavesNoSocketBehindButOthersOwn) {
  for (const bool isReplaced : {false, true}) {
    RunningDaemon running;
    const std::string folder = running.root / "/var/run/corvane/";
    EXPECT_EQ(std::filesystem::status(folder + "rynd-trace.sock").permissions(), std::filesystem::perms(0660));
    if (isReplaced) {
      for (const char *name : {"rynd-trace.sock", "ryn-user.sock", "ryn/kernel-05"}) {
        std::filesystem::remove(folder + name);
        WriteFile(folder + name, "another's\n");
      }
    }
    running.daemon.Signal(SIGTERM);
    EXPECT_EQ(running.daemon.WaitForExit(), 0);
    std::set<std::string> left;
    for (const auto &file : std::filesystem::recursive_directory_iterator(folder)) {
      if (!file.is_directory() && file.path().filename() != ".lock") left.insert(file.path().filename());
    }
    std::set<std::string> expected{"mgmtd-kprob.sock"};
    if (isReplaced) expected.insert({"rynd-trace.sock", "ryn-user.sock", "kernel-05"});
    EXPECT_EQ(left, expected);
  }
}

TEST(Life, ABlockedStandardErrorHoldsUpNeitherEventsNorAPanic) {
  const Unread blocked(Unread::Kind::kPipe);
  blocked.Fill();
  {
    const TestRoot served;
    const EventListener events(served / "/var/run/corvane/mgmtd-kprob.sock");
    Daemon daemon(served, [&] { dup2(blocked.write.Get(), STDERR_FILENO); });
    ASSERT_TRUE(WaitUntil([&] { return std::filesystem::exists(served / "/var/run/corvane/rynd-trace.sock"); }));
    for (unsigned i = 0; i < 40; ++i) {
      ASSERT_TRUE(SendRecord(ConnectKernel(served, i % 29), MakeRecord("ryn.storage.apd.start", {std::to_string(i)})));
    }
    EXPECT_TRUE(events.Records().WaitFor("amb.problem.storage.apd.start", 40));
    EXPECT_EQ(daemon.Stop(), 0);
  }
  if (RYND_EMULATED) GTEST_SKIP() << "the emulator writes there too when its program aborts, and waits";
  const TestRoot root;
  WriteFile(root / "/var/lib/corvane/host/sysinfo/system/buildSignature", "another\n");
  Daemon daemon(root, [&] { dup2(blocked.write.Get(), STDERR_FILENO); });
  EXPECT_EQ(daemon.WaitForExit(), 128 + SIGABRT);
}

/// A stop at its worst: with every queue full, and records waiting on this many contexts. campaign/stops_test draws
/// everything else round it.
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

TEST(Life, APollThatFailsEndsItWithStatus255) {
  RunningDaemon running;
  const rlimit few{10, 10};  // below the number of slots: poll refuses its next call
  ASSERT_EQ(prlimit(running.daemon.Pid(), RLIMIT_NOFILE, &few, nullptr), 0);
  ASSERT_TRUE(SendRecord(ConnectKernel(running.root), MakeRecord("ryn.storage.apd.start", {"naa.1"})));
  EXPECT_EQ(running.daemon.WaitForExit(), 255);
  EXPECT_TRUE(running.log.Lines().WaitFor("Exiting. rc:-1"));
}

}  // namespace
}  // namespace testing_support
