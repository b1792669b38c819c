// What was meant by a word that is not known.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace text {

/// How many characters must be inserted, deleted, replaced, or swapped with their neighbour to turn one into the other.
size_t EditDistance(std::string_view a, std::string_view b);

/// A name, and what a person may call it.
struct Known {
  std::string_view name, alias;
};

/// The names of up to `most` of `known` whose alias is close to `word`, the closest first, each once: a quarter of its
/// characters may differ, and at least two. Any thread.
std::vector<std::string> Suggest(std::string_view word, std::span<const Known> known, size_t most);

/// " (did you mean A, B or C?)", or "" for none.
std::string DidYouMean(const std::vector<std::string> &names);

}  // namespace text
