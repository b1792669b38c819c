// The output is one that a test opens and shuts.
#include "rynctl/showing/outputQueue.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <csignal>
#include <latch>
#include <list>
#include <sstream>

#include "testing/testRoot.h"

namespace rynctl {
namespace {

/// A console whose output takes text once it is open.
struct GatedConsole : std::stringbuf {
  std::streamsize xsputn(const char *text, std::streamsize length) override {
    open.wait();
    std::stringbuf::xsputn(text, length);
    taken += static_cast<size_t>(length);
    return length;
  }
  std::latch open{1};
  std::atomic<size_t> taken = 0;
  std::ostream out{this};
  std::ostringstream err;
  Console console{out, err};
};

/// A new one, never destroyed: a thread may be left behind in it.
GatedConsole &NewConsole() {
  static auto *const consoles = new std::list<GatedConsole>;
  return consoles->emplace_back();
}

std::string Missing(uint64_t count) {
  return std::to_string(count) + " missing\n";
}

TEST(OutputQueue, HoldsWhatItMayAndSaysWhereTheRestIsMissing) {
  GatedConsole &gated = NewConsole();
  const StopSignals signals;
  OutputQueue queue(&gated.console, Missing);
  const std::string line = std::string(999'999, 'x') + '\n';
  std::string expected;
  while (queue.Print(line)) expected += line;
  EXPECT_GE(expected.size(), OutputQueue::kMostBytes);
  EXPECT_FALSE(queue.HasRoom());
  for (int i = 0; i < 4; ++i) EXPECT_FALSE(queue.Print("a short one\n"));
  gated.open.count_down();
  while (!queue.HasRoom()) {
    pollfd changed{queue.ChangedFd(), POLLIN, 0};
    ASSERT_EQ(poll(&changed, 1, 30'000), 1);
    queue.Noticed();
  }
  EXPECT_TRUE(queue.Print("the last\n"));
  EXPECT_EQ(queue.Finish(signals), kDone);
  EXPECT_TRUE(gated.str() == expected + "5 missing\nthe last\n");
  EXPECT_EQ(gated.err.str(), "");
}

TEST(OutputQueue, IsGivenUpWhenAStopIsWanted) {
  GatedConsole &gated = NewConsole();
  {
    const StopSignals signals;
    OutputQueue queue(&gated.console, Missing);
    queue.Print("one\n");
    queue.Print("two\n");
    pthread_kill(pthread_self(), SIGTERM);
    EXPECT_EQ(queue.Finish(signals), kFailed);
    EXPECT_TRUE(gated.console.abandoned);
    EXPECT_EQ(gated.err.str(), "rynctl: 2 lines were not printed: the output takes nothing\n");
  }
  gated.open.count_down();
  EXPECT_TRUE(testing_support::WaitUntil([&] { return gated.taken == 8; }));
  EXPECT_EQ(gated.str(), "one\ntwo\n");
}

TEST(OutputQueue, EndsWithAnOutputThatFails) {
  std::ostringstream out;
  out.setstate(std::ios::badbit);
  Console console{out, out};
  const StopSignals signals;
  OutputQueue queue(&console, Missing);
  queue.Print("one\n");
  EXPECT_TRUE(testing_support::WaitUntil([&] { return queue.HasFailed(); }));
  EXPECT_FALSE(queue.Print("two\n"));
  EXPECT_EQ(queue.Finish(signals), kFailed);
  EXPECT_FALSE(console.abandoned);
}

}  // namespace
}  // namespace rynctl
