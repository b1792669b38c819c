// The agent ended at random instants under load: what it has, and what it may not have. RYND_AGENT_ENDINGS is how often
// each test ends it (40, or 8 where everything is slow).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include "mgmtd/store/reader.h"
#include "rynctl/showing/testEvent.h"
#include "testing/daemon.h"
#include "testing/ledger.h"
#include "testing/mgmtd/agentProcess.h"
#include "testing/testRoot.h"

namespace testing_support {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kSenders = 4;

/// Sends numbered records one after the other, each again until it has been taken, and keeps the book.
class Sender {
 public:
  Sender(const TestRoot &root, int number) : root_(root), number_(number), thread_([this] { Run(); }) {}
  ~Sender() { Stop(); }
  /// When each record was on its way, by their numbers.
  struct Trip {
    Clock::time_point before, after;
  };
  const std::vector<Trip> &Stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    return taken_;
  }

 private:
  void Run() {
    while (!stop_) {
      const std::string subject = "n-" + std::to_string(number_) + "-" + std::to_string(taken_.size() % 50);
      const auto bytes = rynctl::EventBytes(rynctl::kApdStart, {subject}, taken_.size(),
                                            rynctl::kTestTime + static_cast<uint64_t>(number_));
      const Clock::time_point before = Clock::now();
      if (SendEvent(root_, bytes)) taken_.push_back({before, Clock::now()});
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  const TestRoot &root_;
  const int number_;
  std::atomic<bool> stop_ = false;
  std::vector<Trip> taken_;
  std::thread thread_;
};

/// Numbers of the stored records in their order, by sender.
std::map<int, std::vector<uint64_t>> Stored(const TestRoot &root) {
  std::map<int, std::vector<uint64_t>> numbers;
  mgmtd::Reader reader(StoreOf(root));
  mgmtd::EventFilter filter{.limit = 10'000};
  for (std::vector<mgmtd::StoredEvent> events; !(events = reader.Events(filter)).empty();) {
    for (const mgmtd::StoredEvent &event : events) {
      EXPECT_EQ(event.damage, "");
      numbers[static_cast<int>(event.timeUs - static_cast<int64_t>(rynctl::kTestTime))].push_back(event.sequence);
    }
    filter.afterId = events.back().id;
  }
  return numbers;
}

/// Agents that were ended again and again while all sent.
struct Endings {
  Endings(int signal, int wanted) {
    std::vector<std::unique_ptr<Sender>> senders;
    for (int i = 0; i < kSenders; ++i) senders.push_back(std::make_unique<Sender>(root, i));
    std::mt19937 random(signal == SIGKILL ? 1 : 2);
    for (uint64_t left = EnvironmentNumber("RYND_AGENT_ENDINGS", IsSlowBuild() ? 8 : 40); left > 0; --left) {
      AgentProcess agent(root);
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 150'000));
      EXPECT_EQ(agent.End(signal), wanted);
      ends.push_back(Clock::now());
    }
    AgentProcess last(root);
    for (const auto &sender : senders) taken.push_back(sender->Stop());
    EXPECT_EQ(last.End(SIGTERM), 0);
    stored = Stored(root);
  }
  const TestRoot root;
  std::vector<Clock::time_point> ends;           ///< when each had ended
  std::vector<std::vector<Sender::Trip>> taken;  ///< by sender
  std::map<int, std::vector<uint64_t>> stored;   ///< in the end, by sender
};

TEST(AgentEndings, KilledItLosesNoMoreThanWhatCameLast) {
  Endings endings(SIGKILL, 128 + SIGKILL);
  const std::vector<Clock::time_point> &ends = endings.ends;
  size_t all = 0, lost = 0;
  Clock::duration longest{};
  for (int sender = 0; sender < kSenders; ++sender) {
    const std::vector<Sender::Trip> &sent = endings.taken[static_cast<size_t>(sender)];
    all += sent.size();
    size_t next = 0;
    for (const uint64_t number : endings.stored[sender]) {
      ASSERT_GE(number, next) << "a record came twice, or out of order";
      for (; next < number; ++next) {
        // What is missing was sent just before a kill: nothing that came later in that life is there.
        const auto kill = std::ranges::upper_bound(ends, sent[next].before);
        ASSERT_NE(kill, ends.end());
        ASSERT_TRUE(number >= sent.size() || sent[number].after >= *kill) << "one in the middle is missing";
        longest = std::max(longest, *kill - sent[next].before);
        ++lost;
      }
      ++next;
    }
  }
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(longest).count();
  std::printf("%zu records, %zu kills, %zu lost, the oldest %lld ms before its kill\n", all, ends.size(), lost,
              static_cast<long long>(milliseconds));
  EXPECT_GT(all, ends.size() * 4);
  EXPECT_LT(milliseconds, 5000) << "far more than a commit waits for, on the slowest machine";
}

TEST(AgentEndings, StoppedItLosesNothing) {
  Endings endings(SIGTERM, 0);
  size_t all = 0;
  for (int sender = 0; sender < kSenders; ++sender) {
    // One that was taken and not known to be is sent again, and there once.
    const size_t sent = endings.taken[static_cast<size_t>(sender)].size();
    const std::vector<uint64_t> &stored = endings.stored[sender];
    ASSERT_GE(stored.size(), sent);
    ASSERT_LE(stored.size(), sent + 1);
    for (size_t i = 0; i < sent; ++i) ASSERT_EQ(stored[i], i);
    all += sent;
  }
  std::printf("%zu records, %zu stops\n", all, endings.ends.size());
  EXPECT_GT(all, endings.ends.size() * 4);
}

TEST(AgentEndings, WhatTheDaemonSentIsWhatIsStored) {
  const TestRoot root;
  auto agent = std::make_unique<AgentProcess>(root);
  Daemon daemon(root);
  ASSERT_TRUE(WaitUntil([&] { return IsWhole(root); }));
  const base::UniqueFd kernel = ConnectKernel(root);
  std::mt19937 random(3);
  for (int i = 0; i < 400; ++i) {
    ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.storage.apd.start", {"naa." + std::to_string(i)})));
    if (i % 100 != 50) continue;
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
    ASSERT_EQ(agent->End(SIGTERM), 0);
    agent = std::make_unique<AgentProcess>(root);
  }
  ExpectLedgerCloses(root);
  const auto events = ReadStatistics(root).at("events");
  const uint64_t sent = events.at("sent");
  EXPECT_EQ(sent + events.at("waiting").get<uint64_t>(), 400U) << events;
  ASSERT_EQ(agent->End(SIGTERM), 0);
  EXPECT_EQ(mgmtd::Reader(StoreOf(root)).Events({}).size(), sent);
  daemon.Stop();
}

}  // namespace
}  // namespace testing_support
