// Drives the world: steps in the order of their times.
#include "replay/world/world.h"

#include "base/immortal.h"
#include "core/basics/cause.h"
#include "core/basics/rawRecord.h"
#include "correlators/agentTable.h"
#include "post/ryndKprobQueue.h"

namespace replay {

World &TheWorld() {
  static base::Immortal<World> world;
  return *world;
}

void World::Start() {
  rynd::EventPostInit();
  for (const rynd::AgentFunction agent : rynd::AgentTable()) {
    rynd::SetCurrentAgentStatistics(nullptr);
    agent();
  }
  Ended({Step::Kind::kStart, nullptr, {}, {}});
}

const std::vector<size_t> &World::AgentsFor(const char *id) {
  constexpr size_t kMostIds = 100'000;  // whoever sends chooses them
  if (const auto known = agentsById_.find(id); known != agentsById_.end()) return known->second;
  if (agentsById_.size() == kMostIds) agentsById_.clear();
  std::vector<size_t> &wanting = agentsById_[id];
  for (size_t place = 0; place < agents.size(); ++place) {
    if (agents[place].Wants(id)) wanting.push_back(place);
  }
  return wanting;
}

size_t World::FindAgent(std::string_view name) const {
  for (size_t place = 0; place < agents.size(); ++place) {
    if (agents[place].name == name) return place;
  }
  return SIZE_MAX;
}

bool World::Handle(size_t place, std::string_view record) {
  const Agent &agent = agents[place];
  if (!Dispatch(agent, record)) return false;
  Ended({Step::Kind::kObservation, &agent, record, {}});
  return true;
}

bool World::RunTimer(std::string_view name) {
  const rynd::TimerCallback callback = timers.Find(name);
  if (callback == nullptr) return false;
  rynd::SetCurrentAgentStatistics(nullptr);
  {
    const rynd::CauseScope cause({nullptr, 0, "timer"});
    callback();
  }
  Ended({Step::Kind::kTimer, nullptr, {}, std::string(name)});
  return true;
}

bool World::RunTimerIfDue(std::string_view name) {
  bool hasRun = false;
  while (const rynd::TimerCallback due = timers.TakeDue(clock.MonotonicNs() / rynd::kNsPerSecond)) {
    const std::string taken = timers.NameOf(due);
    RunTimer(taken);
    hasRun = hasRun || taken == name;
  }
  return hasRun;
}

void World::WakeAgent(size_t place) {
  Wake(agents[place]);
  Ended({Step::Kind::kWake, &agents[place], {}, {}});
}

void World::RunUntil(int64_t monotonicNs) {
  for (int64_t dueNs = timers.EarliestDueNs(); dueNs != 0 && dueNs <= monotonicNs; dueNs = timers.EarliestDueNs()) {
    if (dueNs > clock.MonotonicNs()) clock.AdvanceTo(dueNs);
    const rynd::TimerCallback due = timers.TakeDue(dueNs / rynd::kNsPerSecond);
    if (due == nullptr) break;
    RunTimer(timers.NameOf(due));
    for (size_t place = 0; place < agents.size(); ++place) {
      if (IsWoken(agents[place])) WakeAgent(place);
    }
  }
  if (monotonicNs > clock.MonotonicNs()) clock.AdvanceTo(monotonicNs);
}

size_t World::Observe(std::string_view record, int64_t monotonicNs) {
  RunUntil(monotonicNs);
  const char *id = rynd::RecordId(reinterpret_cast<const std::byte *>(record.data()));
  size_t handled = 0;
  for (const size_t place : AgentsFor(id)) handled += Handle(place, record) ? 1 : 0;
  return handled;
}

void World::Ended(const Step &step) {
  std::vector<Post> posted = posts.Take();
  if (stepEnded_ != nullptr) stepEnded_(stepContext_, step, std::move(posted));
}

}  // namespace replay
