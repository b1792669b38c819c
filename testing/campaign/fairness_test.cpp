// Programs that flood the daemon on all its connections hold up no alarm of the kernel.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <thread>

#include "testing/campaign/campaign.h"
#include "testing/daemon.h"
#include "testing/flood.h"
#include "testing/peers.h"

namespace testing_support {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

/// How late the host lets a thread run that does nothing but wait: what no daemon can make up for.
class Lateness {
 public:
  double TakeWorst() { return worst_.exchange(0); }

 private:
  std::atomic<double> worst_ = 0;
  PeerThread thread_{[this](const std::atomic<bool> &stop) {
    while (!stop) {
      const auto start = Clock::now();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      worst_ = std::max(worst_.load(), Seconds(Clock::now() - start).count());
    }
  }};
};

TEST(Fairness, FloodsHoldUpNoAlarm) {
  for (Rounds rounds(1); rounds.Next();) {
    SCOPED_TRACE(rounds.Name());
    RunningDaemon running;
    // As fast as they can, records of all sizes, also such as nobody wants.
    const std::vector records = {MakeRecord("ryn.user.anything"),
                                 MakeRecord("ryn.user.large", {std::string(60'000, 'x')}),
                                 MakeRecord("ryn.user.reboot", {"a", "b"}), std::vector<std::byte>(50)};
    std::list<Flood> floods;
    for (int i = 0; i < 8; ++i)
      floods.emplace_back(
          1, [&](unsigned) { return ConnectUser(running.root); }, records);
    Lateness lateness;
    const base::UniqueFd kernel = ConnectKernel(running.root, static_cast<unsigned>(rounds.Draw(29)));
    for (size_t alarm = 1; alarm <= 100; ++alarm) {
      std::this_thread::sleep_for(std::chrono::milliseconds(rounds.Draw(20)));
      lateness.TakeWorst();
      const auto start = Clock::now();
      ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.bootdevice.pdl.v2", {"naa.1"})));
      ASSERT_TRUE(running.events.Records().WaitFor("amb.problem.bootdevice.pdl.v2", alarm));
      const double taken = Seconds(Clock::now() - start).count();
      // On its way an alarm waits for a processor some ten times: in four threads, and behind each of the eight.
      EXPECT_LT(taken, (IsSlowBuild() ? 2.0 : 0.1) + 10 * lateness.TakeWorst()) << "alarm " << alarm;
    }
    floods.clear();
    EXPECT_EQ(running.daemon.Stop(60), 0);
  }
}

}  // namespace
}  // namespace testing_support
