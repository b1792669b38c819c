// What the daemon costs its host: nothing while nothing happens, and little memory for as long as it runs.
#include <gtest/gtest.h>

#include <filesystem>

#include "testing/daemon.h"

namespace testing_support {
namespace {

/// Context switches of all threads. A thread that is asleep can make no system call without one.
long ContextSwitches(pid_t pid) {
  long switches = 0;
  for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    switches += StatusValue(task.path().string(), "voluntary_ctxt_switches");
    switches += StatusValue(task.path().string(), "nonvoluntary_ctxt_switches");
  }
  return switches;
}

TEST(Footprint, AnIdleDaemonDoesNothing) {
  if (IsSlowBuild()) GTEST_SKIP() << "the emulator's and the sanitizers' own threads wake up";
  RunningDaemon running;
  const auto user = ConnectUser(running.root);
  const auto trace = ConnectTrace(running.root);
  ASSERT_TRUE(SendRecord(ConnectKernel(running.root), MakeRecord("ryn.storage.apd.start", {"naa.1"})));
  ASSERT_TRUE(running.log.Lines().WaitFor("was sent immediately to mgmtd;"));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const long before = ContextSwitches(running.daemon.Pid());
  std::this_thread::sleep_for(std::chrono::seconds(20));
  EXPECT_EQ(ContextSwitches(running.daemon.Pid()), before);
}

TEST(Footprint, MemoryIsSmallAndFlat) {
  if (IsSlowBuild()) GTEST_SKIP() << "the emulator and the sanitizers have memory of their own";
  RunningDaemon running;
  const pid_t pid = running.daemon.Pid();
  constexpr long kLimitKib = 8 * 1024;
  EXPECT_LT(ReadProcessState(pid).residentKib, kLimitKib);
  const auto kernel = ConnectKernel(running.root);
  const auto handled = MakeRecord("ryn.storage.apd.timeout", {"naa.1"});  // without its integer: posts nothing
  const auto send = [&](int count) {
    for (int i = 0; i < count; ++i) ASSERT_TRUE(SendRecord(kernel, handled));
  };
  send(100'000);
  const long early = ReadProcessState(pid).residentKib;
  send(900'000);
  EXPECT_LE(ReadProcessState(pid).residentKib, early + 256);
  EXPECT_LT(ReadProcessState(pid).residentKib, kLimitKib);
}

}  // namespace
}  // namespace testing_support
