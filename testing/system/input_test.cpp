// What senders can do to the daemon: nothing but have their own bad records discarded.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstring>
#include <random>

#include "testing/daemon.h"

namespace testing_support {
namespace {

/// A good record that shows up in the log, by way of an agent that has no handler for it.
std::vector<std::byte> Marker(int number) {
  return MakeRecord("ryn.storage.apd.marker" + std::to_string(number), {"text"});
}

/// What a hostile or broken sender makes of a good record.
std::vector<std::vector<std::byte>> BadRecords(std::mt19937 *random) {
  const auto good = MakeRecord("ryn.storage.apd.start", {"naa.1", "naa.2"}, {5});
  std::vector<std::vector<std::byte>> bad;
  bad.emplace_back();
  for (const int length : {1, 31, 32, 33}) bad.emplace_back(good.begin(), good.begin() + length);
  bad.emplace_back(good.begin(), good.end() - 1);
  bad.push_back(good);
  bad.back().push_back(std::byte{0});
  for (const size_t offset : {16u, 20u, 24u, 28u}) {
    for (const uint32_t value : {0u, 1u, 0x7fffffffu, 0xffffffffu}) {
      bad.push_back(good);
      std::memcpy(bad.back().data() + offset, &value, sizeof value);
    }
  }
  for (int i = 0; i < 100; ++i) {
    bad.emplace_back((*random)() % 9000);
    for (std::byte &byte : bad.back()) byte = static_cast<std::byte>((*random)());
  }
  return bad;
}

TEST(Input, BadRecordsOfTheKernelCostThemselvesOnly) {
  RunningDaemon running;
  std::mt19937 random(5);
  const auto kernel = ConnectKernel(running.root, 9);
  int markers = 0;
  for (const auto &bad : BadRecords(&random)) {
    ASSERT_TRUE(SendRecord(kernel, Marker(markers++)));
    ASSERT_TRUE(SendRecord(kernel, bad)) << strerror(errno);
  }
  ASSERT_TRUE(SendRecord(kernel, Marker(markers++)));
  EXPECT_TRUE(running.log.Lines().WaitFor("No correlator for ryn.storage.apd.marker", static_cast<size_t>(markers)));
  EXPECT_GE(running.log.Lines().CountOf("kernel-09"), 1u) << "discards are said";
  EXPECT_EQ(running.daemon.Stop(), 0);
}

TEST(Input, BadRecordsOfProgramsCostThemselvesOnly) {
  RunningDaemon running;
  std::mt19937 random(6);
  const auto user = ConnectUser(running.root);
  for (const auto &bad : BadRecords(&random)) ASSERT_TRUE(SendRecord(user, bad)) << strerror(errno);
  // A program cannot speak for the kernel, nor send what no agent could be given.
  ASSERT_TRUE(SendRecord(user, MakeRecord("ryn.storage.apd.start", {"forged"})));
  ASSERT_TRUE(SendRecord(user, MakeRecord("ryn.user.large", {std::string(131'072, 'x')})));
  const auto trace = ConnectTrace(running.root);
  ASSERT_TRUE(SendRecord(user, MakeRecord("ryn.user.good", {"text"})));
  char line[200] = "";
  ASSERT_GT(recv(trace.Get(), line, sizeof line - 1, 0), 0);
  EXPECT_STREQ(line, "1700000000000000 IN ryn.user.good a message (\"text\")\n");
  EXPECT_EQ(running.events.Records().Count(), 0u);
  EXPECT_EQ(running.daemon.Stop(), 0);
}

TEST(Input, TheLongestRecordIsDeliveredAndALongerOneDiscarded) {
  RunningDaemon running;
  const auto kernel = ConnectKernel(running.root);
  const size_t overhead = MakeRecord("ryn.storage.apd.longest", {""}).size();
  const auto longest = MakeRecord("ryn.storage.apd.longest", {std::string(131'071 - overhead, 'x')});
  ASSERT_EQ(longest.size(), 131'071u);
  ASSERT_TRUE(SendRecord(kernel, longest));
  EXPECT_TRUE(running.log.Lines().WaitFor("No correlator for ryn.storage.apd.longest"));
  for (const size_t beyond : {1u, 2u, 50'000u}) {
    const auto tooLong = MakeRecord("ryn.storage.apd.toolong", {std::string(131'071 - overhead + beyond, 'x')});
    ASSERT_EQ(tooLong.size(), 131'071 + beyond);
    ASSERT_TRUE(SendRecord(kernel, tooLong));
    // One that fits into no buffer resets its context, with what is pending there: send until that has happened.
    const std::string next = "apd.marker" + std::to_string(beyond);
    ASSERT_TRUE(WaitUntil([&] {
      return SendRecord(kernel, Marker(static_cast<int>(beyond))) && running.log.Lines().WaitFor(next, 1, 0.02);
    }));
  }
  EXPECT_EQ(running.log.Lines().CountOf("apd.toolong"), 0u);
  EXPECT_EQ(running.daemon.Stop(), 0);
}

TEST(Input, NineConnectionsThatHalfCloseLeaveTheDaemonIdle) {
  RunningDaemon running;
  std::vector<base::UniqueFd> users;
  for (int i = 0; i < 9; ++i) users.push_back(ConnectUser(running.root));
  for (const auto &user : users) shutdown(user.Get(), SHUT_WR);
  // Whoever only half-closes is let go as well, so that there is room for others.
  char byte;
  for (const auto &user : users) EXPECT_EQ(recv(user.Get(), &byte, 1, 0), 0);
  const auto user = ConnectUser(running.root);
  const auto trace = ConnectTrace(running.root);
  ASSERT_TRUE(SendRecord(user, MakeRecord("ryn.user.good")));
  EXPECT_GT(recv(trace.Get(), &byte, 1, 0), 0);
  EXPECT_EQ(running.daemon.Stop(), 0);
}

TEST(Input, ManyContextsAndConnectionsAtOnceLoseNothing) {
  RunningDaemon running;
  std::vector<std::thread> senders;
  const int each = IsSlowBuild() ? 50 : 300;
  for (unsigned id = 0; id < 29; id += 4) {
    senders.emplace_back([&running, id, each] {
      const auto kernel = ConnectKernel(running.root, id);
      for (int i = 0; i < each; ++i) EXPECT_TRUE(SendRecord(kernel, Marker(static_cast<int>(id))));
    });
  }
  for (std::thread &sender : senders) sender.join();
  EXPECT_TRUE(running.log.Lines().WaitFor("apd.marker", senders.size() * static_cast<size_t>(each), 60));
  EXPECT_EQ(running.daemon.Stop(), 0);
}

}  // namespace
}  // namespace testing_support
