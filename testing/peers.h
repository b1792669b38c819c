// Everybody round the daemon: each goes on until it is destroyed, and starts itself anew now and then.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "testing/arrivals.h"
#include "testing/daemon.h"
#include "testing/testRoot.h"

namespace testing_support {

/// What the peers have done. Any thread.
struct PeerCounts {
  std::atomic<uint64_t> observations = 0;  ///< sent to kernel contexts
  std::atomic<uint64_t> numbered = 0;      ///< of those, of each numbered event
  std::atomic<uint64_t> submitted = 0;     ///< by user programs, and taken
  std::atomic<uint64_t> traceLost = 0;     ///< lines that the feed has said to be lost
  std::atomic<uint64_t> killed = 0;        ///< events that a management agent took to its grave
  std::atomic<uint64_t> agentStarts = 0, logStarts = 0, traceStarts = 0, userStarts = 0;
  Collector problems;  ///< what was wrong
};

/// The events whose numbers the senders' observations give.
constexpr std::array<const char *, 2> kNumberedEvents = {"amb.problem.storage.apd.start",
                                                         "amb.problem.bootdevice.pdl.v2"};

/// One peer's thread: `body` is called with a flag that says when to end.
class PeerThread {
 public:
  template <typename Body>
  explicit PeerThread(Body body) : thread_([this, body] { body(stop_); }) {}
  ~PeerThread() {
    stop_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

/// Send `perSecond` observations a second to the 29 kernel contexts, whose connections are now and then made anew.
void SendObservations(const TestRoot &root, unsigned perSecond, PeerCounts *counts, const std::atomic<bool> &stop);
/// A user program over librynsubmit: a few records over each connection.
void SubmitObservations(unsigned seed, PeerCounts *counts, const std::atomic<bool> &stop);
/// A user program that sends what is no record and hangs up.
void SendGarbage(const TestRoot &root, unsigned seed, const std::atomic<bool> &stop);
/// The management agent: there for up to `most`, for up to a quarter of it away, or stopped and then killed.
void ServeEvents(const TestRoot &root, unsigned seed, std::chrono::milliseconds most, Arrivals *arrivals,
                 PeerCounts *counts, const std::atomic<bool> &stop);
/// The system log: served, not read, absent.
void ServeLog(const TestRoot &root, PeerCounts *counts, const std::atomic<bool> &stop);
/// A trace client; it sees that each number that it misses is said to be lost, and does not always read.
void FollowTrace(const TestRoot &root, unsigned seed, PeerCounts *counts, const std::atomic<bool> &stop);

/// What the daemon's statistics do not account for of all that was sent and has arrived, numbered events beyond
/// `excused` among it; "" for nothing.
std::string PeerGap(const nlohmann::json &statistics, const Arrivals &arrivals, const PeerCounts &counts,
                    uint64_t excused = 0);

}  // namespace testing_support
