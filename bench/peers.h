// The processes under test and the two peers that they share: the system log's socket and the management agent's.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/uniqueFd.h"

namespace bench {

/// Nanoseconds of the monotonic clock.
int64_t Now();
/// End the benchmark, and the program that it runs, with `what` and the system's text for errno. Exit status 2.
[[noreturn]] void Fail(const std::string &what);

/// A folder in /tmp that CORVANE_ROOT names, removed when it goes. One at a time. As on any host its /var/run is in
/// memory: a socket's file there costs a fraction of one on a disk.
class Root {
 public:
  Root();
  ~Root();
  Root(const Root &) = delete;
  Root &operator=(const Root &) = delete;
};

/// The system log's end. One thread at a time reads it.
class LogSocket {
 public:
  LogSocket();
  /// Receive one record; "" when none comes for `milliseconds`, which hold until another number is given.
  std::string Receive(int milliseconds = 5000);
  /// The same without its text: whether one came.
  bool Skip(int milliseconds = 5000);
  /// Receive until a record holds `part`; ends the benchmark when none comes.
  void WaitFor(const std::string &part);

 private:
  void SetTimeout(int milliseconds);
  base::UniqueFd socket_;
  int milliseconds_ = 0;
};

/// The management agent's end.
class EventSocket {
 public:
  EventSocket();
  /// Accept one connection and read its record. Returns its length; `*arrival` is when its bytes were read.
  size_t Receive(int64_t *arrival);
  /// Its descriptor, for who waits for more than it.
  int Fd() const { return socket_.Get(); }

 private:
  base::UniqueFd socket_;
};

/// One run of a program under test, from its start to its SIGTERM.
class Program {
 public:
  /// Start `argv` and wait for the log record that holds `ready`.
  Program(const std::vector<std::string> &argv, const std::string &ready, LogSocket *log);
  ~Program();
  Program(const Program &) = delete;
  Program &operator=(const Program &) = delete;

  /// Nanoseconds from its start to its `ready`.
  int64_t StartTime() const { return startTime_; }
  /// A number of its /proc status, such as "VmRSS" in KiB.
  long Status(const std::string &key) const;
  pid_t Pid() const { return pid_; }
  /// Its share of what it has in memory, KiB.
  long ProportionalKib() const;
  /// Nanoseconds of processor time that all of its threads have taken.
  int64_t CpuTime() const;
  /// How often its threads have gone to sleep or were put aside.
  long Switches() const;

 private:
  pid_t pid_ = -1;
  int64_t startTime_ = 0;
  LogSocket *log_;
};

/// A connected sender to kernel context 0.
base::UniqueFd ConnectKernel();

}  // namespace bench
