#include "post/ryndKprobQueue.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>

#include "base/uniqueFd.h"
#include "post/eventRecord.h"
#include "post/mgmtdSocket.h"
#include "post/rateLimit.h"
#include "testing/coreSupport.h"
#include "testing/testRoot.h"

namespace rynd {
namespace {

TEST(RateLimit, AThousandInEachWindowThatBeginsWithItsFirstEvent) {
  RateLimit limit;
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(limit.Pass(5000 + i / 20));
  EXPECT_FALSE(limit.Pass(5050));
  EXPECT_FALSE(limit.Pass(5059));
  EXPECT_TRUE(limit.Pass(5060));
  for (int i = 0; i < 999; ++i) ASSERT_TRUE(limit.Pass(5119));
  EXPECT_FALSE(limit.Pass(5119));
  EXPECT_TRUE(limit.Pass(7777));  // windows are on no grid
  EXPECT_TRUE(limit.Pass(7836));
  for (const int64_t backS : {1, 59, 60, 3600, 86'400}) {
    RateLimit muted;
    for (int i = 0; i < 1001; ++i) muted.Pass(1'000'000);
    EXPECT_TRUE(muted.Pass(1'000'000 - backS)) << "a clock that was set back opens a new window";
    for (int i = 0; i < 999; ++i) ASSERT_TRUE(muted.Pass(1'000'000 - backS));
    EXPECT_FALSE(muted.Pass(1'000'000 - backS + 59));
    EXPECT_TRUE(muted.Pass(1'000'000 - backS + 60));
  }
}

/// A management agent that a test starts and stops, and records that it numbers.
class QueueTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { EventPostInit(); }
  void TearDown() override {
    if (!agent_.IsOpen()) agent_.Open();
    QueueFlush();
  }
  static void DeliverNumber(int number) {
    const std::string name = "amb.problem.n" + std::to_string(number);
    std::vector<std::byte> record(400);
    std::memcpy(record.data() + kEventNameOffset, name.c_str(), name.size() + 1);
    Deliver(record.data(), 200, name.c_str(), "text");
  }
  /// Append the numbers of the records that the agent has been sent to `numbers`. False when there are none.
  bool Receive(std::vector<int> *numbers) const {
    const size_t before = numbers->size();
    for (std::string record; !(record = agent_.Next()).empty();) {
      EXPECT_EQ(record.size(), 200u);
      numbers->push_back(std::stoi(record.substr(kEventNameOffset + strlen("amb.problem.n"))));
    }
    return numbers->size() > before;
  }
  std::vector<int> Received() const {
    std::vector<int> numbers;
    Receive(&numbers);
    return numbers;
  }
  EventSocket agent_;
};

TEST_F(QueueTest, WaitsForTheFlushEvenWhenTheAgentIsBack) {
  CapturedLog log;
  DeliverNumber(1);
  QueueFlush();
  agent_.Open();
  DeliverNumber(2);
  EXPECT_TRUE(Received().empty());
  QueueFlush();
  EXPECT_EQ(Received(), (std::vector<int>{1, 2}));
  DeliverNumber(3);
  EXPECT_EQ(Received(), std::vector<int>{3});
  EXPECT_EQ(log.CountOf("KprobPostToMgmtd: Error connecting to " + agent_.Path() + ": No such file or directory."), 2u);
  EXPECT_EQ(log.CountOf("Failed to send event ([amb.problem.n1] text). Stopping send of events until next retry."), 1u);
  EXPECT_EQ(
      log.CountOf("The event ([amb.problem.n1] text) could not be sent immediately to mgmtd; queueing for retry."), 1u);
  EXPECT_EQ(log.CountOf("Some events in queue, adding event ([amb.problem.n2] text) to it"), 1u);
  EXPECT_EQ(log.CountOf("Successfully sent event ([amb.problem.n2] text)."), 1u);
  EXPECT_EQ(log.CountOf("The event ([amb.problem.n3] text) was sent immediately to mgmtd;"), 1u);
}

TEST_F(QueueTest, AnAgentThatComesAndGoesUnderLoadGetsEachRecordOnceAndInOrder) {
  constexpr int kRecords = 3000;
  std::atomic<bool> done = false;
  std::vector<int> received;
  std::thread agent([&] {
    std::mt19937 random(3);
    for (bool last = false; !last;) {
      last = done;
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));  // absent
      agent_.Open();
      if (last) QueueFlush();
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));  // stalled, with a backlog
      Receive(&received);
      unlink(agent_.Path().c_str());  // no new connection; those that were accepted are served
      while (Receive(&received)) continue;
      agent_.Close();
    }
  });
  std::thread timer([&] {
    while (!done) {
      QueueFlush();
      std::this_thread::sleep_for(std::chrono::microseconds(700));
    }
  });
  for (int i = 0; i < kRecords; ++i) DeliverNumber(i);
  done = true;
  timer.join();
  agent.join();
  ASSERT_EQ(received.size(), static_cast<size_t>(kRecords));
  for (int i = 0; i < kRecords; ++i) ASSERT_EQ(received[static_cast<size_t>(i)], i);
}

