// Where steps come from.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "replay/recording/recordedStep.h"

namespace replay {

class StepSource {
 public:
  StepSource() = default;
  virtual ~StepSource() = default;
  StepSource(const StepSource &) = delete;
  StepSource &operator=(const StepSource &) = delete;

  /// The next step of the run, in the order in which they ended; its first is kStart. False at the run's end.
  virtual bool Next(RecordedStep *step) = 0;
  /// Whether the run began before the recording did: what the daemon remembered of that time is not known.
  virtual bool IsContinued() const = 0;
  /// Whether its steps say which agent took what when, and which events came of it.
  virtual bool TellsEvents() const = 0;
  /// What is missing from the run so far, one sentence each.
  virtual std::vector<std::string> Missing() const = 0;
};

}  // namespace replay
