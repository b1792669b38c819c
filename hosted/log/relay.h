// Writes to a file that can block whoever writes to it, in a thread of its own. One thread at a time hands it text.
#pragma once

#include <atomic>
#include <cstddef>

namespace hosted {

/// A pipe whose write end never blocks, and a thread that passes on what comes through it. Never destroyed.
class Relay {
 public:
  /// Write to a duplicate of `fd` from now on. Starts pipe and thread at the first use. False when that fails.
  bool Start(int fd);
  /// The pipe's write end: non-blocking, takes up to PIPE_BUF bytes as a whole.
  int Fd() const { return ends_[1]; }
  /// Wait until the thread has written what the pipe held, for `milliseconds` at most.
  void WaitWritten(int milliseconds) const;

 private:
  static void *Run(void *relay);
  int ends_[2] = {-1, -1};
  std::atomic<int> target_{-1};
  std::atomic<bool> writing_{false};
};

}  // namespace hosted
