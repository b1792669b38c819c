// Rows of a correlator as a test runs through them: arguments that fit a row, and an event that shows them.
#pragma once

#include <string>

#include "correlators/rows/postRow.h"
#include "testing/postedEvents.h"

namespace rynd {

/// Arguments that tell each field of a row apart, and the way that an event shows them in their order.
inline Arguments SampleOf(const PostRow &row) {
  Arguments arguments;
  for (size_t i = 0; i < post_row::Count(row.fields.types); ++i) {
    switch (row.fields.types[i]) {
      case ArgType::kStr:
        arguments.push_back(Str("text" + std::to_string(i)));
        break;
      case ArgType::kLong:
        arguments.push_back(Long((uint64_t{1} << 63) + i));
        break;
      default:
        arguments.push_back(Int(static_cast<int64_t>(40 + i)));
    }
  }
  return arguments;
}

/// True when the event shows what `SampleOf` gave, each in its turn.
inline bool ShowsSample(const PostRow &row, const std::string &event) {
  size_t at = 0;
  for (size_t i = 0; i < post_row::Count(row.fields.types) && at != std::string::npos; ++i) {
    const ArgType type = row.fields.types[i];
    const bool hex = i == 0 && event.find("handle 0x") != std::string::npos;
    const std::string number = hex ? "0x28" : std::to_string(40 + i);
    at = event.find(type == ArgType::kStr    ? "text" + std::to_string(i)
                    : type == ArgType::kLong ? std::to_string((uint64_t{1} << 63) + i)
                                             : number,
                    at);
  }
  return at != std::string::npos;
}

}  // namespace rynd
