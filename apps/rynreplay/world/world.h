// The daemon's correlators as they are, in one process without threads, sockets or waiting. Other objects stand in for
// the clock, the timer thread, the runner, the log, the delivery and what is read of the machine; the linker is the
// seam. Correlators keep their state in statics of theirs: one world a process. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "replay/world/agents.h"
#include "replay/world/clock.h"
#include "replay/world/hostTree.h"
#include "replay/world/posts.h"
#include "replay/world/talk.h"
#include "replay/world/timers.h"

namespace replay {

/// What happens to the correlators at one instant.
struct Step {
  enum class Kind { kStart, kObservation, kTimer, kWake };
  Kind kind;
  const Agent *agent;       ///< null for a timer
  std::string_view record;  ///< of kObservation: the raw record
  std::string timer;        ///< of kTimer: its name
};

class World {
 public:
  /// Start the daemon's agents in their order.
  void Start();

  /// The agents that want observations called `id`, by their places.
  const std::vector<size_t> &AgentsFor(const char *id);
  /// The place of the agent called `name`, or SIZE_MAX.
  size_t FindAgent(std::string_view name) const;

  /// Let the agent at `place` handle a record now. False when no observation can be made of it.
  bool Handle(size_t place, std::string_view record);
  /// Run the timer called `name` now; false when there is none. An agent that it wakes runs with its own Wake().
  bool RunTimer(std::string_view name);
  /// The same if it is due, with others that are. False when it is not.
  bool RunTimerIfDue(std::string_view name);
  void WakeAgent(size_t place);

  /// Let simulated time pass up to `monotonicNs`, and run all timers that come due, and the agents that they wake.
  void RunUntil(int64_t monotonicNs);
  /// Hand a record to every agent that wants it, at `monotonicNs`, with what comes due before it. How many these are.
  size_t Observe(std::string_view record, int64_t monotonicNs);

  /// Called behind each step, with what it has posted or dropped.
  using StepEnded = void (*)(void *context, const Step &step, std::vector<Post> posts);
  void HearSteps(StepEnded ended, void *context) {
    stepEnded_ = ended;
    stepContext_ = context;
  }

  Clock clock;
  HostTree host;
  Timers timers;
  Posts posts;
  Talk talk;
  std::deque<Agent> agents;  ///< in the order of their start, as long as all of them start

 private:
  void Ended(const Step &step);

  StepEnded stepEnded_ = nullptr;
  void *stepContext_ = nullptr;
  std::unordered_map<std::string, std::vector<size_t>> agentsById_;
};

/// The one of this process; never destroyed.
World &TheWorld();

}  // namespace replay
