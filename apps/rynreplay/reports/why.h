// Listeners that find out why an event came, or why it did not. One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "replay/reports/story.h"

namespace replay {

/// Which event is asked about.
struct WantedEvent {
  uint64_t sequence = 0;         ///< its number in its run; 0: by its name
  std::string name;              ///< whole
  std::optional<uint64_t> atUs;  ///< the one nearest to this time; without it the last one
};

/// Collects what led to one event.
class Why : public StepListener {
 public:
  explicit Why(WantedEvent wanted) : wanted_(std::move(wanted)) {}

  bool WantsReasons() const override { return true; }
  void Played(const PlayedStep &step) override;
  /// Print the tree. False when the event did not come.
  bool Print(std::ostream *out) const;

 private:
  struct Answer {
    std::string heading, text;
    Scene scene;
    std::vector<Scene> earlier;  ///< of the same agent about the same, the latest first
    size_t further = 0;          ///< that are not kept
  };
  bool IsWanted(const Outcome &outcome, const eventrecord::DecodedEvent &event) const;
  void Keep(const Outcome &outcome, const eventrecord::DecodedEvent &event, const Scene &scene);

  const WantedEvent wanted_;
  std::map<std::string, std::deque<Scene>> scenes_;  ///< by agent, "" for timers
  std::optional<Answer> answer_;
  uint64_t distanceUs_ = 0;
};

/// Collects what became of the observations that could have led to an event.
class WhyNot : public StepListener {
 public:
  /// `name` is whole; `subject` is what it would have been about, "" for anything.
  WhyNot(std::string name, std::string subject);

  bool WantsReasons() const override { return true; }
  void Played(const PlayedStep &step) override;
  /// Print what was found.
  void Print(std::ostream *out) const;
  bool HasCome() const { return came_ > 0; }

 private:
  const std::string name_, subject_;
  std::vector<std::string> ids_;  ///< of observations that lead to it
  std::deque<Scene> stopped_;     ///< the last ones that did not
  uint64_t seen_ = 0, seenOfOthers_ = 0, came_ = 0, dropped_ = 0;
  Scene lastCame_;
};

}  // namespace replay
