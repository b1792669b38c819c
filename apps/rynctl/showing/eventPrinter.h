// Events as lines: for people, or JSON for programs.
#pragma once

#include <string>
#include <string_view>

#include "eventRecord/eventDecoder.h"

namespace rynctl {

using eventrecord::DecodedEvent;
using eventrecord::DecodeEvent;

/// "problem", "audit", "clear"; "unknown" for none.
std::string_view CategoryName(std::optional<rynd::Category> category);
/// The color code that a category is shown in, for Colored.
std::string_view CategoryColor(std::optional<rynd::Category> category);

/// How lines are shown.
struct LineStyle {
  bool color = false;  ///< nothing but colors can steer a terminal, and only when this is set
  bool date = false;   ///< in front of the time
};

/// One event as a line without its end: "HH:MM:SS.mmm  PROBLEM  NAME  TEXT", local time, then the record's problems in
/// brackets.
std::string EventLine(const DecodedEvent &event, LineStyle style);

/// One event as a JSON object on one line, without its end.
std::string EventJson(const DecodedEvent &event);

}  // namespace rynctl
