// Events as lines: for people, or JSON for programs.
#pragma once

#include <string>
#include <string_view>

#include "rynctl/eventDecoder.h"

namespace rynctl {

/// "problem", "audit", "clear"; "unknown" for none.
std::string_view CategoryName(std::optional<rynd::Category> category);
/// The color code that a category is shown in, for Colored.
std::string_view CategoryColor(std::optional<rynd::Category> category);

/// Writes the local date in front of the first line of a day. One thread at a time.
class DateLine {
 public:
  /// "DATE\n" when `microseconds` is another local day than in the call before, else "".
  std::string For(uint64_t microseconds);

 private:
  std::string last_;
};

/// One event as a line without its end: "HH:MM:SS.mmm  PROBLEM  NAME  TEXT", local time, then the record's problems in
/// brackets. Nothing in it can steer a terminal but the colors, when `color` asks for them.
std::string EventLine(const DecodedEvent &event, bool color);

/// One event as a JSON object on one line, without its end.
std::string EventJson(const DecodedEvent &event);

}  // namespace rynctl
