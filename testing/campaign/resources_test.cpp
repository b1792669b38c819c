// A daemon that starts, works and stops while the host has too little of something for it.
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <regex>

#include "correlators/catalog.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "testing/campaign/campaign.h"
#include "testing/daemon.h"

namespace testing_support {
namespace {

/// The initial thread, the timer thread and the agents.
constexpr long kThreads = 27;
constexpr uid_t kNobodyElse = 61'234;  ///< a user without any process

/// The last words that the program itself ends with by abort().
bool IsAPanicOfItsOwn(const std::string &text) {
  static const std::regex panic(
      "Rynd - Panic: (MEM_ALLOC|NOT_REACHED apps/rynd/ryndPageRetireCorrelator|Failed to (initialize pipes|acquire "
      "stream))");
  return std::regex_search(text, panic);
}

/// One life of a daemon of which `inChild` takes something away: it is ready only when it is whole, it takes what is
/// sent to it, it stops in time, and it aborts with its own words only.
void LiveWithout(const std::function<void()> &inChild, Rounds *rounds) {
  const TestRoot root;
  chmod(root.Path().c_str(), 0777);
  const LogListener manager(root / "/notify");
  chmod((root / "/notify").c_str(), 0666);
  Daemon daemon(root, [&] {
    setenv("NOTIFY_SOCKET", (root / "/notify").c_str(), 1);
    inChild();
  });
  bool ready = false;
  const bool spoke = WaitUntil(
      [&] {
        ready = manager.Lines().CountOf("READY=1") > 0;
        return ready || ReadProcessState(daemon.Pid()).residentKib == 0 ||
               ReadFile(root / "/stderr").find("Start polling loop.") != std::string::npos;
      },
      IsSlowBuild() ? 20 : 5);
  EXPECT_TRUE(!ready || ReadProcessState(daemon.Pid()).threads >= kThreads) << rounds->Name();
  base::UniqueFd kernel;
  hosted::ConnectUnixSocket(root / (std::string(hosted::kContextFolder) + "/kernel-00"), SOCK_DGRAM, &kernel);
  for (const rynd::PostRow *row : rynd::AllPostRows()) {
    if (!kernel) break;
    const auto record = MakeRecord(row->id, {"a", "b", "c"}, {1, 2});
    send(kernel.Get(), record.data(), record.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (rounds->Draw(8) == 0) usleep(200);
  }
  daemon.Signal(SIGTERM);
  const int status = daemon.WaitForExit(20);
  const std::string said = ReadFile(root / "/stderr");
  EXPECT_NE(status, -1) << rounds->Name() << " did not end; it said " << spoke << "\n" << said;
  EXPECT_TRUE(status < 128 || (status == 128 + SIGABRT && IsAPanicOfItsOwn(said)))
      << rounds->Name() << ": ended with " << status << "\n"
      << said;
}

void Limit(__rlimit_resource resource, rlim_t most) {
  const rlimit limit{most, most};
  setrlimit(resource, &limit);
}

TEST(Resources, TooFewDescriptors) {
  const rlim_t least = IsSlowBuild() ? 12 : 3;  // the sanitizers and the emulator need some
  for (Rounds rounds(IsSlowBuild() ? 10 : 54); rounds.Next();) {
    const rlim_t most = least + (IsSlowBuild() ? rounds.Draw(100) : (rounds.Number() * 2 + rounds.Draw(2)) % 108);
    SCOPED_TRACE(std::to_string(most) + " descriptors");
    LiveWithout([most] { Limit(RLIMIT_NOFILE, most); }, &rounds);
  }
}

TEST(Resources, TooFewThreads) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give the daemon a user of its own";
  if (IsSlowBuild()) GTEST_SKIP() << "the sanitizers and the emulator have threads of their own";
  for (Rounds rounds(30); rounds.Next();) {
    const rlim_t most = 1 + rounds.Number() % 30;
    SCOPED_TRACE(std::to_string(most) + " threads");
    const auto inChild = [most] {
      Limit(RLIMIT_NPROC, most);
      if (setgroups(0, nullptr) != 0 || setgid(kNobodyElse) != 0 || setuid(kNobodyElse) != 0) _exit(125);
    };
    LiveWithout(inChild, &rounds);
  }
}

TEST(Resources, MemoryThatFailsNowAndThen) {
  if (IsSlowBuild()) GTEST_SKIP() << "the sanitizers have memory of their own";
  for (Rounds rounds(60); rounds.Next();) {
    const auto rate = std::array<unsigned, 8>{5, 20, 50, 100, 300, 1'000, 2'500, 5'000}[rounds.Number() % 8];
    SCOPED_TRACE(std::to_string(rate) + " of 10,000 allocations fail");
    const std::string seed = std::to_string(rounds.Draw(1'000'000'000));
    const auto inChild = [rate, seed] {
      setenv("RYND_FAIL_MEMORY", std::to_string(rate).c_str(), 1);
      setenv("RYND_FAIL_SEED", seed.c_str(), 1);
      setenv("LD_PRELOAD", RYND_FAILING_MEMORY, 1);
    };
    LiveWithout(inChild, &rounds);
  }
}

}  // namespace
}  // namespace testing_support
