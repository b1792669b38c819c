// The output is one that a test opens and shuts.
#include "rynctl/showing/outputQueue.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <condition_variable>
#include <csignal>
#include <list>
#include <mutex>
#include <sstream>

#include "testing/testRoot.h"

namespace rynctl {
namespace {

/// Takes text once it is open, all of it or none.
class Gate : public std::streambuf {
 public:
  explicit Gate(bool works) : works_(works) {}
  void Open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }
  std::string Text() {
    const std::lock_guard lock(mutex_);
    return text_;
  }

 protected:
  std::streamsize xsputn(const char *text, std::streamsize length) override {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return open_; });
    if (works_) text_.append(text, static_cast<size_t>(length));
    return works_ ? length : 0;
  }

 private:
  const bool works_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
  std::string text_;
};

/// A console on a gate.
struct GatedConsole {
  explicit GatedConsole(bool works) : gate(works) {}
  Gate gate;
  std::ostream out{&gate};
  std::ostringstream err;
  Console console{out, err};
};

/// A new one, never destroyed: a thread may be left behind in it.
GatedConsole &NewConsole(bool works = true) {
  static auto *const consoles = new std::list<GatedConsole>;
  return consoles->emplace_back(works);
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
  gated.gate.Open();
  while (!queue.HasRoom()) {
    pollfd changed{queue.ChangedFd(), POLLIN, 0};
    ASSERT_EQ(poll(&changed, 1, 30'000), 1);
    queue.Noticed();
  }
  EXPECT_TRUE(queue.Print("the last\n"));
  EXPECT_EQ(queue.Finish(signals), kDone);
  EXPECT_TRUE(gated.gate.Text() == expected + "5 missing\nthe last\n");
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
  gated.gate.Open();
  EXPECT_TRUE(testing_support::WaitUntil([&] { return gated.gate.Text() == "one\ntwo\n"; }));
}

TEST(OutputQueue, EndsWithAnOutputThatFails) {
  GatedConsole &gated = NewConsole(false);
  const StopSignals signals;
  OutputQueue queue(&gated.console, Missing);
  queue.Print("one\n");
  gated.gate.Open();
  EXPECT_TRUE(testing_support::WaitUntil([&] { return queue.HasFailed(); }));
  EXPECT_FALSE(queue.Print("two\n"));
  EXPECT_EQ(queue.Finish(signals), kFailed);
  EXPECT_FALSE(gated.console.abandoned);
}

}  // namespace
}  // namespace rynctl
