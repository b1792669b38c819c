// A saved JSON trace feed as a source of steps: observations alone, since the feed tells neither what agents asked of
// the host nor when each began. One thread.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "replay/recording/stepSource.h"

namespace replay {

class TraceSource : public StepSource {
 public:
  /// Open the file at `path`. Null, with `*error` saying why, when it can't be read or begins with no such feed.
  static std::unique_ptr<TraceSource> Open(const std::string &path, std::string *error);

  bool Next(RecordedStep *step) override;
  bool IsContinued() const override { return true; }
  bool TellsEvents() const override { return false; }
  std::vector<std::string> Missing() const override;

 private:
  /// Read up to the next observation. False at the end.
  bool ReadObservation();

  std::ifstream file_;
  RecordedStep next_;  ///< the observation that has been read
  bool hasNext_ = false, hasStarted_ = false;
  uint64_t lastUs_ = 0, lost_ = 0, strange_ = 0, lines_ = 0;
};

}  // namespace replay
