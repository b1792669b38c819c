// One object of the daemon's JSON feed, taken apart, chosen and printed.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "rynctl/showing/eventPrinter.h"

namespace rynctl {

/// A line of the feed.
struct TraceRecord {
  enum class Kind { kIn, kOut, kDelivery, kDrop, kLost };
  Kind kind;
  uint64_t microseconds;            ///< since the epoch
  nlohmann::ordered_json object;    ///< as the daemon wrote it
  std::string id;                   ///< of all but kLost; a delivery has that of its event, "" when it is not known
  std::vector<std::string> agents;  ///< who was given an observation, or who posted
};

/// Take `line` apart. Nothing when it is none of the feed's objects.
std::optional<TraceRecord> ParseTraceRecord(std::string_view line);

/// The subsystems, and the agents of each.
const std::map<std::string, std::set<std::string>> &SubsystemAgents();

/// Which records are wanted.
struct TraceChoice {
  std::vector<std::string> ids;  ///< prefixes; none: all
  std::set<std::string> agents;  ///< none: all
  bool in = false;               ///< only observations
  bool out = false;              ///< only events and what becomes of them
};

/// Chooses records, and knows which event a delivery is of.
class TraceFilter {
 public:
  explicit TraceFilter(TraceChoice choice) : choice_(std::move(choice)) {}
  /// Whether `record` is wanted; gives a delivery the id of its event. What was lost is always wanted: the reader must
  /// know that something is missing.
  bool Wants(TraceRecord *record);

 private:
  void Remember(uint64_t sequence, const std::string &id);

  const TraceChoice choice_;
  std::map<uint64_t, std::string> shown_;  ///< events that were chosen, by sequence number; the last ones
};

/// A record for people: "HH:MM:SS.mmm  IN   ID  TEXT (ARGS)  -> AGENTS", local time.
std::string TraceText(const TraceRecord &record, LineStyle style);

/// A record as a JSON object, without its end.
std::string TraceJson(const TraceRecord &record);

}  // namespace rynctl
