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
  /// The index of the first text that holds `part`, or -1.
  int IndexOf(const std::string &part) const;

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
  base::UniqueFd stop_;
  std::thread thread_;
};

/// The management agent's end: accepts connections at `path` and collects the bytes of each up to its end.
class EventListener {
 public:
  explicit EventListener(const std::string &path);
  ~EventListener();
  /// Whole records, as bytes.
  const Collector &Records() const { return records_; }
  /// Names of the events, in order of acceptance.
  std::vector<std::string> Names() const;

 private:
  Collector records_;
  base::UniqueFd socket_;
  base::UniqueFd stop_;
  std::thread thread_;
  std::string path_;
};

/// One running daemon below its own root.
class Daemon {
 public:
  /// Start the daemon below the folder `below` of `root` with `arguments`; standard output and error go to
  /// `root`/stdout and `root`/stderr, the latter to the descriptor `standardError` where that is given. `inChild` is
  /// called last, in the process that it becomes.
  Daemon(const TestRoot &root, const std::vector<std::string> &arguments = {}, const std::string &below = "",
         int standardError = -1, const std::function<void()> &inChild = nullptr);
  ~Daemon();  ///< kills what still runs
  pid_t Pid() const { return pid_; }
  void Signal(int number) const;
  /// Wait for its end: the exit status, or 128 + the signal's number; -1 when it still runs after `seconds`.
  int WaitForExit(double seconds = 30);
  /// Expect that at rest everything is accounted for, signal SIGTERM and wait.
  int Stop(double seconds = 30);

 private:
  const TestRoot &root_;
  pid_t pid_ = -1;
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

/// Wait until `condition` holds. False after `seconds`.
bool WaitUntil(const std::function<bool()> &condition, double seconds = 30);

/// A daemon that is ready, with its log and its management agent.
struct RunningDaemon {
  TestRoot root;
  LogListener log{root / "/dev/log"};
  EventListener events{root / "/var/run/corvane/mgmtd-kprob.sock"};
  Daemon daemon{root};
  RunningDaemon();
};

}  // namespace testing_support
