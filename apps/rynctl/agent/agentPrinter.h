// What the management agent knows, for people.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "mgmtd/store/storedEvent.h"

namespace rynctl {

/// How the agent's events and problems are shown.
struct AgentStyle {
  bool color = false;
  size_t width = 0;  ///< columns to break lines at; 0: one line each
};

/// The color code of a severity's name, for Colored; "" for none.
std::string_view SeverityColor(std::string_view severity);

/// An event: "ID  DATE TIME  CATEGORY  NAME: TEXT [DAMAGE]", the name without its namespace, with the lines' ends.
std::string StoredEventLines(const mgmtd::StoredEvent &event, const AgentStyle &style);

/// What stands over the problems.
std::string ProblemHeading();
/// A problem as mgmtd::ToJson gives it: "ID SINCE SEVERITY TIMES SUBJECT", below it name and text, and what ended it.
std::string ProblemLines(const nlohmann::ordered_json &problem, const AgentStyle &style);
/// "3 open: 1 critical, 2 error."
std::string ProblemSummary(const nlohmann::ordered_json &problems);

/// `isoTime` as local time to the minute: "2026-11-21 18:09".
std::string MinuteOf(const std::string &isoTime);

}  // namespace rynctl
