// Prints what a replay posts, beside what was recorded.
#pragma once

#include <ostream>
#include <string>

#include "replay/recording/player.h"

namespace replay {

struct PrintStyle {
  bool json = false;
  bool color = false;
};

class Printer : public StepListener {
 public:
  /// `out` is borrowed; `run` is the number of the run, from 0.
  Printer(std::ostream *out, PrintStyle style, size_t run) : out_(out), style_(style), run_(run) {}

  void Played(const PlayedStep &step) override;
  /// Print what all of it came to.
  void Finish(const Totals &totals);

 private:
  void PrintText(const PlayedStep &step, const Outcome &outcome);
  void PrintJson(const PlayedStep &step, const Outcome &outcome);

  std::ostream *out_;
  const PrintStyle style_;
  const size_t run_;
};

}  // namespace replay
