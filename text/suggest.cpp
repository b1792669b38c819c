// Edit distance with three rows of its matrix. Stateless: any thread.
#include "text/suggest.h"

#include <algorithm>
#include <utility>

namespace text {

size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> beforeLast(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    std::swap(beforeLast, last);
    std::swap(last, row);
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
  }
  return row[b.size()];
}

std::vector<std::string> Suggest(std::string_view word, std::span<const Known> known, size_t most) {
  const size_t limit = std::max<size_t>(2, word.size() / 4);
  std::vector<std::pair<size_t, std::string_view>> close;
  for (const Known &one : known) {
    const size_t longer = std::max(one.alias.size(), word.size()), shorter = std::min(one.alias.size(), word.size());
    if (longer - shorter > limit) continue;
    const size_t distance = EditDistance(word, one.alias);
    if (distance <= limit && distance < longer) close.emplace_back(distance, one.name);
  }
  std::ranges::stable_sort(close, {}, &std::pair<size_t, std::string_view>::first);
  std::vector<std::string> names;
  for (const auto &[distance, name] : close) {
    if (names.size() < most && std::ranges::find(names, name) == names.end()) names.emplace_back(name);
  }
  return names;
}

std::string DidYouMean(const std::vector<std::string> &names) {
  if (names.empty()) return "";
  std::string list = names[0];
  for (size_t i = 1; i < names.size(); ++i) list += (i + 1 == names.size() ? " or " : ", ") + names[i];
  return " (did you mean " + list + "?)";
}

}  // namespace text
