// The catalogue's entries by what a person calls them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "catalog/catalog.h"

namespace catalog {

/// What a name led to: one of the two entries, or else neither, and names: `candidates` that begin with it, or
/// `suggestions` that look like it.
struct Found {
  const Event *event = nullptr;
  const Observation *observation = nullptr;
  std::vector<std::string> candidates, suggestions;
};

/// Look up an event or an observation by its name, with or without "amb.", its category and "ryn."; or by the beginning
/// of one, whole words or not, when only one begins so. An event goes in front of an observation. Any thread.
Found Find(std::string_view name);

/// Up to three ids of observations that look like `id`.
std::vector<std::string> SuggestObservations(std::string_view id);

/// True when `prefix` begins `name`, or `name` without "amb.", its category or "ryn.".
bool Matches(std::string_view name, std::string_view prefix);

}  // namespace catalog
