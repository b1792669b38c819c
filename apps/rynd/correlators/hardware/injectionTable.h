// Which virtual machines keep touching a guest page that machine checks were injected into. Without a clock of its own;
// one thread.
//
// What is decided at each observation: forget injections of more than a minute ago, and machines without any; note the
// new one; then go through all machines by world id and, of each that is not killed, through its injections by page and
// arrival, and kill it at the first that makes more than 49 into its page which are more than a second apart.
//
// How, at a cost that doesn't grow with the table: forgetting never makes a machine eligible, so only the one that has
// just been touched can have become so, by the page that was touched; machines that could not be killed are held apart.
// What has expired is left out where it is looked at, and swept up a few places at a time. Memory is bounded by the
// pages and seconds that a minute's injections touch.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace rynd {

/// A machine check that the kernel has injected.
struct Injection {
  int32_t worldId;
  uint64_t page;  ///< guest page number
};

class InjectionTable {
 public:
  static constexpr int64_t kLifetimeS = 60;
  static constexpr int32_t kTolerated = 49;    ///< injections into one page
  static constexpr int64_t kLeastSpreadS = 1;  ///< between the first and the last of them; they must be more

  /// Kills a virtual machine after `count` injections into `page`. False when it could not even be found: it counts as
  /// not killed. `repeated` says that this only repeats an attempt that failed. Must not throw.
  using Kill = bool (*)(int32_t worldId, int32_t count, uint64_t page, bool repeated);
  explicit InjectionTable(Kill kill) : kill_(kill) {}

  /// An observation at `now` (whole seconds, never set back), with the injection that it reports or none. A machine
  /// that could not be found is tried again by each of its own injections, and by any other observation in a further
  /// second.
  void Observe(int64_t now, const std::optional<Injection> &injection);

  /// Pages with injections that are held, swept up or not.
  size_t HeldPages() const { return heldPages_; }

 private:
  /// Injections of one second.
  struct Group {
    int64_t timeS;
    int32_t count;
  };
  /// The injections into one page, in the order of arrival.
  using Run = std::vector<Group>;
  struct Machine {
    bool killed = false;
    int64_t latestS = 0;  ///< the latest of all its injections: with it, all of them expire
    std::map<uint64_t, Run> runs;
    std::set<uint64_t> eligible;  ///< pages that it is to be killed for
  };

  bool IsExpired(int64_t timeS) const { return timeS + kLifetimeS < now_; }
  void Prune(Run *run) const;
  void Sweep(size_t most);
  void Forget(const Injection &place);
  void Add(const Injection &injection);
  bool Judge(int32_t worldId, bool repeated);
  static int32_t CountAtKill(const Run &run);

  const Kill kill_;
  int64_t now_ = 0;
  size_t heldPages_ = 0;
  std::map<int32_t, Machine> machines_;
  std::set<int32_t> toJudge_;                         ///< machines with eligible pages
  std::map<int64_t, std::vector<Injection>> groups_;  ///< where each group is, by its time
};

}  // namespace rynd
