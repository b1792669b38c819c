// The daemon as a process, and the peers that it meets on its sockets. For tests and benchmarks.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/uniqueFd.h"
#include "testing/processState.h"
#include "testing/testRoot.h"

namespace testing_support {

/// True where everything runs many times slower than it would alone: sanitizers, emulation.
bool IsSlowBuild();

/// Collects texts from another thread and lets a test wait for them.
class Collector {
 public:
  void Add(std::string text);
  std::vector<std::string> All() const;
  size_t Count() const;
  /// Wait until `count` texts hold `part`. False after `seconds`.
  bool WaitFor(const std::string &part, size_t count = 1, double seconds = 30) const;
  /// Texts that hold `part`.
  size_t CountOf(const std::string &part) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::string> texts_;
};

/// The system log's end: receives every record at `path`.
class LogListener {
 public:
  explicit LogListener(const std::string &path);
  ~LogListener();
  const Collector &Lines() const { return lines_; }

 private:
  Collector lines_;
  base::UniqueFd socket_;
  std::thread thread_;
};

/// The management agent's end: accepts connections at `path` and hands the bytes of each, up to its end, to `take`, or
/// collects them. When it goes it takes in what the kernel has accepted for it.
class EventListener {
 public:
  explicit EventListener(const std::string &path, const std::function<void(std::string)> &take = nullptr);
  ~EventListener();
  /// Whole records, as bytes.
  const Collector &Records() const { return records_; }
  /// Names of the events, in order of acceptance.
  std::vector<std::string> Names() const;

 private:
  const std::string path_;
  Collector records_;
  base::UniqueFd socket_;
  std::thread thread_;
};

/// A management agent's socket that nobody serves: its backlog is full.
struct HangingAgent {
  explicit HangingAgent(const TestRoot &root);
  base::UniqueFd socket, filler;
};

/// One running daemon below its own root.
class Daemon : public Process {
 public:
  /// Start the daemon below `root`; standard output and error go to `root`/stdout and `root`/stderr. `inChild` is
  /// called last, in the process that it becomes.
  explicit Daemon(
      const TestRoot &root, const std::function<void()> &inChild = [] {});
  /// Expect that at rest everything is accounted for, signal SIGTERM and wait.
  int Stop(double seconds = 30);

 private:
  const TestRoot &root_;
};

/// A connected sender to kernel context `id` of the daemon below `root`. Sends block while the context's queue is full.
base::UniqueFd ConnectKernel(const TestRoot &root, unsigned id = 0);
/// A connection to the user context.
base::UniqueFd ConnectUser(const TestRoot &root);
/// A connection to the trace socket.
base::UniqueFd ConnectTrace(const TestRoot &root);

/// The bytes of an observation with text and 32-bit integer arguments.
std::vector<std::byte> MakeRecord(const std::string &id, const std::vector<std::string> &texts = {},
                                  const std::vector<int32_t> &integers = {}, const std::string &message = "a message");
/// Send one record; false with errno when it could not be sent.
bool SendRecord(const base::UniqueFd &fd, const std::vector<std::byte> &record);

/// All bytes that come from `fd` until its end.
std::string ReadToEnd(int fd);

/// A daemon that is ready, with its log and its management agent.
struct RunningDaemon {
  TestRoot root;
  LogListener log{root / "/dev/log"};
  EventListener events{root / "/var/run/corvane/mgmtd-kprob.sock"};
  Daemon daemon;
  /// `prepare` is called before it starts.
  explicit RunningDaemon(const std::function<void(const TestRoot &root)> &prepare = [](const TestRoot &) {});
};

}  // namespace testing_support
