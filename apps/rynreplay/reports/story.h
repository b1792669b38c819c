// What the agents did, kept long enough to say what led to an event. One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "eventRecord/eventDecoder.h"
#include "replay/recording/player.h"

namespace replay {

/// One step, in words.
struct Scene {
  uint64_t us = 0;
  std::string agent;
  std::string id;    ///< of the observation; "" for another step
  std::string text;  ///< what happened
  std::vector<std::string> arguments;
  std::vector<std::string> reasons;
  std::vector<std::string> settings;  ///< what was asked of the host and answered: "PATH is TEXT"
  std::vector<std::string> posts;     ///< names of events, "dropped (rate)" behind those that were

  /// Whether it is about `key`: an argument of its observation, or a word of a reason.
  bool IsAbout(std::string_view key) const;
};

/// The scene of a step.
Scene ToScene(const PlayedStep &step);

/// The texts and numbers that say what an event of this scene is about: the arguments of its subject, what it shares
/// with the scene's observation, or all of its texts.
std::vector<std::string> KeysOf(const eventrecord::DecodedEvent &event, const Scene &scene);

/// Print a scene, each line behind `indent`.
void PrintScene(const Scene &scene, const std::string &indent, std::ostream *out);

}  // namespace replay
