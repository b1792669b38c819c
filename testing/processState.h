// A child process of a test, and what a running process holds, from outside.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "testing/testRoot.h"

namespace testing_support {

/// A program that runs until it ends, or its owner goes.
class Process {
 public:
  /// Start `words`, the first of which is the program; `inChild` is called last in the process that it becomes.
  Process(std::vector<std::string> words, const std::function<void()> &inChild);
  ~Process();  ///< kills what still runs
  Process(const Process &) = delete;
  Process &operator=(const Process &) = delete;
  pid_t Pid() const { return pid_; }  ///< -1 once it has been waited for
  void Signal(int number) const;
  /// True once it has ended, waited for or not.
  bool HasEnded() const;
  /// Wait for its end: the exit status, or 128 + the signal's number; -1 when it still runs after `seconds`.
  int WaitForExit(double seconds = 30);

 private:
  pid_t pid_ = -1;
};

struct Output {
  int status = -1;   ///< of the exit
  std::string text;  ///< what was written to the standard output
};
/// Run a shell's command to its end.
Output RunShell(const std::string &command);

/// In a child: append what it writes to `fd` to the file `path`.
void RedirectTo(int fd, const std::string &path);

struct ProcessState {
  long descriptors = 0;  ///< open
  long threads = 0;
  long residentKib = 0;
};

/// The number behind `key` in the status of a process or a thread, whose folder below /proc is `task`; 0 without one.
long StatusValue(const std::string &task, const std::string &key);
/// What process `pid` holds now; zeroes when it is gone.
ProcessState ReadProcessState(pid_t pid);

}  // namespace testing_support
