// A soak: hours of observations with restarts of everybody round the daemon. `rynd_soak HOURS`: a line a minute, a
// summary, and status 1 when anything was lost unsaid, or descriptors, threads or memory grew.
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <list>

#include "hosted/paths.h"
#include "testing/daemon.h"
#include "testing/ledger.h"
#include "testing/peers.h"
#include "testing/processState.h"

namespace testing_support {
namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

constexpr unsigned kPerSecond = 1'000;
constexpr std::chrono::seconds kAgent(60);  ///< the longest that it is there
/// What the allocator may still come to hold behind the warm-up, of all that was in use at once in some minute.
constexpr long kGrowthKib = 2 * 1024;

/// One soak: its daemon, its peers and its book.
class Soak {
 public:
  Soak() : daemon_(root_) {}

  /// False when the daemon is not ready in time.
  bool Start() {
    setenv("CORVANE_ROOT", root_.Path().c_str(), 1);
    always_.emplace_back([this](const auto &stop) { ServeLog(root_, &counts_, stop); });
    always_.emplace_back([this](const auto &stop) { ServeEvents(root_, 1, kAgent, &arrivals_, &counts_, stop); });
    return WaitUntil([this] { return ReadProcessState(daemon_.Pid()).threads >= 27; });
  }
  void Run(std::chrono::seconds minute) {
    flowing_.emplace_back([this](const auto &stop) { SendObservations(root_, kPerSecond, &counts_, stop); });
    for (unsigned seed = 0; seed < 3; ++seed) {
      flowing_.emplace_back([=, this](const auto &stop) { SubmitObservations(minutes_ * 10 + seed, &counts_, stop); });
      flowing_.emplace_back([=, this](const auto &stop) { FollowTrace(root_, minutes_ * 10 + seed, &counts_, stop); });
    }
    flowing_.emplace_back([this](const auto &stop) { SendGarbage(root_, minutes_, stop); });
    std::this_thread::sleep_for(minute);
    flowing_.clear();
  }
  /// See that the book closes, and what the daemon holds while nobody asks anything of it. False when it has ended.
  bool Report() {
    ++minutes_;
    WaitUntil([this] { return (gap_ = Gap(false)).empty(); }, 30);
    WaitUntil([this] { return ReadStatistics(root_).at("trace").value("clients", 9) <= 1; }, 10);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const ProcessState state = ReadProcessState(daemon_.Pid());
    states_.push_back(state);
    printf(
        "minute %u: %lu observations, %lu submitted, %lu events, %lu trace lines lost and said; restarts of agent "
        "%lu, log %lu, trace %lu, programs %lu; %ld descriptors, %ld threads, %ld KiB%s%s\n",
        minutes_, counts_.observations.load(), counts_.submitted.load(), arrivals_.Events(), counts_.traceLost.load(),
        counts_.agentStarts.load(), counts_.logStarts.load(), counts_.traceStarts.load(), counts_.userStarts.load(),
        state.descriptors, state.threads, state.residentKib, gap_.empty() ? "" : "; ", gap_.c_str());
    fflush(stdout);
    if (!gap_.empty()) counts_.problems.Add("minute " + std::to_string(minutes_) + ": " + gap_);
    return state.threads > 0;
  }
  /// The summary. True when all is well.
  bool End() {
    always_.pop_back();
    // The last retry brings what waits.
    const EventListener agent(root_ / hosted::kEventSocket, [this](const std::string &one) { arrivals_.Take(one); });
    WaitUntil([this] { return (gap_ = Gap(true)).empty(); }, 90);
    if (!gap_.empty()) counts_.problems.Add("at the end: " + gap_);
    daemon_.Signal(SIGTERM);
    if (const int status = daemon_.WaitForExit(10); status != 0)
      counts_.problems.Add("exit status " + std::to_string(status));
    always_.clear();
    if (!states_.empty()) JudgeGrowth();
    std::vector<std::string> problems = counts_.problems.All();
    for (const std::string &problem : arrivals_.Problems()) problems.push_back(problem);
    printf(
        "%u minutes: %lu observations, %lu numbered events of each of %zu kinds, unannounced loss and all else: %s\n",
        minutes_, counts_.observations.load(), counts_.numbered.load(), kNumberedEvents.size(),
        problems.empty() ? "none" : "");
    for (const std::string &problem : problems) printf("  %s\n", problem.c_str());
    return problems.empty();
  }

 private:
  using Peers = std::list<PeerThread>;

  /// What has not been accounted for; "" for nothing. With `all`, what waits counts as missing.
  std::string Gap(bool all) const {
    const json statistics = ReadStatistics(root_);
    std::string gap = PeerGap(statistics, arrivals_, counts_);
    if (!statistics.is_object()) return gap;
    for (const json &context : statistics.at("contexts")) {
      if (context.at("resets") != 0) gap += "a context was reset; ";
    }
    if (all && statistics.at("events").at("waiting") != 0) gap += "events wait; ";
    return gap;
  }

  void JudgeGrowth() {
    const size_t warm = std::min(states_.size() - 1, std::max<size_t>(2, states_.size() / 10));
    long before = 0, after = 0;
    for (size_t i = 0; i <= warm; ++i) before = std::max(before, states_[i].residentKib);
    for (size_t i = warm; i < states_.size(); ++i) {
      after = std::max(after, states_[i].residentKib);
      if (states_[i].descriptors != states_[warm].descriptors || states_[i].threads != states_[warm].threads) {
        counts_.problems.Add("minute " + std::to_string(i + 1) + ": descriptors or threads are not what they were");
      }
    }
    printf("memory: %ld KiB at most in the first %zu minutes, %ld behind them\n", before, warm + 1, after);
    if (after > before + kGrowthKib) counts_.problems.Add("memory grows");
  }

  TestRoot root_;
  Arrivals arrivals_;
  PeerCounts counts_;
  Daemon daemon_;
  Peers always_;   ///< whom the daemon turns to
  Peers flowing_;  ///< who turn to it; they rest while the book is looked at
  std::vector<ProcessState> states_;
  std::string gap_;
  unsigned minutes_ = 0;
};

int RunSoak(double hours) {
  const auto end = Clock::now() + std::chrono::duration<double>(hours * 3600);
  Soak soak;
  if (!soak.Start()) {
    fprintf(stderr, "rynd_soak: the daemon did not start\n");
    return 1;
  }
  const std::chrono::seconds minute(std::clamp(static_cast<int>(hours * 3600), 1, 60));
  do {
    soak.Run(minute);
  } while (soak.Report() && Clock::now() < end);
  return soak.End() ? 0 : 1;
}

}  // namespace
}  // namespace testing_support

int main(int argc, char **argv) {
  char *end = nullptr;
  const double hours = argc == 2 ? strtod(argv[1], &end) : 0;
  if (argc != 2 || end == argv[1] || *end != '\0' || !(hours > 0) || hours > 10'000) {
    fprintf(stderr, "usage: rynd_soak HOURS (above 0, such as 0.5)\n");
    return 2;
  }
  return testing_support::RunSoak(hours);
}
