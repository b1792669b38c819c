// The three kinds of event and their namespaces.
#pragma once

#include <cstdint>
#include <string_view>

namespace rynd {

/// What an event is to its reader: something wrong, something to know, or the end of something wrong.
enum Category : uint32_t { kProblem = 0, kAudit = 1, kClear = 2 };

/// The namespace of a category's event ids, its last dot included; "" for no category.
constexpr std::string_view EventNamespace(uint32_t category) {
  switch (category) {
    case kProblem:
      return "amb.problem.";
    case kAudit:
      return "amb.audit.";
    case kClear:
      return "amb.clear.";
    default:
      return "";
  }
}

/// What stands in front of the event id in a post format.
constexpr std::string_view kEventMarker = "@&!*@*@(";

}  // namespace rynd
