// Entries as text for people: on a terminal, and in what the build makes of the catalogue.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/catalog.h"

namespace catalog {

/// How a page looks: its width in columns, and what stands around a heading, such as the codes for bold.
struct Style {
  size_t width = 80;
  std::string_view headingBegin, headingEnd;
};

/// The message of `event` with its arguments' names: "Device or filesystem with identifier [DEVICE] has ...".
std::string MessageWithNames(const Event &event);

/// What ends a problem, in words, one event each; for an event that is no problem nothing.
std::vector<std::string> EndedByInWords(const Event &event);
/// The problems that an event ends, in words, one each.
std::vector<std::string> EndsInWords(const Event &event);
/// The arguments of an observation in words: "DEVICE (s), SECONDS (i32)".
std::string ArgumentsInWords(const Observation &observation);

/// Commands that have the daemon handle `observation`, lines for a shell without their ends: its first example.
std::vector<std::string> TryLines(const Observation &observation);
/// Commands that have it post `event`, the example that leads to the fewest others; no lines when none can be shown.
std::vector<std::string> TryLines(const Event &event);

/// The whole explanation, lines with their ends.
std::string Explain(const Event &event, const Style &style);
std::string Explain(const Observation &observation, const Style &style);

}  // namespace catalog