TEST_F(QueueTest, DropsWhatItHasNoMemoryFor) {
  if (!FailingAllocation::IsPossible()) GTEST_SKIP() << "allocation is the sanitizer's own";
  CapturedLog log;
  WithoutMemoryFor(400, [] { DeliverNumber(1); });
  WithoutMemoryFor(sizeof("text"), [] { DeliverNumber(2); });
  agent_.Open();
  DeliverNumber(3);  // the retry is pending all the same
  QueueFlush();
  EXPECT_EQ(Received(), std::vector<int>{3});
  const std::string rest = " to schedule for later. Will have to drop this kprob.";
  EXPECT_EQ(log.CountOf("Could not allocate memory for buf of kprob ([amb.problem.n1] text)" + rest), 1u);
  EXPECT_EQ(log.CountOf("Could not allocate memory for kprobMsg of kprob ([amb.problem.n2] text)" + rest), 1u);
}

TEST_F(QueueTest, APartialSendGoesOnWithTheFullLength) {
  agent_.Open();
  struct sigaction interrupt {};
  interrupt.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupt, nullptr);
  constexpr size_t kLength = size_t{3} << 20;  // more than a socket holds
  std::vector<std::byte> record(2 * kLength);
  for (size_t i = 0; i < kLength; ++i) record[i] = static_cast<std::byte>(i * 7 + 1);
  CapturedLog log;
  std::atomic<int> status = -2;
  std::thread sender([&] { status = SendToMgmtd(record.data(), kLength); });
  base::UniqueFd connection;
  ASSERT_TRUE(testing_support::WaitUntil([&] { return static_cast<bool>(connection = agent_.Accept()); }));
  std::vector<std::byte> received(4 * kLength);
  size_t length = recv(connection.Get(), received.data(), 1000, 0) > 0 ? 1000 : 0;
  testing_support::WaitUntil([&] {
    pthread_kill(sender.native_handle(), SIGUSR1);  // a send that is interrupted half-way is a short one
    return log.CountOf("Partial send (") > 0;
  });
  for (ssize_t count; (count = recv(connection.Get(), received.data() + length, 65536, 0)) > 0;) {
    length += static_cast<size_t>(count);
  }
  sender.join();
  EXPECT_EQ(status, 0);
  EXPECT_EQ(std::memcmp(received.data(), record.data(), kLength), 0);
  ASSERT_GT(length, kLength);  // the oddity that agents know: zeros follow
  for (size_t i = kLength; i < length; ++i) ASSERT_EQ(received[i], std::byte{0});
  EXPECT_GE(log.CountOf(" remaining). Continuing..."), 1u);
}

}  // namespace
}  // namespace rynd
