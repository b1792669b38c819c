#include "correlators/hardware/injectionTable.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "core/basics/reason.h"

namespace rynd {
namespace {

/// More than one, so that the sweep is always faster than what comes in.
constexpr size_t kSweptAtOnce = 8;

}  // namespace

void InjectionTable::Observe(int64_t now, const std::optional<Injection> &injection) {
  const bool furtherSecond = now != now_;
  now_ = now;
  Sweep(kSweptAtOnce);
  if (injection) Add(*injection);
  if (furtherSecond) {
    for (auto place = toJudge_.begin(); place != toJudge_.end();) {
      const bool repeated = !injection || *place != injection->worldId;
      place = Judge(*place, repeated) ? toJudge_.erase(place) : std::next(place);
    }
  } else if (injection && toJudge_.contains(injection->worldId) && Judge(injection->worldId, false)) {
    toJudge_.erase(injection->worldId);
  }
}

void InjectionTable::Prune(Run *run) const {
  std::erase_if(*run, [this](const Group &group) { return IsExpired(group.timeS); });
}

/// Sweep up at most so many groups that have expired.
void InjectionTable::Sweep(size_t most) {
  while (most > 0 && !groups_.empty() && IsExpired(groups_.begin()->first)) {
    std::vector<Injection> &places = groups_.begin()->second;
    for (; most > 0 && !places.empty(); --most) {
      Forget(places.back());
      places.pop_back();
    }
    if (places.empty()) groups_.erase(groups_.begin());
  }
}

/// Drop what has expired at `place`, and its machine with its last injection.
void InjectionTable::Forget(const Injection &place) {
  const auto machine = machines_.find(place.worldId);
  if (machine == machines_.end()) return;
  const auto run = machine->second.runs.find(place.page);
  if (run == machine->second.runs.end()) return;
  Prune(&run->second);
  if (!run->second.empty()) return;
  machine->second.runs.erase(run);
  --heldPages_;
  if (machine->second.runs.empty()) machines_.erase(machine);
}

void InjectionTable::Add(const Injection &injection) {
  Machine &machine = machines_[injection.worldId];
  if (IsExpired(machine.latestS)) {  // all of it has only not been swept up yet
    machine.killed = false;
    machine.eligible.clear();
  }
  machine.latestS = std::max(machine.latestS, now_);
  const auto [place, isNew] = machine.runs.try_emplace(injection.page);
  if (isNew) ++heldPages_;
  Run &run = place->second;
  Prune(&run);
  if (run.empty() || run.back().timeS != now_) {
    groups_[now_].push_back(injection);
    run.push_back({now_, 0});
  }
  ++run.back().count;
  Reason("world %d, guest page %#lx: %d injections in this second, seconds with injections within a minute: %lu",
         injection.worldId, injection.page, run.back().count, run.size());
  if (!machine.killed && CountAtKill(run) != 0) {
    machine.eligible.insert(injection.page);
    toJudge_.insert(injection.worldId);
  }
}

/// Kill a machine for the first of its eligible pages. True when none of them remains.
bool InjectionTable::Judge(int32_t worldId, bool repeated) {
  const auto found = machines_.find(worldId);
  if (found == machines_.end()) return true;
  Machine &machine = found->second;
  while (!machine.eligible.empty()) {
    const uint64_t page = *machine.eligible.begin();
    const auto run = machine.runs.find(page);
    if (run != machine.runs.end()) Prune(&run->second);
    const int32_t count = run != machine.runs.end() ? CountAtKill(run->second) : 0;
    if (count != 0) {
      machine.killed = kill_(worldId, count, page, repeated);
      if (machine.killed) machine.eligible.clear();
      return machine.killed;
    }
    machine.eligible.erase(page);
  }
  return true;
}

/// How many of a run's injections there are at the first that a machine is killed for; 0 when it isn't.
int32_t InjectionTable::CountAtKill(const Run &run) {
  int32_t count = 0;
  int64_t earliest = std::numeric_limits<int64_t>::max();
  int64_t latest = std::numeric_limits<int64_t>::min();
  for (const Group &group : run) {
    earliest = std::min(earliest, group.timeS);
    latest = std::max(latest, group.timeS);
    const bool isSpread = latest - earliest > kLeastSpreadS;
    if (isSpread && count + group.count > kTolerated) return std::max(count, kTolerated) + 1;
    count += group.count;
  }
  return 0;
}

}  // namespace rynd
