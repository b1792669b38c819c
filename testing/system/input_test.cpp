// What senders can do to the daemon: nothing but have their own bad records discarded. campaign/records_test sends
// those; here are the longest, and everybody at once.
#include <gtest/gtest.h>

#include <thread>

#include "testing/daemon.h"

namespace testing_support {
namespace {

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
    const std::string next = "ryn.storage.apd.behind" + std::to_string(beyond);
    ASSERT_TRUE(WaitUntil(
        [&] { return SendRecord(kernel, MakeRecord(next, {"text"})) && running.log.Lines().WaitFor(next, 1, 0.02); }));
  }
  EXPECT_EQ(running.log.Lines().CountOf("apd.toolong"), 0u);
  EXPECT_EQ(running.daemon.Stop(), 0);
}

TEST(Input, AllContextsAndConnectionsAtOnceLoseNothing) {
  constexpr size_t kKernelContexts = 29, kConnections = 8;
  RunningDaemon running;
  const size_t each = IsSlowBuild() ? 50 : 300;
  std::vector<base::UniqueFd> ends;
  for (unsigned id = 0; id < kKernelContexts; ++id) ends.push_back(ConnectKernel(running.root, id));
  for (size_t i = 0; i < kConnections; ++i) ends.push_back(ConnectUser(running.root));
  std::vector<std::thread> senders;
  for (size_t number = 0; number < ends.size(); ++number) {
    senders.emplace_back([&ends, number, each] {
      for (size_t i = 0; i < each; ++i) {
        // Programs may speak of user programs alone.
        const char *about = number < kKernelContexts ? "storage.apd" : "user";
        const std::string id = std::string("ryn.") + about + ".all" + std::to_string(number * 1000 + i);
        EXPECT_TRUE(SendRecord(ends[number], MakeRecord(id, {"text"})));
      }
    });
  }
  for (std::thread &sender : senders) sender.join();
  EXPECT_TRUE(running.log.Lines().WaitFor(".all", ends.size() * each, 60));
  for (size_t number = 0; number < ends.size(); ++number) {
    const std::string what = ".all" + std::to_string(number * 1000 + each - 1);
    EXPECT_EQ(running.log.Lines().CountOf(what), 1u) << "the last of " << number;
  }
  EXPECT_EQ(running.log.Lines().CountOf(".all"), ends.size() * each);
  EXPECT_EQ(running.daemon.Stop(), 0);
}

}  // namespace
}  // namespace testing_support
