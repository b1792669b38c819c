// What the daemon counts of itself, to be read at any time by any thread. Relaxed atomics, never reset: at rest the
// records that the contexts gave are those matched and unmatched, what an agent received is what it handled and what
// it had no handler for, and the events posted are those dropped, sent and waiting.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rynd {

constexpr size_t kMaxAgents = 32;  ///< that the daemon has room for

/// A number that only rises.
class Counter {
 public:
  void Add(uint64_t count = 1) { value_.fetch_add(count, std::memory_order_relaxed); }
  /// The same for the only thread that adds to it, without a locked instruction.
  void AddAlone(uint64_t count = 1) { value_.store(Get() + count, std::memory_order_relaxed); }
  uint64_t Get() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<uint64_t> value_ = 0;
};

/// A number that rises and falls.
using Gauge = std::atomic<uint64_t>;

/// One agent's life. What the poll loop writes stands apart from what the agent writes.
struct AgentStatistics {
  static constexpr size_t kNameSize = 64;
  Counter givenRecords;  ///< written to its stream
  Counter givenBytes;
  char name[kNameSize] = "";  ///< NUL-terminated; constant once `isUsed`; it keeps the two sides' cache lines apart
  Counter received;           ///< read from its stream, whole
  Counter receivedBytes;
  Counter handled;
  Counter unhandled;                 ///< without a handler, or given up for lack of memory
  Counter exceptions;                ///< thrown by handlers, and ignored
  Counter posted;                    ///< events, dropped ones included
  Counter dropped;                   ///< of those
  Counter busyNs;                    ///< inside of handlers
  std::atomic<bool> isUsed = false;  ///< the name is set
  std::atomic<bool> isAlive = false;
};

/// Why an event was not delivered.
enum class DropReason { kRate, kName, kSize, kMemory };
constexpr size_t kDropReasons = 4;
/// The reason's word in the statistics: "rate", "name", "size" or "memory".
const char *DropReasonName(DropReason reason);

struct EventStatistics {
  Counter posted;
  std::array<Counter, kDropReasons> dropped;
  Counter sent;
  Counter retries;            ///< attempts to send what waits
  Gauge waiting = 0;          ///< in the queue
  Gauge oldestWaitingUs = 0;  ///< wall clock at which the queue's first event was put there; 0: none waits
  Gauge sendingSinceUs = 0;   ///< wall clock at which the send that goes on has begun; 0: none
  /// Wall clock since when the management agent has not accepted; 0: it accepts, or is not there.
  Gauge notAcceptingSinceUs = 0;
};

struct TraceStatistics {
  Gauge clients = 0;
  Counter lines;    ///< handed to clients
  Counter lost;     ///< that clients missed
  Counter refused;  ///< clients turned away
};

struct Statistics {
  Counter matched;    ///< records that at least one agent was given
  Counter unmatched;  ///< records that no agent wants
  Counter unsound;    ///< records whose texts or lengths were not sound
  EventStatistics events;
  TraceStatistics trace;
};

/// The daemon's own. Never destroyed: threads may outlive main().
Statistics &Stats();

/// Claim the entry of the agent called `name` ("...Correlator" is cut to what stands in front of it) and make it the
/// calling thread's. Without a free entry, the common one of whoever has none.
AgentStatistics *RegisterAgentStatistics(const char *name);
/// The calling thread's agent, or, in a thread that is none, a common entry without a name.
AgentStatistics *CurrentAgentStatistics();
/// Let the calling thread count for `agent` (null: for the common entry). The one before.
AgentStatistics *SetCurrentAgentStatistics(AgentStatistics *agent);
/// The entries in use, in the order of their registration.
std::vector<const AgentStatistics *> AllAgentStatistics();
/// How many agents are registered and alive.
size_t AgentsAlive();
/// Records that were written to streams and not read from them yet, of all agents.
uint64_t RecordsInStreams();

/// An uplink whose watchdog window has not been decided, and since when (microseconds of the wall clock).
struct WaitingUplink {
  std::string uplink;
  uint64_t sinceUs;
};
/// Replace what is known of them. Network correlator's thread.
void SetWaitingUplinks(std::vector<WaitingUplink> uplinks);
std::vector<WaitingUplink> WaitingUplinks();

}  // namespace rynd
