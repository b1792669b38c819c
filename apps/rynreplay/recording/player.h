// Plays the steps of a recording: the daemon's correlators see again what they saw. One thread; one run a process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "replay/recording/comparison.h"
#include "replay/recording/stepSource.h"
#include "replay/world/world.h"

namespace replay {

/// One step of the replay, as long as the listener is called.
struct PlayedStep {
  const Step &what;
  uint64_t us;                              ///< when it began, microseconds since the epoch
  std::vector<Outcome> outcomes;            ///< in order
  const std::vector<std::string> &reasons;  ///< what the handlers told, if that is wanted
  const std::vector<HostAnswer> &asked;     ///< what they asked of the host, likewise
};

class StepListener {
 public:
  StepListener() = default;
  virtual ~StepListener() = default;
  StepListener(const StepListener &) = delete;
  StepListener &operator=(const StepListener &) = delete;

  virtual bool WantsReasons() const { return false; }
  virtual void Played(const PlayedStep &step) = 0;
};

struct PlayOptions {
  std::vector<std::pair<std::string, std::string>> settings;  ///< files of the host tree that hold something else
  std::optional<uint64_t> untilUs;                            ///< microseconds since the epoch
  bool takesItsTime = false;                                  ///< as long as it took
};

struct Totals {
  uint64_t observations = 0;  ///< that were handled, once an agent
  uint64_t events = 0;        ///< posted or dropped by the replay
  uint64_t equal = 0, changed = 0, added = 0, missing = 0;
  std::vector<std::string> notes;  ///< what makes the replay less than exact, a sentence each
  uint64_t Differences() const { return changed + added + missing; }
  bool IsCompared() const { return equal + Differences() > 0; }
};

class Player {
 public:
  /// All are borrowed.
  Player(StepSource *source, const PlayOptions &options, StepListener *listener)
      : source_(source), options_(options), listener_(listener) {}

  /// Play all of it.
  Totals Play();

 private:
  void Listen();
  void PlayStep(RecordedStep *step);
  void PlayRecorded(RecordedStep *step);
  bool PlayTold(const RecordedStep &step);
  bool IsWhatIf() const { return !options_.settings.empty(); }
  void Tell(const RecordedStep &step);
  void Ended(const Step &what, std::vector<Post> posts);
  void Count(const std::vector<Outcome> &outcomes);
  void WaitFor(const RecordedStep &step);

  StepSource *source_;
  const PlayOptions options_;
  StepListener *listener_;
  RecordedStep *current_ = nullptr;  ///< whose events are compared
  std::vector<std::string> reasons_;
  std::vector<HostAnswer> asked_;
  int64_t firstNs_ = 0, startedNs_ = 0;
  Totals totals_;
};

}  // namespace replay
