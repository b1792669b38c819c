// Printing that stalls nobody: a thread of its own writes what waits in bounded memory.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "rynctl/console.h"
#include "rynctl/stopSignals.h"

namespace rynctl {

/// The lines of one run, printed in order. One thread calls; another one, with the caller's signal mask, prints. When
/// it is given up it may be left behind, blocked: the console says so, and its streams must then outlive the process.
class OutputQueue {
 public:
  /// Bytes that may wait. When there are more, lines are refused until half of them have been printed.
  static constexpr size_t kMostBytes = size_t{16} << 20;

  /// `console` is borrowed. `refusedLine` makes the line that is printed where so many lines were refused.
  OutputQueue(Console *console, std::function<std::string(uint64_t refused)> refusedLine);
  ~OutputQueue();
  OutputQueue(const OutputQueue &) = delete;
  OutputQueue &operator=(const OutputQueue &) = delete;

  /// Print `line`, its end included, to standard output. False when it is refused.
  bool Print(std::string line);
  /// Print `text` and a line's end to standard error.
  void Say(const std::string &text);

  /// False while so much waits that whoever can wait should: half of what is refused.
  bool HasRoom() const;
  /// True when the output has taken no more: there is nothing left to do.
  bool HasFailed() const;
  /// Readable once any of the above may have changed, until Noticed().
  int ChangedFd() const;
  void Noticed();

  /// Wait until all is printed, or 300 ms longer than until a stop is wanted. kDone, or kFailed when something
  /// was not printed, which is reported.
  int Finish(const StopSignals &signals);

 private:
  struct State;
  bool WaitBriefly();
  void GiveUp();

  const std::shared_ptr<State> state_;  ///< the printing thread's too
};

}  // namespace rynctl
